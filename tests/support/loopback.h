// Loopback helpers for tests: host-order addresses in 127.0.0.0/8 and a
// scripted UDP peer that plays the managed system by hand.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace testkit {

using Bytes = std::vector<uint8_t>;

// 127.0.0.last in host byte order, as IPMI_SessionParam wants it.
uint32_t loopback(uint8_t last);
std::string loopback_text(uint8_t last);

// A UDP socket bound to 127.0.0.last:port that receives what the library
// sends and answers the last sender.
class UdpPeer {
public:
    explicit UdpPeer(uint8_t last, uint16_t port = 623);
    ~UdpPeer();
    UdpPeer(const UdpPeer &) = delete;
    UdpPeer &operator=(const UdpPeer &) = delete;

    // Next datagram within timeout_ms, or nothing.
    std::optional<Bytes> receive(int timeout_ms);
    // Sends to the sender of the last datagram received.
    void reply(const Bytes &datagram);
    // Number of datagrams received so far.
    int received_count() const { return received_; }
    const sockaddr_in &last_sender() const { return sender_; }

private:
    int fd_ = -1;
    sockaddr_in sender_{};
    int received_ = 0;
};

}  // namespace testkit
