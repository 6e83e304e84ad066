// A scripted managed system for cipher suites 15, 16 and 17
// (RAKP-HMAC-SHA256; HMAC-SHA256-128; AES-CBC-128) that answers the presence
// ping, Get Channel Authentication Capabilities, Open Session, RAKP 1 and
// RAKP 3 with fixed values of its own and computes every code and key itself
// with OpenSSL: the RAKP 2 code, the RAKP 3 code it expects, the SIK, the
// RAKP 4 integrity check value, K1 and K2. It opens the console's session
// packets with its own K1 and K2 and seals its answers the same way.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"
#include "wire.h"

namespace sha256test {

using rakptest::cat;
using rakptest::first;
using rakptest::le32;
using rakptest::padded;
using rakptest::sequence16;
using rakptest::text;
using testkit::Bytes;
using Lines = std::vector<std::string>;

constexpr uint32_t kBmcAddress = 0x7F000211;  // 127.0.2.17
constexpr uint32_t kBmcSid = 0x5A6B7C8D;      // the managed system's session ID
constexpr uint8_t kRole = 4;                  // Administrator

// ------------------------------------------------------------ HMAC-SHA256

// One-shot HMAC-SHA256 with OpenSSL, as RFC 2104 and RFC 4634 define it.
inline Bytes hmac_sha256(const Bytes &key, const Bytes &data)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    static const unsigned char no_key = 0;
    HMAC(EVP_sha256(), key.empty() ? &no_key : key.data(), static_cast<int>(key.size()), data.data(), data.size(),
         out, &n);
    return Bytes(out, out + n);
}

inline Bytes role_and_name(uint8_t role, const std::string &name)
{
    return cat({{role, static_cast<uint8_t>(name.size())}, text(name)});
}

// RAKP 2 key exchange code: HMAC(Kuid, SIDm | SIDc | Rm | Rc | GUIDc | role | N | name).
inline Bytes rakp2_code(const Bytes &kuid, uint32_t console_sid, const Bytes &rm, const Bytes &rc, const Bytes &guid,
                 uint8_t role, const std::string &name)
{
    return hmac_sha256(kuid, cat({le32(console_sid), le32(kBmcSid), rm, rc, guid, role_and_name(role, name)}));
}

// RAKP 3 key exchange code: HMAC(Kuid, Rc | SIDm | role | N | name).
inline Bytes rakp3_code(const Bytes &kuid, const Bytes &rc, uint32_t console_sid, uint8_t role, const std::string &name)
{
    return hmac_sha256(kuid, cat({rc, le32(console_sid), role_and_name(role, name)}));
}

// SIK: HMAC(Kg, or Kuid while no Kg is set, Rm | Rc | role | N | name).
inline Bytes sik_of(const Bytes &key, const Bytes &rm, const Bytes &rc, uint8_t role, const std::string &name)
{
    return hmac_sha256(key, cat({rm, rc, role_and_name(role, name)}));
}

// RAKP 4 integrity check value: the first 16 bytes of HMAC(SIK, Rm | SIDc | GUIDc).
inline Bytes rakp4_icv(const Bytes &sik, const Bytes &rm, const Bytes &guid)
{
    return first(hmac_sha256(sik, cat({rm, le32(kBmcSid), guid})), 16);
}

// K1 and K2: HMAC(SIK, twenty 0x01 bytes) and HMAC(SIK, twenty 0x02 bytes).
inline Bytes k1_of(const Bytes &sik) { return hmac_sha256(sik, Bytes(20, 0x01)); }
inline Bytes k2_of(const Bytes &sik) { return hmac_sha256(sik, Bytes(20, 0x02)); }

// ------------------------------------------------- session packets, by hand

// The payload type bits a suite protects its session packets with.
inline uint8_t protection_of(int suite)
{
    return static_cast<uint8_t>((suite >= 16 ? 0x40 : 0) | (suite == 17 ? 0x80 : 0));
}

// Appends integrity pad, pad length, next header and the 16-byte
// HMAC-SHA256-128 code (keyed with K1) over everything from the
// authentication type byte on.
inline void add_trailer(Bytes &d, const Bytes &k1)
{
    const size_t pad = (4 - (d.size() - 4 + 2) % 4) % 4;
    d.insert(d.end(), pad, 0xFF);
    d.push_back(static_cast<uint8_t>(pad));
    d.push_back(0x07);
    const Bytes code = hmac_sha256(k1, Bytes(d.begin() + 4, d.end()));
    d.insert(d.end(), code.begin(), code.begin() + 16);
}

