// Cipher suites 15, 16 and 17 (RAKP-HMAC-SHA256; HMAC-SHA256-128; AES-CBC-128)
// end to end through rmcpp_setup_session, against a scripted managed system
// on 127.0.2.17 that answers the presence ping, Get Channel Authentication
// Capabilities, Open Session, RAKP 1 and RAKP 3 with fixed values of its own
// and computes every code and key itself with OpenSSL: the RAKP 2 code, the
// RAKP 3 code it expects, the SIK, the RAKP 4 integrity check value, K1 and
// K2. It then opens the session's packets with its own K1 and K2 and seals
// its answers the same way.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "sha256_testkit.h"

namespace {

using namespace sha256test;

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
    {"TwoKeyLoginLongestKg", "admin", "secret", "KG-0123456789-abcdef", false},
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
            if (type & 0x40) {
                EXPECT_EQ((d.size() - 4 - 16) % 4, 0u);
            }
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

TEST_P(Sha256Suite, SetsUpWithANullOptionsRecord)
{
    const int suite = GetParam();
    Sha256Bmc bmc;
    configure(bmc, suite, kLogins[0]);
    IPMI_SessionParam p = params(suite, kLogins[0]);
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); });
    ASSERT_EQ(rmcpp_setup_session(&p, nullptr), 0) << testkit::log_text();
    EXPECT_EQ(get_device_id(p).response, packettest::response_to(kGetDeviceId, 0x00, kDeviceId));
    EXPECT_EQ(IPMI_CloseSession(&p), 0);
    peer.stop();
    EXPECT_EQ(bmc.pings, 1);
    ASSERT_EQ(bmc.session_requests.size(), 2u);
    EXPECT_TRUE(bmc.session_requests[0] && bmc.session_requests[1]);
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
