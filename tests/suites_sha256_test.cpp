// Cipher suites 15, 16 and 17 (RAKP-HMAC-SHA256; HMAC-SHA256-128; AES-CBC-128)
// end to end through rmcpp_setup_session, against a scripted managed system
// on 127.0.2.17 that answers the presence ping, Get Channel Authentication
// Capabilities, Open Session, RAKP 1 and RAKP 3 with fixed values of its own
// and computes every code and key itself with OpenSSL: the RAKP 2 code, the
// RAKP 3 code it expects, the SIK, the RAKP 4 integrity check value, K1 and
// K2. It then opens the session's packets with its own K1 and K2 and seals
// its answers the same way.
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

namespace {

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
Bytes hmac_sha256(const Bytes &key, const Bytes &data)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    static const unsigned char no_key = 0;
    HMAC(EVP_sha256(), key.empty() ? &no_key : key.data(), static_cast<int>(key.size()), data.data(), data.size(),
         out, &n);
    return Bytes(out, out + n);
}

Bytes role_and_name(uint8_t role, const std::string &name)
{
    return cat({{role, static_cast<uint8_t>(name.size())}, text(name)});
}

// RAKP 2 key exchange code: HMAC(Kuid, SIDm | SIDc | Rm | Rc | GUIDc | role | N | name).
Bytes rakp2_code(const Bytes &kuid, uint32_t console_sid, const Bytes &rm, const Bytes &rc, const Bytes &guid,
                 uint8_t role, const std::string &name)
{
    return hmac_sha256(kuid, cat({le32(console_sid), le32(kBmcSid), rm, rc, guid, role_and_name(role, name)}));
}

// RAKP 3 key exchange code: HMAC(Kuid, Rc | SIDm | role | N | name).
Bytes rakp3_code(const Bytes &kuid, const Bytes &rc, uint32_t console_sid, uint8_t role, const std::string &name)
{
    return hmac_sha256(kuid, cat({rc, le32(console_sid), role_and_name(role, name)}));
}

// SIK: HMAC(Kg, or Kuid while no Kg is set, Rm | Rc | role | N | name).
Bytes sik_of(const Bytes &key, const Bytes &rm, const Bytes &rc, uint8_t role, const std::string &name)
{
    return hmac_sha256(key, cat({rm, rc, role_and_name(role, name)}));
}

// RAKP 4 integrity check value: the first 16 bytes of HMAC(SIK, Rm | SIDc | GUIDc).
Bytes rakp4_icv(const Bytes &sik, const Bytes &rm, const Bytes &guid)
{
    return first(hmac_sha256(sik, cat({rm, le32(kBmcSid), guid})), 16);
}

// K1 and K2: HMAC(SIK, twenty 0x01 bytes) and HMAC(SIK, twenty 0x02 bytes).
Bytes k1_of(const Bytes &sik) { return hmac_sha256(sik, Bytes(20, 0x01)); }
Bytes k2_of(const Bytes &sik) { return hmac_sha256(sik, Bytes(20, 0x02)); }

// ------------------------------------------------- session packets, by hand

// The payload type bits a suite protects its session packets with.
uint8_t protection_of(int suite)
{
    return static_cast<uint8_t>((suite >= 16 ? 0x40 : 0) | (suite == 17 ? 0x80 : 0));
}

