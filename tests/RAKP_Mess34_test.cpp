// RAKP messages 3 and 4: RAKP 3 byte for byte with its key exchange code
// against HMAC-SHA1 computed here with OpenSSL, the error-reporting RAKP 3,
// every check of RAKP 4 with its message, code and RMCP+ status, the
// integrity check value, and the phase against a scripted managed system on
// 127.0.0.63.
#include <gtest/gtest.h>

#include <sys/socket.h>

#include "RAKP_testkit.h"

using namespace rakptest;
using testkit::clear_trace;
using testkit::log_lines;
using testkit::logged;

namespace {

constexpr uint8_t kPeer = 63;
constexpr uint32_t kConsoleSid = 0xA1B2C3D4;
constexpr uint32_t kBmcSid = 0x11223344;
const Bytes kRm = sequence16(0xA0);
const Bytes kRc = sequence16(0xC0);
const Bytes kGuid = sequence16(0x40);

Bytes sik_bytes()
{
    Bytes b(20);
    for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(0x60 + i);
    return b;
}

void fill_session(RMCPp_SetupState &s, const std::string &name, const char *password, uint8_t auth = 1)
{
    set_user(s, name, password);
    s.console_session_id = kConsoleSid;
    s.bmc_session_id = kBmcSid;
    s.req_auth_alg = auth;
    s.auth_alg = auth;
    std::memcpy(s.bmc_guid, kGuid.data(), 16);
    std::memcpy(s.sik, sik_bytes().data(), 20);
}

RMCPp_SetupState session_state(const std::string &name = "admin", const char *password = "secret", uint8_t auth = 1)
{
    RMCPp_SetupState s{};
    fill_session(s, name, password, auth);
    return s;
}

Bytes rakp3_header(uint16_t payload_length, uint8_t status)
{
    return cat({{0x06, 0x00, 0xFF, 0x07, 0x06, 0x14, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                 static_cast<uint8_t>(payload_length), 0x00, 0x03, status, 0x00, 0x00},
                le32(kBmcSid)});
}

Rakp4 good_rakp4()
{
    Rakp4 m;
    m.console_sid = kConsoleSid;
    m.icv = rakp4_icv(sik_bytes(), kRm, kBmcSid, kGuid);
    return m;
}

struct Check4Result {
    int code;
    uint32_t used = 0;
    uint8_t rakp_status = 0x77;
    Lines lines;
};

Check4Result check4(const Bytes &datagram, uint8_t auth_alg = 1, uint8_t tag = 3)
{
    RMCPp_SetupState s = session_state("admin", "secret", auth_alg);
    Check4Result r;
    clear_trace();
    r.code = Check_RAKPMessage4(&s, datagram.data() + 4, static_cast<uint32_t>(datagram.size() - 4), tag, &r.used,
                                &r.rakp_status);
    r.lines = log_lines();
    return r;
}

struct Key4Result {
    int code;
    uint8_t mismatch = 0x77;
    Lines lines;
};

Key4Result key4(RMCPp_SetupState &s, const Bytes &value)
{
    Key4Result r;
    clear_trace();
    r.code = CheckKeyExchange4(&s, kRm.data(), value.data(), &r.mismatch);
    r.lines = log_lines();
    return r;
}

}  // namespace

// ---------------------------------------------------------------- RAKP 3

TEST(Rakp3Request, CarriesTheKeyExchangeCodeInFortyFourBytes)
{
    RMCPp_SetupState s = session_state();
    uint8_t buffer[400];
    uint32_t length = 0;
    clear_trace();
    ASSERT_EQ(Make_RAKPMessage3(&s, 3, 0, kRc.data(), 0x04, buffer, sizeof buffer, &length), 0);
    ASSERT_EQ(length, 44u);
    const Bytes code = rakp3_code(padded("secret", 20), kRc, kConsoleSid, 0x04, "admin");
    EXPECT_EQ(bytes_of(buffer, length), cat({rakp3_header(28, 0), code}));
    EXPECT_TRUE(log_lines().empty());
}

