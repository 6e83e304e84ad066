// Whole establishments with IPMI_SetupSession against the BMC simulator,
// which computes its keys and codes on its own; every step the managed
// system can refuse or get wrong, end to end.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "bmcsim.h"
#include "loopback.h"
#include "run_program.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using bmcsim::EstFault;
using bmcsim::Kind;

constexpr uint8_t kBmc = 17;


class Establishment : public ::testing::Test {
protected:
    void SetUp() override
    {
        bmcsim::Config c;
        c.address = testkit::loopback_text(kBmc);
        c.users = {{"admin", "password", 4, true}, {"oper", "op", 3, true}, {"", "", 2, true}};
        sim_ = std::make_unique<bmcsim::Simulator>(c);
        sim_->start();
        testkit::clear_trace();
        descriptors_ = testkit::open_descriptors();
    }
    void TearDown() override
    {
        sim_->stop();
        if (p_.session) {
            close(p_.session->socket_fd);
            std::free(p_.session);
            p_.session = nullptr;
        }
    }

    IPMI_SessionParam &param(int suite, const char *user = "admin", const char *password = "password",
                             int privilege = 4)
    {
        std::memset(&p_, 0, sizeof p_);
        p_.bmc_address = testkit::loopback(kBmc);
        p_.user_name = user;
        p_.user_password = password;
        p_.privilege_level = privilege;
        p_.cipher_suite_id = suite;
        p_.slave_address = 0x20;
        p_.retry_count = 2;
        p_.timeout_sec = 1;
        return p_;
    }

    // A failed establishment leaves no session and no open descriptor.
    void expect_failure(int code)
    {
        EXPECT_EQ(IPMI_SetupSession(&p_), code) << testkit::log_text();
        EXPECT_EQ(p_.session, nullptr);
        EXPECT_EQ(testkit::open_descriptors(), descriptors_);
        EXPECT_EQ(testkit::log_lines().back(), "Failed to set up session.\n");
    }

    // The session the simulator opened for this client.
    bmcsim::SessionInfo sim_session() const
    {
        const auto s = sim_->stats();
        for (const auto &info : s.sessions)
            if (p_.session && info.bmc_id == p_.session->bmc_session_id) return info;
        ADD_FAILURE() << "the simulator has no such session";
        return {};
    }

    std::unique_ptr<bmcsim::Simulator> sim_;
    IPMI_SessionParam p_{};
    int descriptors_ = 0;
};

TEST_F(Establishment, EachSuiteAgreesOnIdsAndKeys)
{
    for (int suite = 0; suite <= 3; ++suite) {
        param(suite);
        ASSERT_EQ(IPMI_SetupSession(&p_), 0) << "suite " << suite << "\n" << testkit::log_text();
        const RMCPp_Session *s = p_.session;
        const auto info = sim_session();
        EXPECT_EQ(s->console_session_id, info.console_id);
        EXPECT_EQ(s->bmc_session_id, info.bmc_id);
        EXPECT_EQ(s->integrity_alg, suite >= 2 ? 1 : 0);
        EXPECT_EQ(s->confidentiality_alg, suite >= 3 ? 1 : 0);
        EXPECT_EQ(0, std::memcmp(s->sik, info.sik.data(), 20)) << "suite " << suite;
        EXPECT_EQ(0, std::memcmp(s->cipher_key, info.k2.data(), 20)) << "suite " << suite;
        if (suite == 0) {
            EXPECT_EQ(std::string(20, '\0'), std::string(reinterpret_cast<const char *>(s->sik), 20));
        }
        if (suite < 3) {
            EXPECT_EQ(std::string(20, '\0'), std::string(reinterpret_cast<const char *>(s->cipher_key), 20));
        }
        EXPECT_EQ(s->send_seq_auth, 1u);
        EXPECT_EQ(s->send_seq_unauth, 1u);
        EXPECT_EQ(s->recv_window_auth, 0xFFFF);
        EXPECT_EQ(s->recv_window_unauth, 0xFFFF);
        EXPECT_EQ(s->closed, 0);
        EXPECT_EQ(s->auth_option, 0);
        EXPECT_EQ(p_.granted_privilege, 4u);
        close(p_.session->socket_fd);
        std::free(p_.session);
        p_.session = nullptr;
    }
}

