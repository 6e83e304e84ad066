// Session establishment with OpenIPMI's ipmi_sim, a BMC implementation
// nobody here wrote, started as a black box on 127.0.0.50.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "ipmi_sim_peer.h"
#include "loopback.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

constexpr uint8_t kBmc = 50;

class IpmiSim : public ::testing::Test {
protected:
    static void SetUpTestSuite() { peer_ = new testkit::IpmiSimPeer(kBmc, testkit::default_ipmi_sim_users()); }
    static void TearDownTestSuite()
    {
        delete peer_;
        peer_ = nullptr;
    }
    void SetUp() override { testkit::clear_trace(); }

    static IPMI_SessionParam param(const char *user, const char *password, int suite, int privilege = 0)
    {
        IPMI_SessionParam p{};
        p.bmc_address = testkit::loopback(kBmc);
        p.user_name = user;
        p.user_password = password;
        p.privilege_level = privilege;
        p.cipher_suite_id = suite;
        p.slave_address = 0x20;
        p.retry_count = 2;
        p.timeout_sec = 1;
        // ipmi_sim finds users by name only (see NameAndPrivilegeLookup).
        p.user_lookup_option = 1;
        return p;
    }

    // Releases an established session without a Close Session exchange.
    static void drop(IPMI_SessionParam &p)
    {
        close(p.session->socket_fd);
        std::free(p.session);
        p.session = nullptr;
    }

    static testkit::IpmiSimPeer *peer_;
};

testkit::IpmiSimPeer *IpmiSim::peer_ = nullptr;

TEST_F(IpmiSim, EstablishesEachCipherSuite)
{
    for (int suite = 0; suite <= 3; ++suite) {
        testkit::clear_trace();
        auto p = param("admin", "password", suite, 4);
        ASSERT_EQ(IPMI_SetupSession(&p), 0) << "suite " << suite << "\n" << testkit::log_text();
        EXPECT_EQ(p.granted_privilege, 4u);
        EXPECT_EQ(p.session->integrity_alg, suite >= 2 ? 1 : 0);
        EXPECT_EQ(p.session->confidentiality_alg, suite >= 3 ? 1 : 0);
        EXPECT_NE(p.session->bmc_session_id, 0u);
        EXPECT_EQ(p.session->send_seq_auth, 1u);
        EXPECT_EQ(p.session->send_seq_unauth, 1u);
        drop(p);
    }
}

TEST_F(IpmiSim, PrivilegeZeroTakesWhatOpenSessionGrants)
{
    // ipmi_sim answers an Open Session request for "the highest level"
    // (privilege 0) with a maximum privilege level of 0 itself; the RAKP
    // role is then 0 and the session is established all the same.
    for (int suite = 0; suite <= 3; ++suite) {
        testkit::clear_trace();
        auto p = param("admin", "password", suite, 0);
        ASSERT_EQ(IPMI_SetupSession(&p), 0) << "suite " << suite << "\n" << testkit::log_text();
        EXPECT_EQ(p.granted_privilege, 0u);
        drop(p);
    }
}

TEST_F(IpmiSim, ExplicitPrivilegeIsGrantedAsAsked)
{
    for (int privilege : {1, 2, 3, 4}) {
        testkit::clear_trace();
        auto p = param("admin", "password", 3, privilege);
        ASSERT_EQ(IPMI_SetupSession(&p), 0) << "privilege " << privilege << "\n" << testkit::log_text();
        EXPECT_EQ(p.granted_privilege, static_cast<uint32_t>(privilege));
        drop(p);
    }
}

TEST_F(IpmiSim, NameAndPrivilegeLookupNeedsTheUsersOwnLevel)
{
    // Look-up by name and privilege finds a user only at exactly its own
    // maximum privilege level.
    auto p = param("oper", "operpass", 2, 3);
    p.user_lookup_option = 0;
    ASSERT_EQ(IPMI_SetupSession(&p), 0) << testkit::log_text();
    EXPECT_EQ(p.granted_privilege, 3u);
    drop(p);

    testkit::clear_trace();
    p = param("oper", "operpass", 2, 2);
    p.user_lookup_option = 0;
    EXPECT_EQ(IPMI_SetupSession(&p), 65) << testkit::log_text();
    EXPECT_TRUE(testkit::logged("Unauthorized name.\n"));
    EXPECT_EQ(p.session, nullptr);
}

TEST_F(IpmiSim, WrongPasswordFailsTheRakp2Check)
{
    for (int suite = 1; suite <= 3; ++suite) {
        testkit::clear_trace();
        auto p = param("admin", "wrong", suite, 4);
        EXPECT_EQ(IPMI_SetupSession(&p), 65) << testkit::log_text();
        EXPECT_TRUE(testkit::logged("Received Key of RAKP Message 2 is invalid.\n\n"));
        EXPECT_EQ(p.session, nullptr);
    }
}

TEST_F(IpmiSim, UnknownUserIsRefused)
{
    auto p = param("nobody", "password", 3, 4);
    EXPECT_EQ(IPMI_SetupSession(&p), 65) << testkit::log_text();
    EXPECT_TRUE(testkit::logged_together({"[ Status Code ] ", "Unauthorized name.\n"}));
    EXPECT_TRUE(testkit::logged("Received Packet with Error Status Code.\n"));
    EXPECT_EQ(p.session, nullptr);
}

TEST_F(IpmiSim, PrivilegeAboveTheUsersLimitIsRefused)
{
    // "usr" may be at most User (2). Asked by name and privilege for
    // Administrator, ipmi_sim finds no such user.
    auto p = param("usr", "userpass", 3, 4);
    p.user_lookup_option = 0;
    EXPECT_EQ(IPMI_SetupSession(&p), 65) << testkit::log_text();
    EXPECT_TRUE(testkit::logged("Unauthorized name.\n"));
    EXPECT_EQ(p.session, nullptr);
}

TEST_F(IpmiSim, PrivilegeAboveTheChannelLimitIsRefused)
{
    // OEM (5) is above the channel's limit: Get Channel Authentication
    // Capabilities already answers with completion code 0xCC.
    auto p = param("admin", "password", 3, 5);
    EXPECT_EQ(IPMI_SetupSession(&p), 67) << testkit::log_text();
    EXPECT_TRUE(testkit::logged("Unexpected Completion Code = cch\n"));
    EXPECT_EQ(p.session, nullptr);
}

}  // namespace
