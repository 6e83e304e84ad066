// RAKP messages 1 and 2: the request byte for byte, every check of RAKP 2
// with its message, code and RMCP+ status, the key exchange code against
// HMAC-SHA1 computed here with OpenSSL, and the phase against a scripted
// managed system on 127.0.0.62.
#include <gtest/gtest.h>

#include "RAKP_testkit.h"

using namespace rakptest;
using testkit::clear_trace;
using testkit::log_lines;
using testkit::logged;

namespace {

constexpr uint8_t kPeer = 62;
constexpr uint32_t kConsoleSid = 0xA1B2C3D4;
constexpr uint32_t kBmcSid = 0x11223344;
const Bytes kRm = sequence16(0xA0);

RMCPp_SetupState user_state(const std::string &name, const char *password, uint8_t auth = 1)
{
    RMCPp_SetupState s{};
    set_user(s, name, password);
    s.console_session_id = kConsoleSid;
    s.bmc_session_id = kBmcSid;
    s.req_auth_alg = auth;
    s.auth_alg = auth;
    return s;
}

Rakp2 good_rakp2()
{
    Rakp2 m;
    m.console_sid = kConsoleSid;
    m.code = Bytes(20, 0x5C);
    return m;
}

struct Check2Result {
    int code;
    uint32_t used = 0;
    uint8_t rakp_status = 0x77;
    RMCPp_SetupState state;
    Lines lines;
};

Check2Result check2(const Bytes &datagram, uint8_t auth_alg = 1, uint8_t tag = 2)
{
    Check2Result r;
    r.state = user_state("admin", "secret", auth_alg);
    clear_trace();
    r.code = Check_RAKPMessage2(&r.state, datagram.data() + 4, static_cast<uint32_t>(datagram.size() - 4), tag,
                                &r.used, &r.rakp_status);
    r.lines = log_lines();
    return r;
}

struct Key2Result {
    int code;
    uint8_t mismatch = 0x77;
    Lines lines;
};

Key2Result key2(RMCPp_SetupState &s, uint8_t role, const Bytes &rc, const Bytes &code)
{
    Key2Result r;
    clear_trace();
    r.code = CheckKeyExchange2(&s, role, kRm.data(), rc.data(), code.data(), &r.mismatch);
    r.lines = log_lines();
    return r;
}

// What the managed system reads from a RAKP 1 on the wire.
struct Rakp1Fields {
    uint8_t tag;
    uint32_t bmc_sid;
    Bytes rm;
    uint8_t role;
    std::string name;
};

Rakp1Fields parse_rakp1(const Bytes &request)
{
    rmcpp::wire::Reader r(request.data(), request.size());
    Rakp1Fields f;
    r.skip(16);
    f.tag = r.u8();
    r.skip(3);
    f.bmc_sid = r.u32le();
    f.rm.resize(16);
    r.bytes(f.rm.data(), 16);
    f.role = r.u8();
    r.skip(2);
    const uint8_t n = r.u8();
    Bytes name(n);
    r.bytes(name.data(), n);
    f.name.assign(name.begin(), name.end());
    return f;
}

}  // namespace

// ---------------------------------------------------------------- RAKP 1

TEST(Rakp1Request, CarriesASixteenByteNameInSixtyBytes)
{
    RMCPp_SetupState s = user_state("ABCDEFGHIJKLMNOP", "pw");
    uint8_t buffer[400];
    uint32_t length = 0;
    ASSERT_EQ(Make_RAKPMessage1(&s, kRm.data(), 0x14, 2, buffer, sizeof buffer, &length), 0);
    ASSERT_EQ(length, 60u);
    const Bytes want = cat({{0x06, 0x00, 0xFF, 0x07, 0x06, 0x12, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                             0x2C, 0x00, 0x02, 0x00, 0x00, 0x00, 0x44, 0x33, 0x22, 0x11},
                            kRm,
                            {0x14, 0x00, 0x00, 0x10},
                            text("ABCDEFGHIJKLMNOP")});
    EXPECT_EQ(bytes_of(buffer, length), want);
}

TEST(Rakp1Request, WithAnEmptyNameEndsAtTheLengthByte)
{
    RMCPp_SetupState s = user_state("", "pw");
    uint8_t buffer[400];
    std::memset(buffer, 0xEE, sizeof buffer);
    uint32_t length = 0;
    ASSERT_EQ(Make_RAKPMessage1(&s, kRm.data(), 0x04, 2, buffer, sizeof buffer, &length), 0);
    ASSERT_EQ(length, 44u);
    EXPECT_EQ(buffer[14], 28);
    EXPECT_EQ(buffer[15], 0);
    EXPECT_EQ(buffer[40], 0x04);
    EXPECT_EQ(buffer[43], 0);
    EXPECT_EQ(buffer[44], 0xEE);
}