TEST_F(Establishment, PrivilegeZeroAsksAdministratorFirstThenWhateverIsGranted)
{
    sim_->modify([](bmcsim::Config &c) { c.channel_max_privilege = 3; });
    param(3, "oper", "op", 0);
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
    EXPECT_EQ(p_.granted_privilege, 3u);
    const auto stats = sim_->stats();
    // Get Channel Authentication Capabilities: privilege byte 4 (offset 21).
    ASSERT_EQ(stats.of(Kind::Capabilities).size(), 1u);
    EXPECT_EQ(stats.of(Kind::Capabilities)[0][21], 4);
    // Open Session asks for 0 (offset 17); RAKP 1 carries the granted 3.
    EXPECT_EQ(stats.of(Kind::OpenSession)[0][17], 0);
    EXPECT_EQ(stats.of(Kind::Rakp1)[0][40], 3);
    EXPECT_EQ(sim_session().role, 3);
}

TEST_F(Establishment, NameOnlyLookupSetsTheRoleBit)
{
    param(3, "admin", "password", 4);
    p_.user_lookup_option = 1;
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
    const auto stats = sim_->stats();
    EXPECT_EQ(stats.of(Kind::OpenSession)[0][17], 4);
    EXPECT_EQ(stats.of(Kind::Rakp1)[0][40], 0x14);
    EXPECT_EQ(sim_session().role, 0x14);
}

TEST_F(Establishment, AnonymousLogin)
{
    param(3, nullptr, nullptr, 2);
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
    const auto rakp1 = sim_->stats().of(Kind::Rakp1)[0];
    EXPECT_EQ(rakp1.size(), 44u);
    EXPECT_EQ(rakp1[43], 0);
}

TEST_F(Establishment, EmptyNameAndPasswordAreTheAnonymousUserToo)
{
    param(2, "", "", 2);
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
}

TEST_F(Establishment, ShortPasswordIsPaddedToTwentyBytes)
{
    sim_->modify([](bmcsim::Config &c) { c.users.push_back({"short", "pw", 4, true}); });
    param(3, "short", "pw", 4);
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
}

TEST_F(Establishment, TwoKeyLoginKeysTheSikWithKg)
{
    const std::string kg = "0123456789abcdefghij";
    sim_->modify([&](bmcsim::Config &c) { c.kg.assign(kg.begin(), kg.end()); });
    param(3);
    p_.two_key_login_option = 1;
    p_.server_key = kg.c_str();
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
    EXPECT_EQ(0, std::memcmp(p_.session->sik, sim_session().sik.data(), 20));
}

TEST_F(Establishment, WrongKgFailsAtRakp4)
{
    sim_->modify([](bmcsim::Config &c) { c.kg = bmcsim::Bytes(20, 0x4B); });
    param(3);
    p_.two_key_login_option = 1;
    p_.server_key = "wrong key";
    expect_failure(66);
    EXPECT_TRUE(testkit::logged("Received Key of RAKP Message 4 is invalid.\n\n"));
}

TEST_F(Establishment, KgSetWithoutTwoKeyLoginKeysTheSikWithAnEmptyKey)
{
    // The channel reports Kg set; without two-key login the console keys
    // the SIK with an empty key, the managed system with Kg: RAKP 4 fails.
    sim_->modify([](bmcsim::Config &c) { c.kg = bmcsim::Bytes(20, 0x4B); });
    param(3);
    expect_failure(66);
    EXPECT_TRUE(testkit::logged("Received Key of RAKP Message 4 is invalid.\n\n"));
}