// A whole RMCP+ session datagram carrying an IPMI message: encrypted with
// the first 16 bytes of K2 when payload_type has 0x80, with a trailer when
// it has 0x40.
inline Bytes seal(uint8_t payload_type, uint32_t session_id, uint32_t sequence, const Bytes &message, const Bytes &k1,
           const Bytes &k2, const Bytes &iv)
{
    const Bytes payload = (payload_type & 0x80) ? packettest::confidentiality_payload(k2, iv, message) : message;
    Bytes d(16);
    rmcpp::wire::Writer w(d.data(), d.size());
    w.u8(0x06).u8(0x00).u8(0xFF).u8(0x07).u8(0x06).u8(payload_type).u32le(session_id).u32le(sequence);
    w.u16le(static_cast<uint16_t>(payload.size()));
    d.insert(d.end(), payload.begin(), payload.end());
    if (payload_type & 0x40) add_trailer(d, k1);
    return d;
}

// What the managed system reads from one of the console's session packets.
struct Opened {
    uint8_t payload_type = 0;
    uint32_t session_id = 0;
    uint32_t sequence = 0;
    Bytes message;
};

// Opens a session datagram: the trailer's pad, next header and code must be
// right to the last bit, the confidentiality pad 1..p and p likewise.
// Nothing when any of them is wrong.
inline std::optional<Opened> open_packet(const Bytes &d, const Bytes &k1, const Bytes &k2)
{
    rmcpp::wire::Reader r(d.data(), d.size());
    Opened o;
    r.skip(4);
    if (r.u8() != 0x06) return std::nullopt;
    o.payload_type = r.u8();
    o.session_id = r.u32le();
    o.sequence = r.u32le();
    const size_t length = r.u16le();
    Bytes payload(length);
    if (!r.bytes(payload.data(), length)) return std::nullopt;
    if (o.payload_type & 0x40) {
        Bytes expected(d.begin(), d.begin() + static_cast<long>(16 + length));
        add_trailer(expected, k1);
        if (expected != d) return std::nullopt;
    } else if (r.remaining() != 0) {
        return std::nullopt;
    }
    if (!(o.payload_type & 0x80)) {
        o.message = payload;
        return o;
    }
    if (payload.size() < 32 || payload.size() % 16 != 0) return std::nullopt;
    const Bytes iv(payload.begin(), payload.begin() + 16);
    const Bytes clear = packettest::aes_cbc(first(k2, 16), iv, Bytes(payload.begin() + 16, payload.end()), false);
    const size_t pad = clear.back();
    if (pad > 15) return std::nullopt;
    const size_t n = clear.size() - pad - 1;
    for (size_t i = 1; i <= pad; ++i)
        if (clear[n + i - 1] != i) return std::nullopt;
    o.message.assign(clear.begin(), clear.begin() + static_cast<long>(n));
    return o;
}

// ------------------------------------------------------ the scripted peer

// A UDP socket on address:623 (host byte order) whose thread hands every
// datagram to the handler and sends what it returns back to the sender.
class Peer {
public:
    using Handler = std::function<std::vector<Bytes>(const Bytes &)>;

    explicit Peer(Handler handler, uint32_t address = kBmcAddress) : handler_(std::move(handler))
    {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        if (fd_ < 0) throw std::runtime_error("socket");
        int one = 1;
        ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(623);
        a.sin_addr.s_addr = htonl(address);
        if (::bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) {
            ::close(fd_);
            throw std::runtime_error("bind " + std::to_string(address >> 24) + "." +
                                     std::to_string((address >> 16) & 0xFF) + "." +
                                     std::to_string((address >> 8) & 0xFF) + "." + std::to_string(address & 0xFF) +
                                     ":623");
        }
        thread_ = std::thread([this] { run(); });
    }
    ~Peer()
    {
        stop();
        ::close(fd_);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    // Ends the peer once every datagram already received has been handled.
    void stop()
    {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
    }

    int received() const { return received_; }

private:
    void run()
    {
        for (;;) {
            const bool stopping = stop_;
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, stopping ? 0 : 20) <= 0) {
                if (stopping) return;
                continue;
            }
            Bytes buf(65536);
            sockaddr_in sender{};
            socklen_t len = sizeof sender;
            const ssize_t n = ::recvfrom(fd_, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr *>(&sender), &len);
            if (n < 0) continue;
            buf.resize(static_cast<size_t>(n));
            ++received_;
            for (const auto &reply : handler_(buf))
                ::sendto(fd_, reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr *>(&sender), len);
        }
    }

    int fd_ = -1;
    Handler handler_;
    std::atomic<int> received_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// ------------------------------------------------------ the managed system