// Appends integrity pad, pad length, next header and the 16-byte
// HMAC-SHA256-128 code (keyed with K1) over everything from the
// authentication type byte on.
void add_trailer(Bytes &d, const Bytes &k1)
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
Bytes seal(uint8_t payload_type, uint32_t session_id, uint32_t sequence, const Bytes &message, const Bytes &k1,
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
std::optional<Opened> open_packet(const Bytes &d, const Bytes &k1, const Bytes &k2)
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

// A UDP socket on 127.0.2.17:623 whose thread hands every datagram to the
// handler and sends what it returns back to the sender.
class Peer {
public:
    using Handler = std::function<std::vector<Bytes>(const Bytes &)>;

    explicit Peer(Handler handler) : handler_(std::move(handler))
    {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        if (fd_ < 0) throw std::runtime_error("socket");
        int one = 1;
        ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(623);
        a.sin_addr.s_addr = htonl(kBmcAddress);
        if (::bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) {
            ::close(fd_);
            throw std::runtime_error("bind 127.0.2.17:623");
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

const Bytes kDeviceId = {0x20, 0x81, 0x05, 0x02, 0x02, 0xBF, 0x57, 0x01, 0x00, 0x34, 0x12, 0x01, 0x00, 0x00, 0x00};
// What a corrupted answer carries instead: a device that is not this one.
const Bytes kOtherDeviceId = {0x99, 0x81, 0x05, 0x02, 0x02, 0xBF, 0x57, 0x01, 0x00, 0x34, 0x12, 0x01, 0x00, 0x00, 0x00};

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
        if (r.u8() == 0x00) {
            ++capabilities_requests;
            const uint8_t status = kg ? 0x20 : 0x00;
            return {rakptest::auth_capa_response(rakptest::auth_capa_data(status))};
        }
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
        resp.privilege = open_session_role;
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
        const bool close = o->message[5] == 0x3C;
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

// ------------------------------------------------------------ the console

// One login: who logs in and how.
struct Login {
    const char *label;
    const char *name;      // null: no user name
    const char *password;  // null: no password
    const char *kg;        // non-null: two-key login with this Kg
    bool name_only;
};

const Login kLogins[] = {
    {"NamedUserWithPassword", "admin", "secret", nullptr, false},
    {"Anonymous", nullptr, nullptr, nullptr, false},
    {"EmptyNameWithPassword", "", "pw", nullptr, false},
    {"LongestNameAndPassword", "abcdefghijklmnop", "ABCDEFGHIJKLMNOPQRST", nullptr, false},
    {"TwoKeyLogin", "admin", "secret", "kg-of-the-bmc", false},
    {"NameOnlyLookup", "operator", "secret", nullptr, true},
};

IPMI_SessionParam params(int suite, const Login &login)
{
    IPMI_SessionParam p{};
    p.bmc_address = kBmcAddress;
    p.port_option = 0;
    p.user_name = login.name;
    p.user_password = login.password;
    p.privilege_level = kRole;
    p.cipher_suite_id = suite;
    p.user_lookup_option = login.name_only ? 1 : 0;
    p.two_key_login_option = login.kg ? 1 : 0;
    p.server_key = login.kg;
    p.slave_address = 0x20;
    p.lun = 0;
    p.local_port = 0;
    p.retry_count = 2;
    p.timeout_sec = 1;
    return p;
}

RMCPP_SessionOptions options(uint32_t flags = RMCPP_OPT_KERNEL_PORT)
{
    RMCPP_SessionOptions o{};
    o.size = sizeof o;
    o.flags = flags;
    return o;
}

void configure(Sha256Bmc &bmc, int suite, const Login &login)
{
    bmc.suite = suite;
    bmc.password = login.password ? std::optional<std::string>(login.password) : std::nullopt;
    bmc.kg = login.kg ? std::optional<std::string>(login.kg) : std::nullopt;
}

const Bytes kGetDeviceId = packettest::request_of(0x06, 0x01, 5);

struct Exchange {
    int result = -9;
    Bytes response;
    uint32_t released = 77;
};

Exchange get_device_id(IPMI_SessionParam &p, int attempts = 1, int wait = 2)
{
    Exchange e;
    e.response.assign(64, 0);
    uint32_t length = 0;
    e.result = IPMI_Message_IF(&p, kGetDeviceId.data(), static_cast<uint32_t>(kGetDeviceId.size()),
                               e.response.data(), static_cast<uint32_t>(e.response.size()), &length, 0, &e.released,
                               attempts, wait);
    e.response.resize(e.result == 0 ? length : 0);
    return e;
}

std::string suite_name(int suite) { return "Suite" + std::to_string(suite); }

// ------------------------------------------------------------------ tests

TEST(Sha256Helper, MatchesRfc4231)
{
    // Test case 1: twenty 0x0b bytes, "Hi There".
    EXPECT_EQ(hmac_sha256(Bytes(20, 0x0B), text("Hi There")),
              (Bytes{0xb0, 0x34, 0x4c, 0x61, 0xd8, 0xdb, 0x38, 0x53, 0x5c, 0xa8, 0xaf, 0xce, 0xaf, 0x0b, 0xf1, 0x2b,
                     0x88, 0x1d, 0xc2, 0x00, 0xc9, 0x83, 0x3d, 0xa7, 0x26, 0xe9, 0x37, 0x6c, 0x2e, 0x32, 0xcf, 0xf7}));
    // Test case 2: "Jefe", "what do ya want for nothing?".
    EXPECT_EQ(hmac_sha256(text("Jefe"), text("what do ya want for nothing?")),
              (Bytes{0x5b, 0xdc, 0xc1, 0x46, 0xbf, 0x60, 0x75, 0x4e, 0x6a, 0x04, 0x24, 0x26, 0x08, 0x95, 0x75, 0xc7,
                     0x5a, 0x00, 0x3f, 0x08, 0x9d, 0x27, 0x39, 0x83, 0x9d, 0xec, 0x58, 0xb9, 0x64, 0xec, 0x38, 0x43}));
    // Test case 5: the first 16 bytes are the truncated code.
    EXPECT_EQ(first(hmac_sha256(Bytes(20, 0x0C), text("Test With Truncation")), 16),
              (Bytes{0xa3, 0xb6, 0x16, 0x74, 0x73, 0x10, 0x0e, 0xe0, 0x6e, 0x0c, 0x79, 0x6c, 0x29, 0x55, 0x55,
                     0x2b}));
}

TEST(Sha256Helper, SealedPacketsOpenAndAnyFlippedBitIsCaught)
{
    const Bytes k1 = k1_of(Bytes(32, 0x5C)), k2 = k2_of(Bytes(32, 0x5C));
    for (uint8_t type : {0x00, 0x40, 0xC0}) {
        for (size_t n : {7u, 15u, 16u, 21u}) {
            Bytes message(n);
            for (size_t i = 0; i < n; ++i) message[i] = static_cast<uint8_t>(3 * i + 1);
            const Bytes d = seal(type, 0x01020304, 9, message, k1, k2, sequence16(0x70));
            if (type & 0x40) EXPECT_EQ((d.size() - 4 - 16) % 4, 0u);
            const auto o = open_packet(d, k1, k2);
            ASSERT_TRUE(o) << int(type) << " " << n;
            EXPECT_EQ(o->message, message);
            EXPECT_EQ(o->payload_type, type);
            EXPECT_EQ(o->session_id, 0x01020304u);
            EXPECT_EQ(o->sequence, 9u);
            if (type & 0x40) {
                for (size_t at = 4; at < d.size(); ++at) {
                    Bytes bad = d;
                    bad[at] ^= 0x80;
                    EXPECT_FALSE(open_packet(bad, k1, k2)) << at;
                }
            }
        }
    }
}

class Sha256Login : public ::testing::TestWithParam<std::tuple<int, Login>> {};

TEST_P(Sha256Login, SetsUpExchangesAndClosesWithKeysComputedByTheManagedSystem)
{
    const int suite = std::get<0>(GetParam());
    const Login login = std::get<1>(GetParam());
    Sha256Bmc bmc;
    configure(bmc, suite, login);
    IPMI_SessionParam p = params(suite, login);
    const RMCPP_SessionOptions o = options();
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); });

    testkit::clear_trace();
    ASSERT_EQ(rmcpp_setup_session(&p, &o), 0) << testkit::log_text();
    ASSERT_NE(p.session, nullptr);
    EXPECT_EQ(p.granted_privilege, kRole);

    const Exchange e = get_device_id(p);
    EXPECT_EQ(e.result, 0) << testkit::log_text();
    EXPECT_EQ(e.released, 0u);
    EXPECT_EQ(e.response, packettest::response_to(kGetDeviceId, 0x00, kDeviceId));

    EXPECT_EQ(IPMI_CloseSession(&p), 0) << testkit::log_text();
    EXPECT_EQ(p.session, nullptr);
    peer.stop();

    // The proposal and the login as the managed system saw them.
    EXPECT_EQ(bmc.pings, 1);
    EXPECT_EQ(bmc.capabilities_requests, 1);
    EXPECT_EQ(bmc.proposed[0], 3);
    EXPECT_EQ(bmc.proposed[1], bmc.integrity_alg());
    EXPECT_EQ(bmc.proposed[2], bmc.confidentiality_alg());
    EXPECT_EQ(bmc.open_session_role, kRole);
    EXPECT_EQ(bmc.rakp_role, login.name_only ? kRole | 0x10 : kRole);
    EXPECT_EQ(bmc.name, login.name ? login.name : "");
    EXPECT_NE(bmc.console_sid, 0u);

    // RAKP 3: status 0, the managed system's session ID and a 32-byte code.
    const Bytes &m3 = bmc.rakp3;
    ASSERT_EQ(m3.size(), 56u);
    EXPECT_EQ(m3[5], 0x14);
    EXPECT_EQ(m3[14] | (m3[15] << 8), 40);
    EXPECT_EQ(m3[16], 3);  // the tag the library gives RAKP 3
    EXPECT_EQ(m3[17], 0);
    EXPECT_EQ(packettest::get_le32(m3, 20), kBmcSid);
    EXPECT_EQ(Bytes(m3.begin() + 24, m3.end()),
              rakp3_code(bmc.kuid(), bmc.rc, bmc.console_sid, bmc.rakp_role, bmc.name));

    // Get Device ID, then Close Session, each opened with the managed
    // system's own K1 and K2 and carrying what the console meant to send.
    ASSERT_EQ(bmc.session_requests.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        const auto &r = bmc.session_requests[i];
        ASSERT_TRUE(r) << "request " << i << " did not open with the managed system's keys";
        EXPECT_EQ(r->payload_type, protection_of(suite));
        EXPECT_EQ(r->session_id, kBmcSid);
        EXPECT_EQ(r->sequence, i + 1);
    }
    EXPECT_EQ(bmc.session_requests[0]->message, kGetDeviceId);
    const Bytes &close = bmc.session_requests[1]->message;
    ASSERT_EQ(close.size(), 11u);
    EXPECT_EQ(close[1] >> 2, 0x06);
    EXPECT_EQ(close[5], 0x3C);
    EXPECT_EQ(packettest::get_le32(close, 6), kBmcSid);
}

INSTANTIATE_TEST_SUITE_P(Suites, Sha256Login, ::testing::Combine(::testing::Values(15, 16, 17),
                                                                 ::testing::ValuesIn(kLogins)),
                         [](const ::testing::TestParamInfo<std::tuple<int, Login>> &info) {
                             return suite_name(std::get<0>(info.param)) + "_" + std::get<1>(info.param).label;
                         });

class Sha256Suite : public ::testing::TestWithParam<int> {};

TEST_P(Sha256Suite, ARakp2CodeOneBitOffEndsSetupWithRakp3CarryingStatus15)
{
    const int suite = GetParam();
    for (int at : {0, 19, 31}) {
        Sha256Bmc bmc;
        configure(bmc, suite, kLogins[0]);
        bmc.spoil_rakp2_byte = at;
        IPMI_SessionParam p = params(suite, kLogins[0]);
        const RMCPP_SessionOptions o = options();
        Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); });
        EXPECT_EQ(rmcpp_setup_session(&p, &o), 65) << "code byte " << at;
        peer.stop();
        EXPECT_EQ(p.session, nullptr);
        ASSERT_EQ(bmc.rakp3.size(), 24u) << "code byte " << at;
        EXPECT_EQ(bmc.rakp3[17], 15);
        EXPECT_TRUE(bmc.session_datagrams.empty());
    }
}