TEST_F(Establishment, TwoKeyLoginNeedsKgSet)
{
    param(3);
    p_.two_key_login_option = 1;
    p_.server_key = "anything";
    expect_failure(1);
    EXPECT_TRUE(testkit::logged("Not-permit 2 key login.\n"));
    EXPECT_EQ(sim_->stats().count(Kind::OpenSession), 0u);
}

TEST_F(Establishment, NoIpmi20Support)
{
    sim_->modify([](bmcsim::Config &c) { c.capabilities.ipmi20_extended = false; });
    param(3);
    expect_failure(35);
    EXPECT_TRUE(testkit::logged("IPMI v 2.0 is not supported.\n"));
    EXPECT_TRUE(testkit::logged("Not Supported RMCP+.\n"));

    sim_->modify([](bmcsim::Config &c) {
        c.capabilities.ipmi20_extended = true;
        c.capabilities.ipmi20_connections = false;
    });
    testkit::clear_trace();
    expect_failure(35);
    EXPECT_TRUE(testkit::logged("channel not supports IPMI v2.0 connection.\n"));
}

TEST_F(Establishment, RequestedRoleNotGrantedAsAsked)
{
    sim_->modify([](bmcsim::Config &c) {
        c.open_session.fault = EstFault::GrantedPrivilege;
        c.open_session.value = 4;
    });
    param(3, "admin", "password", 3);
    expect_failure(39);
    EXPECT_TRUE(testkit::logged("Server doesn't allow requested role.\n"));
    EXPECT_EQ(sim_->stats().count(Kind::Rakp1), 0u);
}

TEST_F(Establishment, AlgorithmMismatches)
{
    struct Case {
        EstFault fault;
        int code;
        const char *message;
        const char *values;
    } cases[] = {
        {EstFault::AuthAlgorithm, 36, "Mismatch Authentication Algorithm.\n", "Client(1) <--> Server(2).\n"},
        {EstFault::IntegrityAlgorithm, 37, "Mismatch Integrity Algorithm.\n", "Client(1) <--> Server(2).\n"},
        {EstFault::ConfidentialityAlgorithm, 38, "Mismatch Confidentiality Algorithm.\n",
         "Client(1) <--> Server(2).\n"},
    };
    for (const auto &c : cases) {
        sim_->modify([&](bmcsim::Config &cfg) {
            cfg.open_session.fault = c.fault;
            cfg.open_session.value = 2;
        });
        testkit::clear_trace();
        param(3);
        expect_failure(c.code);
        EXPECT_TRUE(testkit::logged_together({c.message, c.values})) << c.message;
    }
}

TEST_F(Establishment, UnknownUserIsReportedWithItsStatusCode)
{
    param(3, "nobody", "password");
    expect_failure(65);
    EXPECT_TRUE(testkit::logged_together({"[ Status Code ] ", "Unauthorized name.\n"}));
}

TEST_F(Establishment, WrongPasswordSendsRakp3WithStatus15AndGivesUp)
{
    param(3, "admin", "wrong");
    expect_failure(65);
    EXPECT_TRUE(testkit::logged("Received Key of RAKP Message 2 is invalid.\n\n"));
    ASSERT_TRUE(sim_->wait_for(Kind::Rakp3, 1, std::chrono::milliseconds(1000)));
    const auto rakp3 = sim_->stats().of(Kind::Rakp3);
    ASSERT_EQ(rakp3.size(), 1u);
    EXPECT_EQ(rakp3[0].size(), 24u);
    EXPECT_EQ(rakp3[0][17], 15);        // status
    EXPECT_EQ(rakp3[0][14], 8);         // payload length
    EXPECT_EQ(rakp3[0][16], 3);         // tag
}

