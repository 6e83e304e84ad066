// Helpers shared by the establishment tests: HMAC-SHA1 straight from
// OpenSSL (independent of the library's own entry point), builders of the
// managed system's answers, and a scripted peer that answers from a thread
// while the library blocks in its send, wait and retry routine.
#pragma once

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "loopback.h"
#include "rmcpp.h"
#include "trace_capture.h"
#include "wire.h"

namespace rakptest {

using testkit::Bytes;
using Lines = std::vector<std::string>;

// ------------------------------------------------------------ byte helpers

inline Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const auto &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

inline Bytes le32(uint32_t v)
{
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
            static_cast<uint8_t>(v >> 24)};
}

inline Bytes text(const std::string &s) { return Bytes(s.begin(), s.end()); }

// The text followed by zeros up to n bytes.
inline Bytes padded(const std::string &s, size_t n)
{
    Bytes b = text(s);
    b.resize(n, 0);
    return b;
}

inline Bytes first(const Bytes &b, size_t n) { return Bytes(b.begin(), b.begin() + static_cast<long>(n)); }

// 16 bytes counting up from `start`: a recognisable random number or GUID.
inline Bytes sequence16(uint8_t start)
{
    Bytes b(16);
    for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(start + i);
    return b;
}

// One-shot HMAC-SHA1 with OpenSSL, as RFC 2104 defines it.
inline Bytes hmac_sha1(const Bytes &key, const Bytes &data)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    static const unsigned char no_key = 0;
    HMAC(EVP_sha1(), key.empty() ? &no_key : key.data(), static_cast<int>(key.size()), data.data(), data.size(),
         out, &n);
    return Bytes(out, out + n);
}

// ------------------------------------------- the keyed codes of RAKP 2..4

// RAKP 2 key exchange code: HMAC(user key, SIDm | SIDc | Rm | Rc | GUID |
// role | N | name).
inline Bytes rakp2_code(const Bytes &user_key, uint32_t console_sid, uint32_t bmc_sid, const Bytes &rm,
                        const Bytes &rc, const Bytes &guid, uint8_t role, const std::string &name)
{
    return hmac_sha1(user_key, cat({le32(console_sid), le32(bmc_sid), rm, rc, guid,
                                    {role, static_cast<uint8_t>(name.size())}, text(name)}));
}

// RAKP 3 key exchange code: HMAC(user key, Rc | SIDm | role | N | name).
inline Bytes rakp3_code(const Bytes &user_key, const Bytes &rc, uint32_t console_sid, uint8_t role,
                        const std::string &name)
{
    return hmac_sha1(user_key, cat({rc, le32(console_sid), {role, static_cast<uint8_t>(name.size())}, text(name)}));
}

// SIK: HMAC(Kg or user key, Rm | Rc | role | N | name).
inline Bytes sik_of(const Bytes &key, const Bytes &rm, const Bytes &rc, uint8_t role, const std::string &name)
{
    return hmac_sha1(key, cat({rm, rc, {role, static_cast<uint8_t>(name.size())}, text(name)}));
}

// RAKP 4 integrity check value: the first 12 bytes of HMAC(SIK, Rm | SIDc | GUID).
inline Bytes rakp4_icv(const Bytes &sik, const Bytes &rm, uint32_t bmc_sid, const Bytes &guid)
{
    return first(hmac_sha1(sik, cat({rm, le32(bmc_sid), guid})), 12);
}

// K2: HMAC(SIK, sixty-four 0x02 bytes).
inline Bytes k2_of(const Bytes &sik) { return hmac_sha1(sik, Bytes(64, 0x02)); }

// ------------------------------------------------------ answers on the wire

inline Bytes rmcp_header() { return {0x06, 0x00, 0xFF, 0x07}; }

// The pre-session RMCP+ session header; `length_adjust` is added to the
// true payload length in the length field.
struct SessionHeader {
    uint8_t format = 0x06;
    uint8_t payload_type = 0;
    uint32_t session_id = 0;
    uint32_t sequence = 0;
    int length_adjust = 0;
};

inline Bytes rmcp_plus(const SessionHeader &h, const Bytes &payload)
{
    Bytes d(16 + payload.size());
    rmcpp::wire::Writer w(d.data(), d.size());
    w.bytes(rmcp_header().data(), 4);
    w.u8(h.format).u8(h.payload_type).u32le(h.session_id).u32le(h.sequence);
    w.u16le(static_cast<uint16_t>(static_cast<int>(payload.size()) + h.length_adjust));
    w.bytes(payload.data(), payload.size());
    return d;
}