TEST_P(Sha256Suite, ARakp4ValueOneBitOffEndsSetup)
{
    const int suite = GetParam();
    for (int at : {0, 11, 15}) {
        Sha256Bmc bmc;
        configure(bmc, suite, kLogins[0]);
        bmc.spoil_rakp4_byte = at;
        IPMI_SessionParam p = params(suite, kLogins[0]);
        const RMCPP_SessionOptions o = options();
        Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); });
        EXPECT_EQ(rmcpp_setup_session(&p, &o), 66) << "value byte " << at;
        peer.stop();
        EXPECT_EQ(p.session, nullptr);
        EXPECT_EQ(bmc.rakp3.size(), 56u);
        EXPECT_TRUE(bmc.session_datagrams.empty());
    }
}

TEST_P(Sha256Suite, SetsUpWithoutPingWhenAskedTo)
{
    const int suite = GetParam();
    Sha256Bmc bmc;
    configure(bmc, suite, kLogins[0]);
    bmc.answer_ping = false;
    IPMI_SessionParam p = params(suite, kLogins[0]);
    const RMCPP_SessionOptions o = options(RMCPP_OPT_KERNEL_PORT | RMCPP_OPT_NO_PING);
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); });
    ASSERT_EQ(rmcpp_setup_session(&p, &o), 0) << testkit::log_text();
    EXPECT_EQ(get_device_id(p).response, packettest::response_to(kGetDeviceId, 0x00, kDeviceId));
    EXPECT_EQ(IPMI_CloseSession(&p), 0);
    peer.stop();
    EXPECT_EQ(bmc.pings, 0);
}