TEST_F(Establishment, WrongKeyExchangeCodeInRakp2)
{
    sim_->modify([](bmcsim::Config &c) { c.rakp2.fault = EstFault::KeyExchangeCode; });
    param(2);
    expect_failure(65);
    EXPECT_TRUE(testkit::logged("Received Key of RAKP Message 2 is invalid.\n\n"));
}

TEST_F(Establishment, WrongIntegrityCheckValueInRakp4)
{
    sim_->modify([](bmcsim::Config &c) { c.rakp4.fault = EstFault::IntegrityCheckValue; });
    param(1);
    expect_failure(66);
    EXPECT_TRUE(testkit::logged("Received Key of RAKP Message 4 is invalid.\n\n"));
    EXPECT_TRUE(testkit::logged("Failed to do RAKP Message 3 & 4.\n"));
}

TEST_F(Establishment, RakpNoneNeedsNoCodes)
{
    param(0, "admin", "unchecked");
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
    const auto rakp3 = sim_->stats().of(Kind::Rakp3);
    ASSERT_EQ(rakp3.size(), 1u);
    EXPECT_EQ(rakp3[0].size(), 24u);
    EXPECT_EQ(rakp3[0][17], 0);
}

TEST_F(Establishment, StatusCodesOfEachPhase)
{
    struct Case {
        bmcsim::EstablishmentBehaviour bmcsim::Config::*phase;
        const char *failed;
    } cases[] = {
        {&bmcsim::Config::open_session, "Failed to do Open Session Request / Response.\n"},
        {&bmcsim::Config::rakp2, "Failed to do RAKP Message 1 & 2.\n"},
        {&bmcsim::Config::rakp4, "Failed to do RAKP Message 3 & 4.\n"},
    };
    for (const auto &c : cases) {
        sim_->modify([&](bmcsim::Config &cfg) {
            cfg.open_session = cfg.rakp2 = cfg.rakp4 = {};
            (cfg.*c.phase).fault = EstFault::Status;
            (cfg.*c.phase).value = 0x12;
        });
        testkit::clear_trace();
        param(3);
        expect_failure(65);
        EXPECT_TRUE(testkit::logged_together(
            {"[ Status Code ] ", "Illegal or unrecognized parameter.\n", "Received Packet with Error Status Code.\n"}))
            << c.failed;
        EXPECT_TRUE(testkit::logged(c.failed));
    }
}

TEST_F(Establishment, WrongTagEndsThePhaseAtOnce)
{
    sim_->modify([](bmcsim::Config &c) {
        c.rakp2.fault = EstFault::Tag;
        c.rakp2.value = 7;
    });
    param(3);
    expect_failure(66);
    EXPECT_TRUE(testkit::logged("Received Packet with Invalid Message Tag.\n"));
    EXPECT_EQ(sim_->stats().count(Kind::Rakp1), 1u);
}

TEST_F(Establishment, SkippedDatagramsKeepTheWaitGoing)
{
    // A wrong session ID in the header, an authenticated bit set: skipped
    // (69), and the correct answer that follows is taken in the same wait.
    for (EstFault f : {EstFault::SessionId, EstFault::AuthenticatedBit, EstFault::SequenceNumber}) {
        sim_->modify([&](bmcsim::Config &c) {
            c.open_session = c.rakp2 = c.rakp4 = {};
            for (auto *phase : {&c.open_session, &c.rakp2, &c.rakp4}) {
                phase->fault = f;
                phase->reply.faulty_answers = 1;
                phase->reply.then_correct = true;
            }
        });
        testkit::clear_trace();
        param(3);
        ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
        const auto stats = sim_->stats();
        EXPECT_EQ(stats.count(Kind::OpenSession), 1u);
        EXPECT_EQ(stats.count(Kind::Rakp1), 1u);
        EXPECT_EQ(stats.count(Kind::Rakp3), 1u);
        EXPECT_EQ(testkit::count_logged("Check at IPMI Session Header & Tailer.\n"), 3);
        close(p_.session->socket_fd);
        std::free(p_.session);
        p_.session = nullptr;
        sim_->clear_stats();
    }
}

