// The console side, written by hand for the simulator's own tests: a UDP
// socket, the establishment requests built byte by byte, and HMAC-SHA1 and
// AES-128-CBC straight from OpenSSL.
#pragma once

#include <arpa/inet.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace simtest {

using Bytes = std::vector<uint8_t>;

class Console {
public:
    explicit Console(const std::string &address, uint16_t port = 623)
    {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        ::inet_pton(AF_INET, address.c_str(), &a.sin_addr);
        if (fd_ < 0 || ::connect(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0)
            throw std::runtime_error("console socket");
    }
    ~Console() { ::close(fd_); }

    // The address and port this console sends from.
    sockaddr_in local() const
    {
        sockaddr_in a{};
        socklen_t n = sizeof a;
        ::getsockname(fd_, reinterpret_cast<sockaddr *>(&a), &n);
        return a;
    }
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    void send(const Bytes &b)
    {
        if (::send(fd_, b.data(), b.size(), 0) != static_cast<ssize_t>(b.size())) throw std::runtime_error("send");
    }

    std::optional<Bytes> receive(int timeout_ms = 1000)
    {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, timeout_ms) <= 0) return std::nullopt;
        Bytes b(65536);
        ssize_t n = ::recv(fd_, b.data(), b.size(), 0);
        if (n < 0) return std::nullopt;
        b.resize(static_cast<size_t>(n));
        return b;
    }

    // Sends and returns the first answer (empty when none came).
    Bytes exchange(const Bytes &b, int timeout_ms = 1000)
    {
        send(b);
        auto r = receive(timeout_ms);
        return r ? *r : Bytes{};
    }

private:
    int fd_ = -1;
};