TEST_P(Sha256Suite, TheOldEntryStillRefusesTheSuite)
{
    const int suite = GetParam();
    Sha256Bmc bmc;
    IPMI_SessionParam p = params(suite, kLogins[0]);
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); });
    testkit::clear_trace();
    EXPECT_EQ(IPMI_SetupSession(&p), 1);
    EXPECT_EQ(testkit::log_lines(), (Lines{"Invalid Chiper Suite ID.\n"}));
    EXPECT_EQ(p.session, nullptr);
    rakptest::sleep_ms(100);
    peer.stop();
    EXPECT_EQ(peer.received(), 0);
}

INSTANTIATE_TEST_SUITE_P(Suites, Sha256Suite, ::testing::Values(15, 16, 17),
                         [](const ::testing::TestParamInfo<int> &info) { return suite_name(info.param); });

// Suites 16 and 17 protect every session packet with HMAC-SHA256-128.
class Sha256Integrity : public ::testing::TestWithParam<int> {};

TEST_P(Sha256Integrity, AnswersWhoseCodeIsOneBitOffAreDroppedAndTheRightOneDelivered)
{
    const int suite = GetParam();
    Sha256Bmc bmc;
    configure(bmc, suite, kLogins[0]);
    bmc.device_id_answer = Answer::CorruptThenGood;
    IPMI_SessionParam p = params(suite, kLogins[0]);
    const RMCPP_SessionOptions o = options();
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); });
    ASSERT_EQ(rmcpp_setup_session(&p, &o), 0) << testkit::log_text();
    const Exchange e = get_device_id(p);
    EXPECT_EQ(e.result, 0) << testkit::log_text();
    EXPECT_EQ(e.response, packettest::response_to(kGetDeviceId, 0x00, kDeviceId));
    EXPECT_EQ(IPMI_CloseSession(&p), 0);
    peer.stop();
    EXPECT_EQ(bmc.session_requests.size(), 2u);
}