TEST_F(Establishment, StrayDatagramsBeforeEachAnswer)
{
    sim_->modify([](bmcsim::Config &c) {
        for (auto *r : {&c.ping.reply, &c.capabilities.reply, &c.open_session.reply, &c.rakp2.reply, &c.rakp4.reply}) {
            r->strays = 2;
            r->stray_kind = bmcsim::StrayKind::BadRmcpHeader;
        }
    });
    param(3);
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
    EXPECT_EQ(testkit::count_logged("Receive Packet with Invalid RMCP Header.\n"), 8);
}

TEST_F(Establishment, LateAnswerIsReadAfterTheResend)
{
    sim_->modify([](bmcsim::Config &c) { c.rakp2.reply.delay_ms = 1300; });
    param(3);
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
    EXPECT_EQ(sim_->stats().count(Kind::Rakp1), 2u);
    EXPECT_EQ(testkit::count_logged("Timeout, now retrying ...\n"), 1);
}

TEST_F(Establishment, SilenceUsesTheRetries)
{
    sim_->modify([](bmcsim::Config &c) { c.open_session.reply.silent = true; });
    param(3);
    expect_failure(4);
    EXPECT_EQ(sim_->stats().count(Kind::OpenSession), 2u);
    EXPECT_TRUE(testkit::logged("Re-try over.\n"));
}

}  // namespace

namespace {

std::string hmac_sha1(const uint8_t *key, size_t key_length, uint8_t fill, size_t length)
{
    const std::string data(length, static_cast<char>(fill));
    uint8_t out[20];
    unsigned int n = 0;
    HMAC(EVP_sha1(), key, static_cast<int>(key_length), reinterpret_cast<const uint8_t *>(data.data()), data.size(),
         out, &n);
    return std::string(reinterpret_cast<char *>(out), n);
}

std::string bytes(const uint8_t *p, size_t n) { return std::string(reinterpret_cast<const char *>(p), n); }

TEST_F(Establishment, StandardKeyModeDerivesK1AndTwentyByteK2)
{
    IPMI_SetupStandardKeys(0x101);
    EXPECT_EQ(RMCPStandardKeys, 1);
    param(3);
    const int r = IPMI_SetupSession(&p_);
    IPMI_SetupStandardKeys(0);
    ASSERT_EQ(r, 0) << testkit::log_text();
    const auto info = sim_session();
    EXPECT_EQ(bytes(p_.session->sik, 20), hmac_sha1(info.sik.data(), 20, 0x01, 20));
    EXPECT_EQ(bytes(p_.session->cipher_key, 20), hmac_sha1(info.sik.data(), 20, 0x02, 20));
}

TEST_F(Establishment, StandardKeyModeWithoutConfidentialityKeepsTheCipherKeyZero)
{
    IPMI_SetupStandardKeys(1);
    param(2);
    const int r = IPMI_SetupSession(&p_);
    IPMI_SetupStandardKeys(0);
    ASSERT_EQ(r, 0) << testkit::log_text();
    const auto info = sim_session();
    EXPECT_EQ(bytes(p_.session->sik, 20), hmac_sha1(info.sik.data(), 20, 0x01, 20));
    EXPECT_EQ(bytes(p_.session->cipher_key, 20), std::string(20, '\0'));
}

TEST_F(Establishment, LibraryKeyModeIsTheDefault)
{
    EXPECT_EQ(RMCPStandardKeys, 0);
    param(3);
    ASSERT_EQ(IPMI_SetupSession(&p_), 0) << testkit::log_text();
    const auto info = sim_session();
    EXPECT_EQ(bytes(p_.session->sik, 20), bytes(info.sik.data(), 20));
    EXPECT_EQ(bytes(p_.session->cipher_key, 20), hmac_sha1(info.sik.data(), 20, 0x02, 64));
}

}  // namespace