TEST(Rakp1Request, NeedsFortyFourBytesPlusTheName)
{
    RMCPp_SetupState s = user_state("admin", "pw");
    uint8_t buffer[49];
    std::memset(buffer, 0xEE, sizeof buffer);
    uint32_t length = 3;
    clear_trace();
    EXPECT_EQ(Make_RAKPMessage1(&s, kRm.data(), 0x04, 2, buffer, 48, &length), 3);
    EXPECT_EQ(log_lines(), Lines{"Insufficient Data Size.\n"});
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(bytes_of(buffer, sizeof buffer), Bytes(49, 0xEE));
    EXPECT_EQ(Make_RAKPMessage1(&s, kRm.data(), 0x04, 2, buffer, 49, &length), 0);
    EXPECT_EQ(length, 49u);
}

// ------------------------------------------------------------ RAKP 2 check

TEST(Rakp2Check, AcceptsAndStoresTheGuid)
{
    const auto r = check2(good_rakp2().datagram());
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.used, 12u);
    EXPECT_EQ(r.rakp_status, 0);
    EXPECT_EQ(bytes_of(r.state.bmc_guid, 16), sequence16(0x40));
    EXPECT_TRUE(r.lines.empty());
}

TEST(Rakp2Check, UnderRakpNoneWantsFortyPayloadBytes)
{
    Rakp2 m = good_rakp2();
    m.code.clear();
    const auto r = check2(m.datagram(), 0);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(bytes_of(r.state.bmc_guid, 16), sequence16(0x40));
}

TEST(Rakp2Check, SkipsAnAnswerWithASessionId)
{
    SessionHeader h;
    h.payload_type = 0x13;
    h.session_id = 1;
    const auto r = check2(rmcp_plus(h, good_rakp2().payload()));
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.rakp_status, 0);
    EXPECT_EQ(r.lines, (Lines{"Received unexpected Packet.(S_H SessID)\n", "Check at IPMI Session Header & Tailer.\n"}));
}

TEST(Rakp2Check, SkipsAPayloadOfSevenBytes)
{
    Bytes p = good_rakp2().payload();
    p.resize(7);
    const auto r = check2(rmcp_plus(0x13, p));
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, Lines{"Received Packet with number of Invalid Payload Length.\n"});
}

TEST(Rakp2Check, RejectsAnotherTagWithStatus18)
{
    Rakp2 m = good_rakp2();
    m.tag = 1;
    const auto r = check2(m.datagram());
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.used, 12u);
    EXPECT_EQ(r.rakp_status, 18);
    EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid Message Tag.\n"});
}

TEST(Rakp2Check, PrintsAnErrorStatusAndFailsWith65)
{
    Rakp2 m = good_rakp2();
    m.status = 0x0D;
    auto r = check2(m.datagram());
    EXPECT_EQ(r.code, 65);
    EXPECT_EQ(r.rakp_status, 0);
    EXPECT_EQ(r.lines,
              (Lines{"[ Status Code ] ", "Unauthorized name.\n", "Received Packet with Error Status Code.\n"}));

    m.status = 0x13;
    r = check2(m.datagram());
    EXPECT_EQ(r.code, 65);
    EXPECT_EQ(r.lines, (Lines{"[ Status Code ] ", "Unexpected Status Code = 13.\n",
                              "Received Packet with Error Status Code.\n"}));
}

TEST(Rakp2Check, RejectsEitherReservedByteWithStatus18)
{
    for (uint16_t reserved : {0x0001, 0x0100}) {
        Rakp2 m = good_rakp2();
        m.reserved = reserved;
        const auto r = check2(m.datagram());
        EXPECT_EQ(r.code, 66);
        EXPECT_EQ(r.rakp_status, 18);
        EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid value in Reserved field.\n"});
    }
}

TEST(Rakp2Check, RejectsAnotherConsoleSessionIdWithStatus8)
{
    Rakp2 m = good_rakp2();
    m.console_sid = kConsoleSid + 1;
    const auto r = check2(m.datagram());
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.rakp_status, 8);
    EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid RC Session ID.\n"});
}

TEST(Rakp2Check, RefusesAnUnknownAuthenticationAlgorithmWith3)
{
    const auto r = check2(good_rakp2().datagram(), 2);
    EXPECT_EQ(r.code, 3);
    EXPECT_EQ(r.rakp_status, 0);
    EXPECT_EQ(r.lines, Lines{"Unsupported Authentication algorithm.\n"});
}