// How the managed system answers one session request.
enum class Answer {
    Sealed,           // protected as the request was
    CorruptThenGood,  // first two copies whose code is one bit off (first and last code byte), then the right one
    CorruptOnly,      // only copies whose code is one bit off
};

inline const Bytes kDeviceId = {0x20, 0x81, 0x05, 0x02, 0x02, 0xBF, 0x57, 0x01, 0x00, 0x34, 0x12, 0x01, 0x00, 0x00, 0x00};
// What a corrupted answer carries instead: a device that is not this one.
inline const Bytes kOtherDeviceId = {0x99, 0x81, 0x05, 0x02, 0x02, 0xBF, 0x57, 0x01, 0x00, 0x34, 0x12, 0x01, 0x00, 0x00, 0x00};

struct Sha256Bmc {
    // configuration
    int suite = 17;
    std::optional<std::string> password = "secret";  // nullopt: no user key
    std::optional<std::string> kg;                   // set: the channel reports Kg set and keys the SIK with it
    bool answer_ping = true;
    int spoil_rakp2_byte = -1;  // code byte whose lowest bit is flipped
    int spoil_rakp4_byte = -1;  // integrity check value byte whose lowest bit is flipped
    Answer device_id_answer = Answer::Sealed;
    Answer close_answer = Answer::Sealed;

    // fixed values of its own
    const Bytes rc = sequence16(0xA0);
    const Bytes guid = sequence16(0x10);

    // seen and derived
    int pings = 0;
    int capabilities_requests = 0;
    uint8_t proposed[3] = {0xFF, 0xFF, 0xFF};
    uint8_t open_session_role = 0xFF;
    uint32_t console_sid = 0;
    Bytes rm;
    uint8_t rakp_role = 0xFF;
    std::string name;
    Bytes rakp3;
    Bytes sik, k1, k2;
    std::vector<Bytes> session_datagrams;
    std::vector<std::optional<Opened>> session_requests;
    uint32_t sequence = 1;

    Bytes kuid() const { return password ? padded(*password, 20) : Bytes{}; }
    uint8_t auth_alg() const { return 3; }
    uint8_t integrity_alg() const { return suite >= 16 ? 4 : 0; }
    uint8_t confidentiality_alg() const { return suite == 17 ? 1 : 0; }

    std::vector<Bytes> answer(const Bytes &d)
    {
        rmcpp::wire::Reader r(d.data(), d.size());
        r.skip(3);
        if (r.u8() == 0x06) {
            ++pings;
            return answer_ping ? std::vector<Bytes>{rakptest::presence_pong()} : std::vector<Bytes>{};
        }
        if (r.u8() == 0x00) return capabilities(d);
        const uint8_t type = r.u8();
        switch (type) {
        case 0x10: return open_session(d);
        case 0x12: return rakp2(d);
        case 0x14: return rakp4(d);
        default: break;
        }
        if ((type & 0x3F) == 0x00) return session_packet(d);
        return {};
    }

    // Get Channel Authentication Capabilities outside a session: IPMI v2.0
    // extended capabilities, RMCP+ only, Kg set when the channel has one.
    std::vector<Bytes> capabilities(const Bytes &d)
    {
        ++capabilities_requests;
        rmcpp::wire::Reader r(d.data() + 13, d.size() - 13);
        Bytes request(r.u8());
        if (!r.bytes(request.data(), request.size()) || request.size() < 7) return {};
        const Bytes data = rakptest::auth_capa_data(kg ? 0x20 : 0x00);
        return {rakptest::v15({}, packettest::response_to(request, data[0], Bytes(data.begin() + 1, data.end())))};
    }