TEST(Rakp3Request, CodeMatchesAFixedVector)
{
    // HMAC-SHA1 computed outside this library (Python's hmac module) over Rc
    // C0..CF, console session ID 0xA1B2C3D4, role 4, user "admin", keyed
    // with "secret" zero-padded to 20 bytes.
    const Bytes code = {0x8a, 0xd1, 0xb3, 0xd5, 0x3b, 0x74, 0x30, 0xa0, 0x59, 0x00,
                        0x71, 0x95, 0xc7, 0x02, 0x60, 0x0c, 0x02, 0x58, 0xac, 0x1a};
    RMCPp_SetupState s = session_state();
    uint8_t out[20];
    ASSERT_EQ(MakeKeyExchange3(&s, kRc.data(), 0x04, out), 0);
    EXPECT_EQ(bytes_of(out, 20), code);
    EXPECT_EQ(rakp3_code(padded("secret", 20), kRc, kConsoleSid, 0x04, "admin"), code);
}

TEST(Rakp3Request, CoversNameOnlyLookupTheLongestNameAndAnonymousLogin)
{
    struct Case {
        std::string name;
        const char *password;
        uint8_t role;
    };
    for (const Case &c : {Case{"ABCDEFGHIJKLMNOP", "ABCDEFGHIJKLMNOPQRST", 0x14}, Case{"", "pw", 0x02},
                          Case{"", nullptr, 0x04}, Case{"op", "abcde", 0x13}}) {
        RMCPp_SetupState s = session_state(c.name, c.password);
        uint8_t out[20];
        ASSERT_EQ(MakeKeyExchange3(&s, kRc.data(), c.role, out), 0);
        const Bytes key = c.password ? padded(c.password, 20) : Bytes{};
        EXPECT_EQ(bytes_of(out, 20), rakp3_code(key, kRc, kConsoleSid, c.role, c.name)) << c.name;
    }
}

TEST(Rakp3Request, ReportingAnErrorIsTwentyFourBytesWithoutACode)
{
    RMCPp_SetupState s = session_state();
    uint8_t buffer[24];
    uint32_t length = 0;
    ASSERT_EQ(Make_RAKPMessage3(&s, 3, 15, kRc.data(), 0x04, buffer, sizeof buffer, &length), 0);
    ASSERT_EQ(length, 24u);
    EXPECT_EQ(bytes_of(buffer, length), rakp3_header(8, 15));
}

TEST(Rakp3Request, UnderRakpNoneIsTwentyFourBytesWithStatusZero)
{
    RMCPp_SetupState s = session_state("admin", "secret", 0);
    uint8_t buffer[400];
    uint32_t length = 0;
    ASSERT_EQ(Make_RAKPMessage3(&s, 3, 0, kRc.data(), 0x04, buffer, sizeof buffer, &length), 0);
    ASSERT_EQ(length, 24u);
    EXPECT_EQ(bytes_of(buffer, length), rakp3_header(8, 0));
}

TEST(Rakp3Request, RefusesABufferBelowTwentyFourBytes)
{
    RMCPp_SetupState s = session_state();
    uint8_t buffer[24];
    std::memset(buffer, 0xEE, sizeof buffer);
    uint32_t length = 9;
    clear_trace();
    EXPECT_EQ(Make_RAKPMessage3(&s, 3, 15, kRc.data(), 0x04, buffer, 23, &length), 3);
    EXPECT_EQ(log_lines(), Lines{"Insufficient Data Size.\n"});
    EXPECT_EQ(length, 9u);
    EXPECT_EQ(bytes_of(buffer, 24), Bytes(24, 0xEE));
}

TEST(Rakp3Request, RefusesNoRoomForTheCode)
{
    RMCPp_SetupState s = session_state();
    uint8_t buffer[44];
    uint32_t length = 9;
    clear_trace();
    EXPECT_EQ(Make_RAKPMessage3(&s, 3, 0, kRc.data(), 0x04, buffer, 43, &length), 3);
    EXPECT_EQ(log_lines(), Lines{"Insufficient Data Size.\n"});
    EXPECT_EQ(length, 24u);
    EXPECT_EQ(Make_RAKPMessage3(&s, 3, 0, kRc.data(), 0x04, buffer, 44, &length), 0);
    EXPECT_EQ(length, 44u);
}

TEST(Rakp3Request, RefusesAnUnknownAuthenticationAlgorithm)
{
    RMCPp_SetupState s = session_state("admin", "secret", 2);
    uint8_t buffer[400];
    uint32_t length = 0;
    clear_trace();
    EXPECT_EQ(Make_RAKPMessage3(&s, 3, 0, kRc.data(), 0x04, buffer, sizeof buffer, &length), 3);
    EXPECT_EQ(log_lines(), (Lines{"Not - supported Authentication algorithm.\n",
                                  "Failed to calculate Hash Key for RAKP Message 3.\n\n"}));
}

