// Helpers shared by the RMCP+ packet and message-exchange tests: sessions
// made by hand, and RMCP+ session datagrams built and opened independently
// of the library, with HMAC-SHA1 and AES-128-CBC straight from OpenSSL.
#pragma once

#include <arpa/inet.h>
#include <openssl/evp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "RAKP_testkit.h"

namespace packettest {

using rakptest::cat;
using rakptest::hmac_sha1;
using rakptest::le32;
using testkit::Bytes;

constexpr uint32_t kConsoleSessionId = 0xA1B2C3D4;
constexpr uint32_t kBmcSessionId = 0x11223344;

// The simulator's Get Device ID response data, as it answers by default.
inline const Bytes kSimulatorDeviceId{0x20, 0x01, 0x02, 0x15, 0x02, 0xBF, 0x5A, 0x5A, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00};

// The local UDP port an IPv4 socket is bound to; 0 when it cannot be read.
inline uint16_t local_port_of(int fd)
{
    sockaddr_in a{};
    socklen_t n = sizeof a;
    if (::getsockname(fd, reinterpret_cast<sockaddr *>(&a), &n) != 0) return 0;
    return ntohs(a.sin_port);
}

inline Bytes test_sik()
{
    Bytes b(20);
    for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(0x30 + 7 * i);
    return b;
}
inline Bytes test_k2() { return rakptest::k2_of(test_sik()); }
// The AES-128 key: the first 16 bytes of K2.
inline Bytes aes_key(const Bytes &k2 = test_k2()) { return Bytes(k2.begin(), k2.begin() + 16); }

inline uint8_t integrity_of(int suite) { return suite >= 2 ? 1 : 0; }
inline uint8_t confidentiality_of(int suite) { return suite == 3 ? 1 : 0; }

// A session as establishment leaves it: both outbound counters at 1, the
// inbound highest numbers 0 with full windows, no packet sent yet.
inline RMCPp_Session *make_session(int suite, int fd = -1)
{
    auto *s = static_cast<RMCPp_Session *>(std::calloc(1, sizeof(RMCPp_Session)));
    s->integrity_alg = integrity_of(suite);
    s->confidentiality_alg = confidentiality_of(suite);
    s->console_session_id = kConsoleSessionId;
    s->bmc_session_id = kBmcSessionId;
    s->send_seq_auth = 1;
    s->send_seq_unauth = 1;
    s->recv_window_auth = 0xFFFF;
    s->recv_window_unauth = 0xFFFF;
    const Bytes sik = test_sik(), k2 = test_k2();
    std::memcpy(s->sik, sik.data(), 20);
    std::memcpy(s->cipher_key, k2.data(), 20);
    s->socket_fd = fd;
    return s;
}

// A UDP socket connected to 127.0.0.last:port from an ephemeral port.
inline int connected_socket(uint8_t last, uint16_t port = 623)
{
    int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(testkit::loopback(last));
    if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0)
        throw std::runtime_error("connect");
    return fd;
}

// AES-128-CBC without padding, in OpenSSL.
inline Bytes aes_cbc(const Bytes &key, const Bytes &iv, const Bytes &data, bool encrypt)
{
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    EVP_CipherInit_ex(ctx, EVP_aes_128_cbc(), nullptr, key.data(), iv.data(), encrypt ? 1 : 0);
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    Bytes out(data.size() + 16);
    int n = 0, m = 0;
    EVP_CipherUpdate(ctx, out.data(), &n, data.data(), static_cast<int>(data.size()));
    EVP_CipherFinal_ex(ctx, out.data() + n, &m);
    EVP_CIPHER_CTX_free(ctx);
    out.resize(static_cast<size_t>(n + m));
    return out;
}

// The confidentiality payload: IV, then data, pad 1..p and p encrypted.
inline Bytes confidentiality_payload(const Bytes &k2, const Bytes &iv, const Bytes &message)
{
    const size_t pad = (16 - (message.size() + 1) % 16) % 16;
    Bytes clear = message;
    for (size_t i = 1; i <= pad; ++i) clear.push_back(static_cast<uint8_t>(i));
    clear.push_back(static_cast<uint8_t>(pad));
    return cat({iv, aes_cbc(aes_key(k2), iv, clear, true)});
}

// Appends the integrity pad, pad length, next header and the 12-byte code
// over everything from the authentication type byte on.
inline void add_trailer(Bytes &d, const Bytes &sik)
{
    const size_t pad = (4 - (d.size() - 4 + 2) % 4) % 4;
    d.insert(d.end(), pad, 0xFF);
    d.push_back(static_cast<uint8_t>(pad));
    d.push_back(0x07);
    const Bytes code = hmac_sha1(sik, Bytes(d.begin() + 4, d.end()));
    d.insert(d.end(), code.begin(), code.begin() + 12);
}

