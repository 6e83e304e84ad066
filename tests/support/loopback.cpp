#include "loopback.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace testkit {

uint32_t loopback(uint8_t last) { return 0x7F000000u | last; }

std::string loopback_text(uint8_t last) { return "127.0.0." + std::to_string(last); }

UdpPeer::UdpPeer(uint8_t last, uint16_t port)
{
    fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (fd_ < 0) throw std::runtime_error("socket");
    int one = 1;
    ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(loopback(last));
    if (::bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) {
        ::close(fd_);
        throw std::runtime_error("bind " + loopback_text(last) + ":" + std::to_string(port));
    }
}

UdpPeer::~UdpPeer()
{
    if (fd_ >= 0) ::close(fd_);
}

std::optional<Bytes> UdpPeer::receive(int timeout_ms)
{
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeout_ms) <= 0) return std::nullopt;
    Bytes buf(65536);
    socklen_t len = sizeof sender_;
    ssize_t n = ::recvfrom(fd_, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr *>(&sender_), &len);
    if (n < 0) return std::nullopt;
    buf.resize(static_cast<size_t>(n));
    ++received_;
    return buf;
}

void UdpPeer::reply(const Bytes &datagram)
{
    ::sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&sender_),
             sizeof sender_);
}

}  // namespace testkit
