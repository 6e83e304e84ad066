// Session establishment with OpenIPMI's ipmi_sim, a BMC implementation
// nobody here wrote, started as a black box on 127.0.0.50.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "ipmi_sim_peer.h"
#include "run_program.h"
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

    // Ends an established session with Close Session. ipmi_sim drops the
    // default key mode's integrity-protected packets (see
    // DefaultKeyModeSuites2And3FailCleanly): that Close Session goes
    // unanswered and ends in 4, and the session is released all the same.
    static void drop(IPMI_SessionParam &p)
    {
        const int expected = p.session->integrity_alg != 0 && RMCPStandardKeys == 0 ? 4 : 0;
        EXPECT_EQ(IPMI_CloseSession(&p), expected) << testkit::log_text();
        EXPECT_EQ(p.session, nullptr);
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

// --- IPMI messages over the session ------------------------------------

struct Reply {
    int code;
    uint8_t completion_code;
    std::vector<uint8_t> data;
};

Reply exchange(IPMI_SessionParam &p, uint8_t netfn, uint8_t cmd, uint8_t seq)
{
    const IPMI_MsgHeader h = {netfn, 0x81, cmd, 0, seq, static_cast<uint8_t>(netfn + 1), 0x20, 0};
    uint8_t request[16], response[128];
    int length = 0;
    EXPECT_EQ(MakeIPMIRequest(&h, nullptr, 0, request, sizeof request, &length), 0);
    uint32_t received = 0, released = 0;
    Reply r{IPMI_Message_IF(&p, request, static_cast<uint32_t>(length), response, sizeof response, &received, 0,
                            &released, 2, 1),
            0, {}};
    if (r.code == 0 && received >= 8) {
        r.completion_code = response[6];
        r.data.assign(response + 7, response + received - 1);
    }
    return r;
}


class IpmiSimMessages : public IpmiSim {
protected:
    void TearDown() override { IPMI_SetupStandardKeys(0); }

    // Get Device ID and Get Chassis Status, then Close Session.
    void use_session(int suite)
    {
        auto p = param("admin", "password", suite, 4);
        ASSERT_EQ(IPMI_SetupSession(&p), 0) << "suite " << suite << "\n" << testkit::log_text();
        const Reply device = exchange(p, 0x06, 0x01, 1);
        ASSERT_EQ(device.code, 0) << "suite " << suite << "\n" << testkit::log_text();
        EXPECT_EQ(device.completion_code, 0);
        ASSERT_GE(device.data.size(), 11u);
        // ipmi_sim's command file adds the BMC as device 0, revision 3,
        // firmware 9.08, manufacturer 0x1291 and product 0x0f02.
        EXPECT_EQ(device.data[0], 0x00);
        EXPECT_EQ(device.data[1] & 0x0F, 0x03);
        EXPECT_EQ(device.data[6] | (device.data[7] << 8) | (device.data[8] << 16), 0x1291);
        EXPECT_EQ(device.data[9] | (device.data[10] << 8), 0x0f02);

        const Reply chassis = exchange(p, 0x00, 0x01, 2);
        ASSERT_EQ(chassis.code, 0) << testkit::log_text();
        EXPECT_EQ(chassis.completion_code, 0);
        EXPECT_GE(chassis.data.size(), 3u);

        EXPECT_EQ(IPMI_CloseSession(&p), 0) << testkit::log_text();
        EXPECT_EQ(p.session, nullptr);
    }
};

TEST_F(IpmiSimMessages, DefaultKeyModeSuites0And1)
{
    for (int suite : {0, 1}) use_session(suite);
}

TEST_F(IpmiSimMessages, StandardKeyModeSuites0To3)
{
    IPMI_SetupStandardKeys(1);
    for (int suite = 0; suite <= 3; ++suite) use_session(suite);
}

TEST_F(IpmiSimMessages, DefaultKeyModeSuites2And3FailCleanly)
{
    // ipmi_sim checks integrity codes with K1; this library's default mode
    // keys them with the SIK, so ipmi_sim drops every request unanswered.
    // The exchange gives up after its attempts with 4, Close Session after
    // its single one-second attempt, and the session is released.
    for (int suite : {2, 3}) {
        testkit::clear_trace();
        const int before = testkit::open_descriptors();
        auto p = param("admin", "password", suite, 4);
        ASSERT_EQ(IPMI_SetupSession(&p), 0) << testkit::log_text();
        const auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(exchange(p, 0x06, 0x01, 1).code, 4);
        EXPECT_EQ(IPMI_CloseSession(&p), 4);
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
        EXPECT_EQ(p.session, nullptr);
        EXPECT_EQ(testkit::open_descriptors(), before);
    }
}

// --- the rmcpp tool --------------------------------------------------------

testkit::ProgramResult tool(int suite, bool standard, std::vector<std::string> command)
{
    std::vector<std::string> a = {RMCPP_CLI, "-H", testkit::loopback_text(kBmc), "-U", "admin", "-P", "password",
                                  "-C", std::to_string(suite), "--name-only", "-R", "2", "-N", "1"};
    if (standard) a.push_back("--standard-keys");
    a.insert(a.end(), command.begin(), command.end());
    return testkit::run_program(a);
}

void tool_tour(int suite, bool standard)
{
    const std::string label = "suite " + std::to_string(suite) + (standard ? " standard keys" : "");
    auto r = tool(suite, standard, {"mc", "info"});
    EXPECT_EQ(r.exit_code, 0) << label << r.err;
    EXPECT_NE(r.out.find("Firmware Revision         : 9.08\n"), std::string::npos) << label << r.out;
    EXPECT_NE(r.out.find("Manufacturer ID           : 4753\n"), std::string::npos) << label << r.out;
    r = tool(suite, standard, {"chassis", "status"});
    EXPECT_EQ(r.exit_code, 0) << label << r.err;
    EXPECT_NE(r.out.find("System Power         : "), std::string::npos) << label << r.out;
    r = tool(suite, standard, {"raw", "6", "1"});
    EXPECT_EQ(r.exit_code, 0) << label << r.err;
    EXPECT_EQ(r.out.substr(0, 15), "00 03 09 08 02 ") << label << r.out;
    r = tool(suite, standard, {"session"});
    EXPECT_EQ(r.exit_code, 0) << label << r.err;
    EXPECT_NE(r.out.find("Closed             : true"), std::string::npos) << label << r.out;
}

TEST_F(IpmiSim, ToolInDefaultKeyModeSuites0And1)
{
    for (int suite : {0, 1}) tool_tour(suite, false);
}

TEST_F(IpmiSim, ToolWithStandardKeysSuites0To3)
{
    for (int suite = 0; suite <= 3; ++suite) tool_tour(suite, true);
}

}  // namespace