    std::vector<Bytes> open_session(const Bytes &d)
    {
        rmcpp::wire::Reader r(d.data() + 16, d.size() - 16);
        const uint8_t tag = r.u8();
        open_session_role = r.u8();
        r.skip(2);
        console_sid = r.u32le();
        for (auto &a : proposed) {
            r.skip(4);
            a = r.u8();
            r.skip(3);
        }
        rakptest::OpenSessionResponse resp;
        resp.tag = tag;
        resp.privilege = open_session_role == 0 ? kRole : open_session_role;
        resp.console_sid = console_sid;
        resp.bmc_sid = kBmcSid;
        resp.auth.algorithm = auth_alg();
        resp.integrity.algorithm = integrity_alg();
        resp.confidentiality.algorithm = confidentiality_alg();
        return {resp.datagram()};
    }

    std::vector<Bytes> rakp2(const Bytes &d)
    {
        rmcpp::wire::Reader r(d.data() + 16, d.size() - 16);
        const uint8_t tag = r.u8();
        r.skip(3 + 4);
        rm.resize(16);
        r.bytes(rm.data(), 16);
        rakp_role = r.u8();
        r.skip(2);
        Bytes n(r.u8());
        r.bytes(n.data(), n.size());
        name.assign(n.begin(), n.end());
        rakptest::Rakp2 m;
        m.tag = tag;
        m.console_sid = console_sid;
        m.rc = rc;
        m.guid = guid;
        m.code = rakp2_code(kuid(), console_sid, rm, rc, guid, rakp_role, name);
        if (spoil_rakp2_byte >= 0) m.code.at(static_cast<size_t>(spoil_rakp2_byte)) ^= 0x01;
        return {m.datagram()};
    }

    std::vector<Bytes> rakp4(const Bytes &d)
    {
        rakp3 = d;
        if (d.size() < 18 || d[17] != 0) return {};
        sik = sik_of(kg ? padded(*kg, 20) : kuid(), rm, rc, rakp_role, name);
        k1 = k1_of(sik);
        k2 = k2_of(sik);
        rakptest::Rakp4 m;
        m.tag = d[16];
        m.console_sid = console_sid;
        m.icv = rakp4_icv(sik, rm, guid);
        if (spoil_rakp4_byte >= 0) m.icv.at(static_cast<size_t>(spoil_rakp4_byte)) ^= 0x01;
        return {m.datagram()};
    }

    Bytes sealed(uint8_t type, const Bytes &message)
    {
        const uint32_t seq = sequence++;
        return seal(type, console_sid, seq, message, k1, k2, sequence16(static_cast<uint8_t>(0x40 + seq)));
    }

    // The answer with its code's lowest bit flipped in code byte `at`
    // (0 first, 15 last).
    Bytes corrupted(uint8_t type, const Bytes &message, size_t at)
    {
        Bytes d = sealed(type, message);
        d.at(d.size() - 16 + at) ^= 0x01;
        return d;
    }

    std::vector<Bytes> session_packet(const Bytes &d)
    {
        session_datagrams.push_back(d);
        const auto o = open_packet(d, k1, k2);
        session_requests.push_back(o);
        if (!o || o->session_id != kBmcSid || o->message.size() < 7) return {};
        const uint8_t type = o->payload_type & 0xC0;
        const uint8_t netfn = o->message[1] >> 2, command = o->message[5];
        if (netfn != 0x06) return {sealed(type, packettest::response_to(o->message, 0xC1))};
        if (command == 0x3B && o->message.size() == 8)  // Set Session Privilege Level
            return {sealed(type, packettest::response_to(o->message, 0x00, {static_cast<uint8_t>((o->message[6] & 0x0F) ? (o->message[6] & 0x0F) : kRole)}))};
        if (command != 0x01 && command != 0x3C) return {sealed(type, packettest::response_to(o->message, 0xC1))};
        const bool close = command == 0x3C;
        const Answer how = close ? close_answer : device_id_answer;
        const Bytes good = packettest::response_to(o->message, 0x00, close ? Bytes{} : kDeviceId);
        const Bytes other = packettest::response_to(o->message, 0x00, close ? Bytes{} : kOtherDeviceId);
        switch (how) {
        case Answer::Sealed: return {sealed(type, good)};
        case Answer::CorruptThenGood:
            return {corrupted(type, other, 0), corrupted(type, other, 15), sealed(type, good)};
        case Answer::CorruptOnly: return {corrupted(type, other, 0), corrupted(type, other, 15)};
        }
        return {};
    }
};

}  // namespace sha256test