TEST(Rakp2Check, RejectsSixtyPayloadBytesUnderRakpNone)
{
    const auto r = check2(good_rakp2().datagram(), 0);
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.rakp_status, 18);
    EXPECT_EQ(bytes_of(r.state.bmc_guid, 16), Bytes(16, 0));
    EXPECT_EQ(r.lines, Lines{"Received Packet with number of Invalid Payload Length.\n"});
}

TEST(Rakp2Check, RejectsAPayloadOtherThanSixtyUnderRakpHmacSha1)
{
    for (size_t code_length : {0u, 19u, 21u}) {
        Rakp2 m = good_rakp2();
        m.code.resize(code_length, 0x5C);
        const auto r = check2(m.datagram(), 1);
        EXPECT_EQ(r.code, 66) << code_length;
        EXPECT_EQ(r.rakp_status, 18);
        EXPECT_EQ(r.lines, Lines{"Received Packet with number of Invalid Payload Length.\n"});
    }
}

// -------------------------------------------------- key exchange code

TEST(Rakp2KeyExchange, MatchesHmacSha1UnderThePaddedPassword)
{
    RMCPp_SetupState s = user_state("admin", "secret");
    std::memcpy(s.bmc_guid, sequence16(0x40).data(), 16);
    const Bytes rc = sequence16(0xC0);
    const Bytes code = rakp2_code(padded("secret", 20), kConsoleSid, kBmcSid, kRm, rc, sequence16(0x40), 0x04, "admin");
    auto r = key2(s, 0x04, rc, code);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);
    EXPECT_TRUE(r.lines.empty());

    for (size_t i : {0u, 19u}) {
        Bytes wrong = code;
        wrong[i] ^= 0x01;
        r = key2(s, 0x04, rc, wrong);
        EXPECT_EQ(r.code, 0);
        EXPECT_EQ(r.mismatch, 1) << i;
    }
    // The role byte is part of the input.
    r = key2(s, 0x14, rc, code);
    EXPECT_EQ(r.mismatch, 1);
}

TEST(Rakp2KeyExchange, CoversTheNameOnlyRoleByte)
{
    RMCPp_SetupState s = user_state("operator", "0123456789abcdefghij");
    const Bytes rc = sequence16(0x10);
    const Bytes code = rakp2_code(text("0123456789abcdefghij"), kConsoleSid, kBmcSid, kRm, rc, Bytes(16, 0), 0x14,
                                  "operator");
    const auto r = key2(s, 0x14, rc, code);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);
}

TEST(Rakp2KeyExchange, WithAnEmptyUserName)
{
    RMCPp_SetupState s = user_state("", "pw");
    const Bytes rc = sequence16(0x20);
    const Bytes code = rakp2_code(padded("pw", 20), kConsoleSid, kBmcSid, kRm, rc, Bytes(16, 0), 0x04, "");
    const auto r = key2(s, 0x04, rc, code);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);
}

TEST(Rakp2KeyExchange, WithAnonymousLoginKeyedWithAnEmptyKey)
{
    RMCPp_SetupState s = user_state("", nullptr);
    ASSERT_EQ(s.user_key_length, 0);
    const Bytes rc = sequence16(0x30);
    const Bytes code = rakp2_code(Bytes{}, kConsoleSid, kBmcSid, kRm, rc, Bytes(16, 0), 0x04, "");
    const auto r = key2(s, 0x04, rc, code);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);
}

TEST(Rakp2KeyExchange, WithTheLongestNameAndPassword)
{
    RMCPp_SetupState s = user_state("ABCDEFGHIJKLMNOP", "ABCDEFGHIJKLMNOPQRST");
    std::memcpy(s.bmc_guid, sequence16(0x77).data(), 16);
    const Bytes rc = sequence16(0x99);
    const Bytes code = rakp2_code(text("ABCDEFGHIJKLMNOPQRST"), kConsoleSid, kBmcSid, kRm, rc, sequence16(0x77), 0x05,
                                  "ABCDEFGHIJKLMNOP");
    const auto r = key2(s, 0x05, rc, code);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);
}