TEST(Rakp3KeyExchange, UnderRakpNoneWritesNothing)
{
    RMCPp_SetupState s = session_state("admin", "secret", 0);
    uint8_t out[20];
    std::memset(out, 0xEE, sizeof out);
    EXPECT_EQ(MakeKeyExchange3(&s, kRc.data(), 0x04, out), 0);
    EXPECT_EQ(bytes_of(out, 20), Bytes(20, 0xEE));
}

// ------------------------------------------------------------ RAKP 4 check

TEST(Rakp4Check, AcceptsAFittingAnswer)
{
    const auto r = check4(good_rakp4().datagram());
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.used, 12u);
    EXPECT_EQ(r.rakp_status, 0);
    EXPECT_TRUE(r.lines.empty());
}

TEST(Rakp4Check, UnderRakpNoneWantsEightPayloadBytes)
{
    Rakp4 m = good_rakp4();
    m.icv.clear();
    EXPECT_EQ(check4(m.datagram(), 0).code, 0);
    const auto r = check4(good_rakp4().datagram(), 0);
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, Lines{"Received Packet with number of Invalid Payload Length.\n"});
}

TEST(Rakp4Check, SkipsAnotherPayloadType)
{
    const auto r = check4(rmcp_plus(0x13, good_rakp4().payload()));
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.rakp_status, 0);
    EXPECT_EQ(r.lines, (Lines{"Received unexpected Packet.(S_H Payload Type)\n",
                              "Check at IPMI Session Header & Tailer.\n"}));
}

TEST(Rakp4Check, SkipsAPayloadOfSevenBytes)
{
    Bytes p = good_rakp4().payload();
    p.resize(7);
    const auto r = check4(rmcp_plus(0x15, p));
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, Lines{"Received Packet with number of Invalid Payload Length.\n"});
}

TEST(Rakp4Check, RejectsAnotherTagWithStatus18)
{
    Rakp4 m = good_rakp4();
    m.tag = 2;
    const auto r = check4(m.datagram());
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.rakp_status, 18);
    EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid Message Tag.\n"});
}

TEST(Rakp4Check, PrintsAnErrorStatusAndFailsWith65)
{
    Rakp4 m = good_rakp4();
    m.status = 0x0F;
    const auto r = check4(m.datagram());
    EXPECT_EQ(r.code, 65);
    EXPECT_EQ(r.rakp_status, 0);
    EXPECT_EQ(r.lines, (Lines{"[ Status Code ] ", "Invalid integrity check value.\n",
                              "Received Packet with Error Status Code.\n"}));
}

TEST(Rakp4Check, RejectsEitherReservedByteWithStatus18)
{
    for (uint16_t reserved : {0x0001, 0x8000}) {
        Rakp4 m = good_rakp4();
        m.reserved = reserved;
        const auto r = check4(m.datagram());
        EXPECT_EQ(r.code, 66);
        EXPECT_EQ(r.rakp_status, 18);
        EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid value in Reserved field.\n"});
    }
}

TEST(Rakp4Check, RejectsAnotherConsoleSessionIdWithStatus8)
{
    Rakp4 m = good_rakp4();
    m.console_sid = 0;
    const auto r = check4(m.datagram());
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.rakp_status, 8);
    EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid RC Session ID.\n"});
}

TEST(Rakp4Check, RefusesAnUnknownAuthenticationAlgorithmWith3)
{
    const auto r = check4(good_rakp4().datagram(), 5);
    EXPECT_EQ(r.code, 3);
    EXPECT_EQ(r.lines, Lines{"Unsupported Authentication algorithm.\n"});
}

// Unlike RAKP 2, a wrong length here is skipped.
TEST(Rakp4Check, SkipsAPayloadOfTwentyEightBytes)
{
    Rakp4 m = good_rakp4();
    m.icv.resize(20, 0);
    const auto r = check4(m.datagram());
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.rakp_status, 0);
    EXPECT_EQ(r.lines, Lines{"Received Packet with number of Invalid Payload Length.\n"});
}

// ------------------------------------------------- integrity check value