// A whole RMCP+ session datagram: encrypted when payload_type has 0x80 (with
// the given IV), with a trailer when it has 0x40.
inline Bytes session_datagram(uint8_t payload_type, uint32_t session_id, uint32_t sequence, const Bytes &message,
                              const Bytes &iv, const Bytes &sik = test_sik(), const Bytes &k2 = test_k2())
{
    const Bytes payload = (payload_type & 0x80) ? confidentiality_payload(k2, iv, message) : message;
    Bytes d = cat({{0x06, 0x00, 0xFF, 0x07, 0x06, payload_type}, le32(session_id), le32(sequence),
                   {static_cast<uint8_t>(payload.size()), static_cast<uint8_t>(payload.size() >> 8)}, payload});
    if (payload_type & 0x40) add_trailer(d, sik);
    return d;
}

inline uint8_t protection_of(int suite)
{
    return static_cast<uint8_t>((integrity_of(suite) ? 0x40 : 0) | (confidentiality_of(suite) ? 0x80 : 0));
}

inline uint32_t get_le32(const Bytes &b, size_t at)
{
    return static_cast<uint32_t>(b.at(at)) | (static_cast<uint32_t>(b.at(at + 1)) << 8) |
           (static_cast<uint32_t>(b.at(at + 2)) << 16) | (static_cast<uint32_t>(b.at(at + 3)) << 24);
}

// What a managed system reads from one of the library's datagrams.
struct Opened {
    uint8_t payload_type = 0;
    uint32_t session_id = 0;
    uint32_t sequence = 0;
    Bytes iv;
    Bytes message;
};

// Opens a datagram, verifying the trailer's code and the pads; nothing when
// any of them is wrong.
inline std::optional<Opened> open_datagram(const Bytes &d, const Bytes &sik = test_sik(), const Bytes &k2 = test_k2())
{
    if (d.size() < 16) return std::nullopt;
    Opened o;
    o.payload_type = d[5];
    o.session_id = get_le32(d, 6);
    o.sequence = get_le32(d, 10);
    const size_t length = d[14] | (d[15] << 8);
    if (16 + length > d.size()) return std::nullopt;
    Bytes payload(d.begin() + 16, d.begin() + 16 + static_cast<long>(length));
    if (o.payload_type & 0x40) {
        Bytes expected(d.begin(), d.begin() + 16 + static_cast<long>(length));
        add_trailer(expected, sik);
        if (expected != d) return std::nullopt;
    } else if (d.size() != 16 + length) {
        return std::nullopt;
    }
    if (o.payload_type & 0x80) {
        if (payload.size() < 32 || payload.size() % 16) return std::nullopt;
        o.iv.assign(payload.begin(), payload.begin() + 16);
        Bytes clear = aes_cbc(aes_key(k2), o.iv, Bytes(payload.begin() + 16, payload.end()),
                              false);
        const size_t pad = clear.back();
        if (pad > 15) return std::nullopt;
        const size_t n = clear.size() - pad - 1;
        for (size_t i = 1; i <= pad; ++i)
            if (clear[n + i - 1] != i) return std::nullopt;
        o.message.assign(clear.begin(), clear.begin() + static_cast<long>(n));
    } else {
        o.message = payload;
    }
    return o;
}

// The response to an IPMI request: addresses swapped, netFn + 1, the
// completion code first in the data.
inline Bytes response_to(const Bytes &request, uint8_t completion_code, const Bytes &data = {})
{
    const uint8_t netfn_lun = static_cast<uint8_t>((((request.at(1) >> 2) + 1) << 2) | (request.at(4) & 3));
    const uint8_t seq_lun = static_cast<uint8_t>((request.at(4) & 0xFC) | (request.at(1) & 3));
    return rakptest::ipmi_message(request.at(3), netfn_lun, request.at(0), seq_lun, request.at(5),
                                  cat({{completion_code}, data}));
}

// An IPMI request of netFn/command with data, from 0x81 to the BMC at 0x20.
inline Bytes request_of(uint8_t netfn, uint8_t cmd, uint8_t seq, const Bytes &data = {})
{
    return rakptest::ipmi_message(0x20, static_cast<uint8_t>(netfn << 2), 0x81, static_cast<uint8_t>(seq << 2), cmd,
                                  data);
}

inline Bytes fixed_iv(uint8_t start) { return rakptest::sequence16(start); }

}  // namespace packettest