TEST(Rakp2KeyExchange, MatchesAFixedVector)
{
    // HMAC-SHA1 computed outside this library (Python's hmac module) for
    // console session ID 0xA1B2C3D4, managed system session ID 0x11223344,
    // Rm A0..AF, Rc C0..CF, GUID 40..4F, role 4, user "admin", password
    // "secret".
    const Bytes code = {0xc8, 0xe2, 0xe9, 0x97, 0xef, 0x3d, 0xd6, 0x8c, 0xeb, 0x5b,
                        0x29, 0xeb, 0x2a, 0x08, 0xc5, 0x33, 0x02, 0x24, 0x44, 0x89};
    RMCPp_SetupState s = user_state("admin", "secret");
    std::memcpy(s.bmc_guid, sequence16(0x40).data(), 16);
    const Bytes rc = sequence16(0xC0);
    EXPECT_EQ(rakp2_code(padded("secret", 20), kConsoleSid, kBmcSid, kRm, rc, sequence16(0x40), 0x04, "admin"), code);
    const auto r = key2(s, 0x04, rc, code);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);
}

TEST(Rakp2KeyExchange, UnderRakpNoneComparesNothing)
{
    RMCPp_SetupState s = user_state("admin", "secret", 0);
    const auto r = key2(s, 0x04, sequence16(0), Bytes(20, 0xAB));
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);
    EXPECT_TRUE(r.lines.empty());
}

TEST(Rakp2KeyExchange, RefusesAnUnknownAlgorithm)
{
    RMCPp_SetupState s = user_state("admin", "secret", 2);
    const auto r = key2(s, 0x04, sequence16(0), Bytes(20, 0xAB));
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.mismatch, 0);
    EXPECT_EQ(r.lines, Lines{"Not - supported Authentication algorithm.\n"});
}

// ------------------------------------------- the phase against a scripted peer

namespace {

// A managed system that knows `password` and answers RAKP 1 with Rc C0..CF,
// GUID 40..4F and the key exchange code computed here, then lets `tweak`
// spoil the answer.
ScriptedPeer::Handler rakp2_peer(const char *password, uint8_t auth, std::function<void(Rakp2 &)> tweak = {})
{
    const Bytes key = password ? padded(password, 20) : Bytes{};
    return [key, auth, tweak](const Bytes &request, int) {
        const Rakp1Fields f = parse_rakp1(request);
        Rakp2 m;
        m.tag = f.tag;
        m.console_sid = kConsoleSid;
        if (auth == 1) m.code = rakp2_code(key, kConsoleSid, f.bmc_sid, f.rm, m.rc, m.guid, f.role, f.name);
        if (tweak) tweak(m);
        return std::vector<Bytes>{m.datagram()};
    };
}

}  // namespace

// The console is "admin" with password "secret" under RAKP-HMAC-SHA1
// unless a test changes the state before run().
class Rakp12Phase : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(link_.opened, 0);
        set_user(s_, "admin", "secret");
        s_.console_session_id = kConsoleSid;
        s_.req_auth_alg = s_.auth_alg = 1;
    }

    // Runs RAKP 1/2 with `role` against a peer that answers with `handler`,
    // keeping what the peer received.
    int run(ScriptedPeer::Handler handler, uint8_t role = 0x04)
    {
        ScriptedPeer peer(kPeer, std::move(handler));
        clear_trace();
        const int r = RAKPMessage1_2(&s_, kRm.data(), role, 2, rc_, &rakp_status_);
        peer.stop();
        requests_ = peer.requests();
        return r;
    }

    Link link_{kPeer};
    RMCPp_SetupState &s_ = link_.state;
    uint8_t rc_[16] = {};
    uint8_t rakp_status_ = 0x77;
    std::vector<Bytes> requests_;
};

TEST_F(Rakp12Phase, ReturnsRcAndKeepsTheGuidWhenTheCodeMatches)
{
    s_.bmc_session_id = kBmcSid;
    EXPECT_EQ(run(rakp2_peer("secret", 1), 0x14), 0);
    EXPECT_EQ(rakp_status_, 0);
    EXPECT_EQ(bytes_of(rc_, 16), sequence16(0xC0));
    EXPECT_EQ(bytes_of(s_.bmc_guid, 16), sequence16(0x40));
    EXPECT_TRUE(log_lines().empty());

    uint8_t want[400];
    uint32_t want_length = 0;
    ASSERT_EQ(Make_RAKPMessage1(&s_, kRm.data(), 0x14, 2, want, sizeof want, &want_length), 0);
    ASSERT_EQ(requests_.size(), 1u);
    EXPECT_EQ(requests_[0], bytes_of(want, want_length));
    EXPECT_EQ(requests_[0][40], 0x14);
}