TEST(Rakp4KeyExchange, AcceptsTheFirstTwelveBytesOfTheHmac)
{
    RMCPp_SetupState s = session_state();
    const Bytes full = hmac_sha1(sik_bytes(), cat({kRm, le32(kBmcSid), kGuid}));
    auto r = key4(s, full);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);

    Bytes tail_spoilt = full;
    for (size_t i = 12; i < 20; ++i) tail_spoilt[i] ^= 0xFF;
    r = key4(s, tail_spoilt);
    EXPECT_EQ(r.mismatch, 0);

    for (size_t i : {0u, 11u}) {
        Bytes wrong = full;
        wrong[i] ^= 0x01;
        r = key4(s, wrong);
        EXPECT_EQ(r.code, 0);
        EXPECT_EQ(r.mismatch, 1) << i;
    }
    EXPECT_TRUE(r.lines.empty());
}

TEST(Rakp4KeyExchange, MatchesAFixedVector)
{
    // HMAC-SHA1 computed outside this library (Python's hmac module) under
    // the SIK 60..73 over Rm A0..AF, session ID 0x11223344, GUID 40..4F.
    const Bytes icv = {0x05, 0x17, 0x8b, 0x70, 0xb5, 0x64, 0x41, 0x40, 0xb4, 0x12, 0xe3, 0xfb};
    RMCPp_SetupState s = session_state();
    EXPECT_EQ(rakp4_icv(sik_bytes(), kRm, kBmcSid, kGuid), icv);
    const auto r = key4(s, icv);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);
}

TEST(Rakp4KeyExchange, UnderRakpNoneComparesNothing)
{
    RMCPp_SetupState s = session_state("admin", "secret", 0);
    const auto r = key4(s, Bytes(12, 0x00));
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.mismatch, 0);
}

TEST(Rakp4KeyExchange, RefusesAnUnknownAlgorithm)
{
    RMCPp_SetupState s = session_state("admin", "secret", 3);
    const auto r = key4(s, Bytes(12, 0x00));
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.lines, Lines{"Not-supported Authentication algorithm.\n"});
}

// ------------------------------------------- the phase against a scripted peer

namespace {

// A managed system that answers RAKP 3 with a RAKP 4 carrying the integrity
// check value under the SIK 60..73, after `tweak`; it notes whether the
// RAKP 3 code it received was the right one.
struct Rakp4Peer {
    std::atomic<int> good_codes{0};
    ScriptedPeer::Handler handler(uint8_t auth, std::function<void(Rakp4 &, int)> tweak = {})
    {
        return [this, auth, tweak](const Bytes &request, int index) {
            if (auth == 1 && request.size() == 44 &&
                Bytes(request.begin() + 24, request.end()) ==
                    rakp3_code(padded("secret", 20), kRc, kConsoleSid, 0x04, "admin"))
                ++good_codes;
            Rakp4 m = good_rakp4();
            if (auth == 0) m.icv.clear();
            if (tweak) tweak(m, index);
            return std::vector<Bytes>{m.datagram()};
        };
    }
};

}  // namespace

// The console is "admin" with password "secret" under RAKP-HMAC-SHA1
// unless a test changes the state before run().
class Rakp34Phase : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(link_.opened, 0);
        fill_session(s_, "admin", "secret");
    }

    // Runs RAKP 3/4 against a peer that answers with `handler`, keeping
    // what the peer received.
    int run(ScriptedPeer::Handler handler, uint8_t abort_only = 0)
    {
        ScriptedPeer peer(kPeer, std::move(handler));
        clear_trace();
        const int r = RAKPMessage3_4(&s_, kRm.data(), 0x04, 3, kRc.data(), &rakp_status_, abort_only);
        peer.stop();
        requests_ = peer.requests();
        return r;
    }

    static ScriptedPeer::Handler silent()
    {
        return [](const Bytes &, int) { return std::vector<Bytes>{}; };
    }

    Link link_{kPeer};
    RMCPp_SetupState &s_ = link_.state;
    Rakp4Peer bmc_;
    uint8_t rakp_status_ = 0;
    std::vector<Bytes> requests_;
};