inline Bytes rmcp_plus(uint8_t payload_type, const Bytes &payload)
{
    SessionHeader h;
    h.payload_type = payload_type;
    return rmcp_plus(h, payload);
}

// One algorithm record of an Open Session payload.
struct AlgorithmRecord {
    uint8_t type;
    uint8_t algorithm;
    uint8_t length = 8;
    uint8_t reserved = 0;  // written into all five reserved bytes
};

struct OpenSessionResponse {
    uint8_t tag = 1;
    uint8_t status = 0;
    uint8_t privilege = 4;
    uint8_t reserved = 0;
    uint32_t console_sid = 0;
    uint32_t bmc_sid = 0;
    AlgorithmRecord auth{0x00, 1};
    AlgorithmRecord integrity{0x01, 1};
    AlgorithmRecord confidentiality{0x02, 1};

    Bytes payload() const
    {
        Bytes p(36);
        rmcpp::wire::Writer w(p.data(), p.size());
        w.u8(tag).u8(status).u8(privilege).u8(reserved).u32le(console_sid).u32le(bmc_sid);
        for (const auto *a : {&auth, &integrity, &confidentiality})
            w.u8(a->type).fill(a->reserved, 2).u8(a->length).u8(a->algorithm).fill(a->reserved, 3);
        return p;
    }
    Bytes datagram() const { return rmcp_plus(0x11, payload()); }
};

struct Rakp2 {
    uint8_t tag = 2;
    uint8_t status = 0;
    uint16_t reserved = 0;
    uint32_t console_sid = 0;
    Bytes rc = sequence16(0xC0);
    Bytes guid = sequence16(0x40);
    Bytes code;  // key exchange code; empty under RAKP-none

    Bytes payload() const
    {
        Bytes p(8);
        rmcpp::wire::Writer w(p.data(), p.size());
        w.u8(tag).u8(status).u16le(reserved).u32le(console_sid);
        return cat({p, rc, guid, code});
    }
    Bytes datagram() const { return rmcp_plus(0x13, payload()); }
};

struct Rakp4 {
    uint8_t tag = 3;
    uint8_t status = 0;
    uint16_t reserved = 0;
    uint32_t console_sid = 0;
    Bytes icv;  // integrity check value; empty under RAKP-none

    Bytes payload() const
    {
        Bytes p(8);
        rmcpp::wire::Writer w(p.data(), p.size());
        w.u8(tag).u8(status).u16le(reserved).u32le(console_sid);
        return cat({p, icv});
    }
    Bytes datagram() const { return rmcp_plus(0x15, payload()); }
};

// An IPMI response message with both checksums.
inline Bytes ipmi_message(uint8_t rq_addr, uint8_t netfn_lun, uint8_t rs_addr, uint8_t seq_lun, uint8_t cmd,
                          const Bytes &data)
{
    Bytes m(7 + data.size());
    rmcpp::wire::Writer w(m.data(), m.size());
    w.u8(rq_addr).u8(netfn_lun).u8(rmcpp::wire::checksum(m.data(), 2));
    w.u8(rs_addr).u8(seq_lun).u8(cmd).bytes(data.data(), data.size());
    w.u8(rmcpp::wire::checksum(m.data() + 3, m.size() - 4));
    return m;
}

// IPMI v1.5 session framing without authentication; `length_adjust` is
// added to the true message length in the length byte.
struct V15Header {
    uint8_t auth_type = 0;
    uint32_t sequence = 0;
    uint32_t session_id = 0;
    int length_adjust = 0;
};

inline Bytes v15(const V15Header &h, const Bytes &message)
{
    Bytes d(14 + message.size());
    rmcpp::wire::Writer w(d.data(), d.size());
    w.bytes(rmcp_header().data(), 4);
    w.u8(h.auth_type).u32le(h.sequence).u32le(h.session_id);
    w.u8(static_cast<uint8_t>(static_cast<int>(message.size()) + h.length_adjust));
    w.bytes(message.data(), message.size());
    return d;
}

// Get Channel Authentication Capabilities response data: completion code,
// channel, authentication type support, status, extended capabilities and
// four OEM bytes.
inline Bytes auth_capa_data(uint8_t status = 0x00, uint8_t auth_support = 0x80, uint8_t extended = 0x02,
                            uint8_t completion_code = 0x00)
{
    return {completion_code, 0x01, auth_support, status, extended, 0x00, 0x00, 0x00, 0x00};
}