TEST_P(Sha256Integrity, AnAnswerWhoseCodeIsOneBitOffIsNeverAccepted)
{
    const int suite = GetParam();
    Sha256Bmc bmc;
    configure(bmc, suite, kLogins[0]);
    bmc.device_id_answer = Answer::CorruptOnly;
    IPMI_SessionParam p = params(suite, kLogins[0]);
    const RMCPP_SessionOptions o = options();
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); });
    ASSERT_EQ(rmcpp_setup_session(&p, &o), 0) << testkit::log_text();
    const Exchange e = get_device_id(p, 1, 1);
    EXPECT_EQ(e.result, RMCPP_ERR_RETRY_OVER);
    EXPECT_TRUE(e.response.empty());
    EXPECT_EQ(IPMI_CloseSession(&p), 0) << testkit::log_text();
    peer.stop();
    ASSERT_EQ(bmc.session_requests.size(), 2u);
    EXPECT_TRUE(bmc.session_requests[1]);
}

TEST_P(Sha256Integrity, CloseSessionAnsweredWithACodeOneBitOffFailsAndStillReleases)
{
    const int suite = GetParam();
    Sha256Bmc bmc;
    configure(bmc, suite, kLogins[0]);
    bmc.close_answer = Answer::CorruptOnly;
    IPMI_SessionParam p = params(suite, kLogins[0]);
    const RMCPP_SessionOptions o = options();
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); });
    ASSERT_EQ(rmcpp_setup_session(&p, &o), 0) << testkit::log_text();
    EXPECT_EQ(get_device_id(p).result, 0);
    EXPECT_EQ(IPMI_CloseSession(&p), RMCPP_ERR_RETRY_OVER);
    EXPECT_EQ(p.session, nullptr);
    peer.stop();
    ASSERT_EQ(bmc.session_requests.size(), 2u);
    EXPECT_TRUE(bmc.session_requests[1]);
}

INSTANTIATE_TEST_SUITE_P(Suites, Sha256Integrity, ::testing::Values(16, 17),
                         [](const ::testing::TestParamInfo<int> &info) { return suite_name(info.param); });

}  // namespace