inline void le32(Bytes &b, uint32_t v)
{
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

inline uint32_t get_le32(const Bytes &b, size_t at)
{
    return static_cast<uint32_t>(b.at(at)) | (static_cast<uint32_t>(b.at(at + 1)) << 8) |
           (static_cast<uint32_t>(b.at(at + 2)) << 16) | (static_cast<uint32_t>(b.at(at + 3)) << 24);
}

inline uint8_t sum_neg(const Bytes &b, size_t from, size_t to)
{
    uint8_t s = 0;
    for (size_t i = from; i < to; ++i) s = static_cast<uint8_t>(s + b[i]);
    return static_cast<uint8_t>(-s);
}

inline Bytes cat(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

template <size_t N>
Bytes bytes(const std::array<uint8_t, N> &a)
{
    return Bytes(a.begin(), a.end());
}
inline Bytes bytes(const Bytes &a) { return a; }

inline Bytes text(const std::string &s) { return Bytes(s.begin(), s.end()); }

inline Bytes hmac_sha1(const Bytes &key, const Bytes &data)
{
    Bytes out(20);
    unsigned int n = 0;
    static const uint8_t empty = 0;
    HMAC(EVP_sha1(), key.empty() ? &empty : key.data(), static_cast<int>(key.size()),
         data.empty() ? &empty : data.data(), data.size(), out.data(), &n);
    return out;
}

inline Bytes pad20(const Bytes &k)
{
    Bytes p = k;
    p.resize(20, 0x00);
    return p;
}

inline Bytes aes_cbc(const Bytes &key16, const Bytes &iv, const Bytes &data, bool encrypt)
{
    Bytes out(data.size() + 16);
    int n = 0, m = 0;
    EVP_CIPHER_CTX *c = EVP_CIPHER_CTX_new();
    EVP_CipherInit_ex(c, EVP_aes_128_cbc(), nullptr, key16.data(), iv.data(), encrypt ? 1 : 0);
    EVP_CIPHER_CTX_set_padding(c, 0);
    EVP_CipherUpdate(c, out.data(), &n, data.data(), static_cast<int>(data.size()));
    EVP_CipherFinal_ex(c, out.data() + n, &m);
    EVP_CIPHER_CTX_free(c);
    out.resize(static_cast<size_t>(n + m));
    return out;
}

// ------------------------------------------------------------------ requests

inline Bytes rmcp_ipmi() { return {0x06, 0x00, 0xFF, 0x07}; }

// Get Channel Authentication Capabilities over an IPMI v1.5 session, 23 bytes.
inline Bytes capabilities_request(uint8_t privilege, uint8_t rq_addr = 0x81, uint8_t rs_addr = 0x20)
{
    Bytes b = rmcp_ipmi();
    b.push_back(0x00);
    le32(b, 0);
    le32(b, 0);
    b.push_back(9);
    b.push_back(rs_addr);
    b.push_back(0x06 << 2);
    b.push_back(sum_neg(b, 14, 16));
    b.push_back(rq_addr);
    b.push_back(0x01 << 2);
    b.push_back(0x38);
    b.push_back(0x8E);
    b.push_back(privilege);
    b.push_back(sum_neg(b, 17, 22));
    return b;
}

inline Bytes presession(uint8_t type, const Bytes &payload)
{
    Bytes b = rmcp_ipmi();
    b.push_back(0x06);
    b.push_back(type);
    le32(b, 0);
    le32(b, 0);
    b.push_back(static_cast<uint8_t>(payload.size()));
    b.push_back(static_cast<uint8_t>(payload.size() >> 8));
    return cat(b, payload);
}

inline Bytes open_session_request(uint8_t tag, uint8_t privilege, uint32_t console_id, uint8_t auth,
                                  uint8_t integrity, uint8_t confidentiality)
{
    Bytes p{tag, privilege, 0, 0};
    le32(p, console_id);
    p = cat(p, {0x00, 0, 0, 8, auth, 0, 0, 0});
    p = cat(p, {0x01, 0, 0, 8, integrity, 0, 0, 0});
    p = cat(p, {0x02, 0, 0, 8, confidentiality, 0, 0, 0});
    return presession(0x10, p);
}

inline Bytes rakp1_request(uint8_t tag, uint32_t bmc_id, const Bytes &rm, uint8_t role, const std::string &name)
{
    Bytes p{tag, 0, 0, 0};
    le32(p, bmc_id);
    p = cat(p, rm);
    p = cat(p, {role, 0, 0, static_cast<uint8_t>(name.size())});
    return presession(0x12, cat(p, text(name)));
}

inline Bytes rakp3_request(uint8_t tag, uint8_t status, uint32_t bmc_id, const Bytes &code)
{
    Bytes p{tag, status, 0, 0};
    le32(p, bmc_id);
    return presession(0x14, cat(p, code));
}

constexpr std::array<std::array<uint8_t, 3>, 4> kSuites{{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {1, 1, 1}}};

// Everything a console knows after a successful establishment.
struct Established {
    uint32_t console_id = 0, bmc_id = 0;
    uint8_t granted = 0, role = 0;
    Bytes rm, rc, guid, sik, k2;
    Bytes k1;  // key of the integrity code: the SIK itself, or K1 under standard keys
    Bytes open_response, rakp2, rakp4;
};

// Runs Open Session and RAKP 1 to 4 by hand; the keys are computed here
// from the user's password (and Kg, when given). Standard keys: K1 over
// twenty 0x01 bytes keys the integrity code and K2 is made over twenty 0x02
// bytes; otherwise the SIK keys the code and K2 is made over sixty-four.
inline std::optional<Established> establish(Console &c, int suite, const std::string &name,
                                            const std::string &password, uint8_t privilege = 4,
                                            bool name_only = false, const Bytes &kg = {},
                                            uint32_t console_id = 0xC0DE0001, bool standard_keys = false)
{
    Established e;
    e.console_id = console_id;
    auto alg = kSuites.at(static_cast<size_t>(suite));
    e.open_response = c.exchange(open_session_request(1, privilege, console_id, alg[0], alg[1], alg[2]));
    if (e.open_response.size() != 52 || e.open_response[17] != 0) return std::nullopt;
    e.granted = e.open_response[18];
    e.bmc_id = get_le32(e.open_response, 24);
    e.rm = Bytes(16);
    for (size_t i = 0; i < 16; ++i) e.rm[i] = static_cast<uint8_t>(0x30 + i);
    e.role = static_cast<uint8_t>((privilege ? privilege : e.granted) | (name_only ? 0x10 : 0));
    e.rakp2 = c.exchange(rakp1_request(2, e.bmc_id, e.rm, e.role, name));
    if (e.rakp2.size() < 56 || e.rakp2[17] != 0) return std::nullopt;
    e.rc = Bytes(e.rakp2.begin() + 24, e.rakp2.begin() + 40);
    e.guid = Bytes(e.rakp2.begin() + 40, e.rakp2.begin() + 56);
    Bytes key = pad20(text(password));
    Bytes user = cat({e.role, static_cast<uint8_t>(name.size())}, text(name));
    Bytes code3;
    if (alg[0] == 1) {
        Bytes in = e.rc;
        le32(in, console_id);
        code3 = hmac_sha1(key, cat(in, user));
        bool kg_set = false;
        for (uint8_t b : kg) kg_set |= b != 0;
        e.sik = hmac_sha1(kg_set ? pad20(kg) : key, cat(cat(e.rm, e.rc), user));
    } else {
        e.sik = Bytes(20, 0);
    }
    e.k1 = standard_keys ? hmac_sha1(e.sik, Bytes(20, 0x01)) : e.sik;
    e.k2 = alg[2] == 1 ? hmac_sha1(e.sik, Bytes(standard_keys ? 20 : 64, 0x02)) : Bytes(20, 0);
    e.rakp4 = c.exchange(rakp3_request(3, 0, e.bmc_id, code3));
    if (e.rakp4.size() < 24 || e.rakp4[17] != 0) return std::nullopt;
    return e;
}

// ------------------------------------------------------------------ sessions

// An IPMI request from rqAddr 0x81 to the BMC at 0x20.
inline Bytes ipmi_request(uint8_t netfn, uint8_t cmd, const Bytes &data = {}, uint8_t rq_seq = 1)
{
    Bytes m{0x20, static_cast<uint8_t>(netfn << 2), 0, 0x81, static_cast<uint8_t>(rq_seq << 2), cmd};
    m[2] = sum_neg(m, 0, 2);
    m = cat(m, data);
    m.push_back(sum_neg(m, 3, m.size()));
    return m;
}

// The response the BMC at 0x20 owes that request.
inline Bytes ipmi_response(uint8_t netfn, uint8_t cmd, uint8_t cc, const Bytes &data = {}, uint8_t rq_seq = 1)
{
    Bytes m{0x81, static_cast<uint8_t>((netfn + 1) << 2), 0, 0x20, static_cast<uint8_t>(rq_seq << 2), cmd, cc};
    m[2] = sum_neg(m, 0, 2);
    m = cat(m, data);
    m.push_back(sum_neg(m, 3, m.size()));
    return m;
}

inline Bytes first16(const Bytes &k) { return Bytes(k.begin(), k.begin() + 16); }

// A whole RMCP+ session datagram: payload type bits 0x40 (authenticated)
// and 0x80 (encrypted), the integrity trailer keyed with k1 and the
// confidentiality payload keyed with the first 16 bytes of K2.
inline Bytes session_packet(const Established &e, uint8_t bits, uint32_t seq, const Bytes &message,
                            const Bytes &iv = Bytes(16, 0x5C), uint32_t session_id = 0)
{
    Bytes payload = message;
    if (bits & 0x80) {
        size_t p = (16 - (message.size() + 1) % 16) % 16;
        Bytes plain = message;
        for (size_t i = 1; i <= p; ++i) plain.push_back(static_cast<uint8_t>(i));
        plain.push_back(static_cast<uint8_t>(p));
        payload = cat(iv, aes_cbc(first16(e.k2), iv, plain, true));
    }
    Bytes b = rmcp_ipmi();
    b.push_back(0x06);
    b.push_back(bits);
    le32(b, session_id ? session_id : e.bmc_id);
    le32(b, seq);
    b.push_back(static_cast<uint8_t>(payload.size()));
    b.push_back(static_cast<uint8_t>(payload.size() >> 8));
    b = cat(b, payload);
    if (bits & 0x40) {
        size_t q = (4 - (12 + payload.size() + 2) % 4) % 4;
        b.insert(b.end(), q, 0xFF);
        b.push_back(static_cast<uint8_t>(q));
        b.push_back(0x07);
        Bytes code = hmac_sha1(e.k1, Bytes(b.begin() + 4, b.end()));
        b.insert(b.end(), code.begin(), code.begin() + 12);
    }
    return b;
}

// A session datagram from the BMC taken apart and checked here.
struct Opened {
    uint8_t bits = 0;
    uint32_t session_id = 0, seq = 0;
    uint16_t length = 0;
    bool code_ok = false;            // integrity code as computed here
    Bytes trailer;                   // pad, pad length, next header (authenticated)
    Bytes plain;                     // the decrypted confidentiality payload after the IV
    Bytes message;                   // the IPMI message, when the pad is right
};

inline Opened open_packet(const Established &e, const Bytes &d)
{
    Opened o;
    if (d.size() < 16) return o;
    o.bits = d[5];
    o.session_id = get_le32(d, 6);
    o.seq = get_le32(d, 10);
    o.length = static_cast<uint16_t>(d[14] | (d[15] << 8));
    size_t end = 16 + o.length;
    if (end > d.size()) return o;
    Bytes payload(d.begin() + 16, d.begin() + static_cast<long>(end));
    if (o.bits & 0x40) {
        if (d.size() < end + 14) return o;
        o.trailer.assign(d.begin() + static_cast<long>(end), d.end() - 12);
        Bytes code = hmac_sha1(e.k1, Bytes(d.begin() + 4, d.end() - 12));
        o.code_ok = std::equal(code.begin(), code.begin() + 12, d.end() - 12);
    } else if (d.size() != end) {
        return o;
    }
    if (o.bits & 0x80) {
        if (payload.size() < 32 || payload.size() % 16 != 0) return o;
        Bytes iv(payload.begin(), payload.begin() + 16);
        o.plain = aes_cbc(first16(e.k2), iv, Bytes(payload.begin() + 16, payload.end()), false);
        uint8_t p = o.plain.back();
        if (p > 15) return o;
        size_t n = o.plain.size() - p - 1;
        for (size_t i = 0; i < p; ++i)
            if (o.plain[n + i] != i + 1) return o;
        o.message.assign(o.plain.begin(), o.plain.begin() + static_cast<long>(n));
    } else {
        o.message = payload;
    }
    return o;
}

// The payload type bits a suite's packets carry.
inline uint8_t suite_bits(int suite)
{
    return static_cast<uint8_t>((suite >= 2 ? 0x40 : 0) | (suite == 3 ? 0x80 : 0));
}

}  // namespace simtest