TEST_F(Rakp12Phase, AWrongCodeIsNoFailureButStatus15)
{
    EXPECT_EQ(run(rakp2_peer("secret", 1, [](Rakp2 &m) { m.code[19] ^= 0x80; })), 0);
    EXPECT_EQ(rakp_status_, 15);
    EXPECT_EQ(bytes_of(rc_, 16), sequence16(0xC0));
    EXPECT_EQ(log_lines(), Lines{"Received Key of RAKP Message 2 is invalid.\n\n"});
    EXPECT_EQ(requests_.size(), 1u);
}

TEST_F(Rakp12Phase, AWrongPasswordGivesStatus15)
{
    EXPECT_EQ(run(rakp2_peer("Secret", 1)), 0);
    EXPECT_EQ(rakp_status_, 15);
}

TEST_F(Rakp12Phase, UnderRakpNoneTakesRcAndGuidWithoutACode)
{
    set_user(s_, "", nullptr);
    s_.req_auth_alg = s_.auth_alg = 0;
    EXPECT_EQ(run(rakp2_peer(nullptr, 0)), 0);
    EXPECT_EQ(rakp_status_, 0);
    EXPECT_EQ(bytes_of(rc_, 16), sequence16(0xC0));
    EXPECT_EQ(bytes_of(s_.bmc_guid, 16), sequence16(0x40));
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(Rakp12Phase, KeepsWaitingPastAnAnswerWithASessionId)
{
    auto good = rakp2_peer("secret", 1);
    EXPECT_EQ(run([good](const Bytes &request, int index) {
                  std::vector<Bytes> replies = good(request, index);
                  SessionHeader h;
                  h.payload_type = 0x13;
                  h.session_id = 1;
                  Bytes stray = rmcp_plus(h, Bytes(replies[0].begin() + 16, replies[0].end()));
                  Bytes short_payload = rmcp_plus(0x13, Bytes{0x02, 0, 0, 0, 0, 0, 0});
                  return std::vector<Bytes>{stray, short_payload, replies[0]};
              }),
              0);
    EXPECT_EQ(rakp_status_, 0);
    EXPECT_EQ(requests_.size(), 1u);
    EXPECT_TRUE(logged("Received unexpected Packet.(S_H SessID)\n"));
    EXPECT_TRUE(logged("Received Packet with number of Invalid Payload Length.\n"));
    EXPECT_FALSE(logged("Timeout, now retrying ...\n"));
}

TEST_F(Rakp12Phase, EndsAtOnceOnAnotherConsoleSessionId)
{
    EXPECT_EQ(run(rakp2_peer("secret", 1, [](Rakp2 &m) { m.console_sid ^= 1; })), 66);
    EXPECT_EQ(rakp_status_, 8);
    EXPECT_EQ(requests_.size(), 1u);
    EXPECT_EQ(bytes_of(rc_, 16), Bytes(16, 0));
    EXPECT_EQ(log_lines(),
              (Lines{"Received Packet with Invalid RC Session ID.\n", "Failed to do RAKP Message 1 & 2.\n"}));
}

TEST_F(Rakp12Phase, EndsAtOnceWithSixtyBytesUnderRakpNone)
{
    s_.req_auth_alg = s_.auth_alg = 0;
    EXPECT_EQ(run(rakp2_peer(nullptr, 0, [](Rakp2 &m) { m.code = Bytes(20, 0); })), 66);
    EXPECT_EQ(rakp_status_, 18);
    EXPECT_EQ(requests_.size(), 1u);
}

TEST_F(Rakp12Phase, EndsAtOnceOnAnErrorStatus)
{
    set_user(s_, "nobody", "secret");
    EXPECT_EQ(run(rakp2_peer("secret", 1, [](Rakp2 &m) {
                  m.status = 0x0D;
                  m.code.clear();
              })),
              65);
    EXPECT_EQ(requests_.size(), 1u);
    EXPECT_EQ(log_lines(), (Lines{"[ Status Code ] ", "Unauthorized name.\n", "Received Packet with Error Status Code.\n",
                                  "Failed to do RAKP Message 1 & 2.\n"}));
}

TEST_F(Rakp12Phase, ResendsTheSameBytesAfterATimeout)
{
    auto good = rakp2_peer("secret", 1);
    EXPECT_EQ(run([good](const Bytes &request, int index) {
                  if (index == 0) return std::vector<Bytes>{};
                  return good(request, index);
              }),
              0);
    ASSERT_EQ(requests_.size(), 2u);
    EXPECT_EQ(requests_[0], requests_[1]);
    EXPECT_EQ(rakp_status_, 0);
    EXPECT_EQ(testkit::count_logged("Timeout, now retrying ...\n"), 1);
}