TEST_F(Rakp34Phase, SendsTheCodeAndAcceptsAFittingRakp4)
{
    EXPECT_EQ(run(bmc_.handler(1)), 0);
    EXPECT_EQ(rakp_status_, 0);
    EXPECT_EQ(bmc_.good_codes, 1);
    ASSERT_EQ(requests_.size(), 1u);
    EXPECT_EQ(requests_[0],
              cat({rakp3_header(28, 0), rakp3_code(padded("secret", 20), kRc, kConsoleSid, 0x04, "admin")}));
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(Rakp34Phase, UnderRakpNoneSendsNoCodeAndWantsEightBytes)
{
    fill_session(s_, "", nullptr, 0);
    EXPECT_EQ(run(bmc_.handler(0)), 0);
    ASSERT_EQ(requests_.size(), 1u);
    EXPECT_EQ(requests_[0], rakp3_header(8, 0));
}

TEST_F(Rakp34Phase, AbortSendsTheStatusOnceWithoutWaiting)
{
    rakp_status_ = 15;
    EXPECT_EQ(run(bmc_.handler(1), 1), 66);
    ASSERT_EQ(requests_.size(), 1u);
    EXPECT_EQ(requests_[0], rakp3_header(8, 15));
    EXPECT_EQ(rakp_status_, 15);
    EXPECT_TRUE(log_lines().empty());
    // Nothing was read: the managed system's RAKP 4 still waits in the socket.
    uint8_t left[64];
    EXPECT_EQ(recv(s_.socket_fd, left, sizeof left, MSG_DONTWAIT), 36);
}

TEST_F(Rakp34Phase, AWrongIntegrityCheckValueEndsWith66AndStatus15)
{
    EXPECT_EQ(run(bmc_.handler(1, [](Rakp4 &m, int) { m.icv[11] ^= 0x01; })), 66);
    EXPECT_EQ(rakp_status_, 15);
    EXPECT_EQ(requests_.size(), 1u);
    EXPECT_EQ(log_lines(), Lines{"Received Key of RAKP Message 4 is invalid.\n\n"});
}

TEST_F(Rakp34Phase, AnotherTagEndsWith66AndStatus18)
{
    EXPECT_EQ(run(bmc_.handler(1, [](Rakp4 &m, int) { m.tag = 2; })), 66);
    EXPECT_EQ(rakp_status_, 18);
    EXPECT_EQ(requests_.size(), 1u);
    EXPECT_EQ(log_lines(),
              (Lines{"Received Packet with Invalid Message Tag.\n", "Failed to do RAKP Message 3 & 4.\n"}));
}

TEST_F(Rakp34Phase, AnErrorStatusEndsWith65)
{
    EXPECT_EQ(run(bmc_.handler(1,
                               [](Rakp4 &m, int) {
                                   m.status = 0x0F;
                                   m.icv.clear();
                               })),
              65);
    EXPECT_EQ(requests_.size(), 1u);
    EXPECT_EQ(log_lines(), (Lines{"[ Status Code ] ", "Invalid integrity check value.\n",
                                  "Received Packet with Error Status Code.\n", "Failed to do RAKP Message 3 & 4.\n"}));
}

TEST_F(Rakp34Phase, SkipsTwentyEightPayloadBytesAndResendsAfterTheTimeout)
{
    EXPECT_EQ(run(bmc_.handler(1,
                               [](Rakp4 &m, int index) {
                                   if (index == 0) m.icv.resize(20, 0);
                               })),
              0);
    EXPECT_EQ(rakp_status_, 0);
    ASSERT_EQ(requests_.size(), 2u);
    EXPECT_EQ(requests_[0], requests_[1]);
    EXPECT_EQ(bmc_.good_codes, 2);
    EXPECT_TRUE(logged("Received Packet with number of Invalid Payload Length.\n"));
    EXPECT_EQ(testkit::count_logged("Timeout, now retrying ...\n"), 1);
}

TEST_F(Rakp34Phase, GivesUpWith4WhenNobodyAnswers)
{
    s_.retry_count = 1;
    EXPECT_EQ(run(silent()), 4);
    EXPECT_EQ(requests_.size(), 1u);
    const Lines lines = log_lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "Re-try over.\n");
    EXPECT_EQ(lines.back(), "Failed to do RAKP Message 3 & 4.\n");
}

TEST_F(Rakp34Phase, ARakp3ThatCannotBeBuiltEndsWith3BeforeAnythingIsSent)
{
    fill_session(s_, "admin", "secret", 2);
    EXPECT_EQ(run(silent()), 3);
    EXPECT_EQ(requests_.size(), 0u);
    EXPECT_EQ(log_lines(), (Lines{"Not - supported Authentication algorithm.\n",
                                  "Failed to calculate Hash Key for RAKP Message 3.\n\n",
                                  "Failed to make RAKP Message 3.\n"}));
}