// The answer a managed system at 0x20, LUN `rs_lun`, gives to the library's
// request from 0x71.
inline Bytes auth_capa_response(const Bytes &data, uint8_t rs_lun = 0, const V15Header &h = {})
{
    return v15(h, ipmi_message(0x71, 0x07 << 2, 0x20, static_cast<uint8_t>((1 << 2) | rs_lun), 0x38, data));
}

// The ASF presence pong.
inline Bytes presence_pong()
{
    Bytes p(28);
    rmcpp::wire::Writer w(p.data(), p.size());
    w.u8(0x06).u8(0x00).u8(0xFF).u8(0x06);
    w.u32be(4542).u8(0x40).u8(0x01).u8(0x00).u8(0x10);
    w.u32be(4542).u32be(0).u8(0x81).u8(0x00).fill(0, 6);
    return p;
}

// ---------------------------------------------------------- scripted peer

// Plays the managed system at 127.0.0.last:623: every datagram received is
// recorded and handed to the handler (with its index), and each datagram
// the handler returns is sent back to the sender. The handler runs on the
// peer's thread and may sleep to answer late.
class ScriptedPeer {
public:
    using Handler = std::function<std::vector<Bytes>(const Bytes &request, int index)>;

    ScriptedPeer(uint8_t last, Handler handler) : peer_(last), handler_(std::move(handler))
    {
        thread_ = std::thread([this] { run(); });
    }
    ~ScriptedPeer() { stop(); }
    ScriptedPeer(const ScriptedPeer &) = delete;
    ScriptedPeer &operator=(const ScriptedPeer &) = delete;

    // Ends the peer once every datagram already received by its socket has
    // been handled; afterwards everything the handler wrote is settled.
    void stop()
    {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
    }

    std::vector<Bytes> requests() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }

private:
    void run()
    {
        // Once stopping, whatever has already arrived is still answered.
        for (;;) {
            const bool stopping = stop_;
            auto datagram = peer_.receive(stopping ? 0 : 20);
            if (!datagram) {
                if (stopping) return;
                continue;
            }
            int index;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                requests_.push_back(*datagram);
                index = static_cast<int>(requests_.size()) - 1;
            }
            for (const auto &reply : handler_(*datagram, index)) peer_.reply(reply);
        }
    }

    testkit::UdpPeer peer_;
    Handler handler_;
    mutable std::mutex mutex_;
    std::vector<Bytes> requests_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

inline void sleep_ms(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// The local port of a test program's sockets: 7100 + the last byte of its
// peer's address, outside the 7001..7099 range that init_socket searches
// when given no port, so tests of that search can run beside these.
inline uint16_t local_port_for(uint8_t last) { return static_cast<uint16_t>(7100 + last); }

// A setup state with a socket made by init_socket toward 127.0.0.last:623,
// one-second waits and two attempts per phase.
struct Link {
    RMCPp_SetupState state;
    int opened;

    explicit Link(uint8_t last, uint16_t retry_count = 2)
    {
        std::memset(&state, 0, sizeof state);
        state.bmc_address = testkit::loopback(last);
        state.rs_addr = 0x20;
        state.retry_count = retry_count;
        state.timeout_sec = 1;
        state.local_port = local_port_for(last);
        opened = init_socket(&state.socket_fd, state.bmc_address, 623, state.local_port);
    }
    ~Link()
    {
        if (opened == 0) close(state.socket_fd);
    }
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;
};

// Fills the user part of a state the way the setup API does: the name, the
// password zero-padded to 20 bytes with key length 20 (0 without one).
inline void set_user(RMCPp_SetupState &s, const std::string &name, const char *password)
{
    std::memset(s.user_name, 0, sizeof s.user_name);
    std::memcpy(s.user_name, name.data(), name.size());
    s.user_name_length = static_cast<uint8_t>(name.size());
    std::memset(s.user_password, 0, sizeof s.user_password);
    s.user_key_length = 0;
    if (password) {
        std::memcpy(s.user_password, password, std::strlen(password));
        s.user_key_length = 20;
    }
}

inline Bytes bytes_of(const uint8_t *p, size_t n) { return Bytes(p, p + n); }

}  // namespace rakptest
