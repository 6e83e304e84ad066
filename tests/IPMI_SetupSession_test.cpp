// The caller's record is checked field by field, in order, before any
// socket is opened; the first failing check decides.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "loopback.h"
#include "run_program.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

// Nothing listens on 127.0.0.13: an establishment toward it fails at the ping.
constexpr uint8_t kNobody = 13;


IPMI_SessionParam valid_param()
{
    IPMI_SessionParam p{};
    p.bmc_address = testkit::loopback(kNobody);
    p.port_option = 0;
    p.user_name = "admin";
    p.user_password = "secret";
    p.privilege_level = 4;
    p.cipher_suite_id = 3;
    p.user_lookup_option = 0;
    p.two_key_login_option = 0;
    p.server_key = nullptr;
    p.slave_address = 0x20;
    p.lun = 0;
    p.local_port = 0;
    p.retry_count = 1;
    p.timeout_sec = 1;
    return p;
}

RMCPp_Session *const kUntouched = reinterpret_cast<RMCPp_Session *>(0x1234);

// Runs a setup that must be refused by the parameter checks.
void expect_refused(IPMI_SessionParam p, const char *message)
{
    testkit::clear_trace();
    p.session = kUntouched;
    const int before = testkit::open_descriptors();
    EXPECT_EQ(IPMI_SetupSession(&p), 1) << message;
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{message});
    EXPECT_EQ(p.session, kUntouched);
    EXPECT_EQ(testkit::open_descriptors(), before);
}

// Runs a setup that passes the checks and fails at the presence ping, which
// nobody answers: the checks let it through to the driver.
void expect_accepted(IPMI_SessionParam p)
{
    testkit::clear_trace();
    p.session = nullptr;
    EXPECT_EQ(IPMI_SetupSession(&p), 34);
    const auto lines = testkit::log_lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.back(), "Failed to set up session.\n");
    EXPECT_EQ(p.session, nullptr);
}

TEST(IPMI_SetupSession, NullRecord)
{
    testkit::clear_trace();
    EXPECT_EQ(IPMI_SetupSession(nullptr), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Null input data.\n"});
}

TEST(IPMI_SetupSession, PortOption)
{
    auto p = valid_param();
    p.port_option = 2;
    expect_refused(p, "Invalid port option.\n");
    p.port_option = -1;
    expect_refused(p, "Invalid port option.\n");
    p.port_option = 1;
    expect_accepted(p);
}

TEST(IPMI_SetupSession, UserNameUpTo16Characters)
{
    auto p = valid_param();
    p.user_name = "abcdefghijklmnopq";
    expect_refused(p, "Invalid user name length.\n");
    p.user_name = "abcdefghijklmnop";
    expect_accepted(p);
}

TEST(IPMI_SetupSession, PasswordUpTo20Characters)
{
    auto p = valid_param();
    p.user_password = "abcdefghijklmnopqrstu";
    expect_refused(p, "Invalid user password length.\n");
    p.user_password = "abcdefghijklmnopqrst";
    expect_accepted(p);
    p.user_password = "";
    expect_accepted(p);
}

TEST(IPMI_SetupSession, AnonymousLoginIsAccepted)
{
    auto p = valid_param();
    p.user_name = nullptr;
    p.user_password = nullptr;
    expect_accepted(p);
}

TEST(IPMI_SetupSession, PrivilegeLevel)
{
    auto p = valid_param();
    p.privilege_level = -1;
    expect_refused(p, "Invalid request privilege level.\n");
    p.privilege_level = 6;
    expect_refused(p, "Invalid request privilege level.\n");
    p.privilege_level = 0;
    expect_accepted(p);
    p.privilege_level = 5;
    expect_accepted(p);
}

TEST(IPMI_SetupSession, CipherSuite)
{
    auto p = valid_param();
    for (int bad : {-1, 4, 17}) {
        p.cipher_suite_id = bad;
        expect_refused(p, "Invalid Chiper Suite ID.\n");
    }
    p.cipher_suite_id = 0;
    expect_accepted(p);
}

TEST(IPMI_SetupSession, LookupOption)
{
    auto p = valid_param();
    p.user_lookup_option = 2;
    expect_refused(p, "Invalid user look-up option.\n");
    p.user_lookup_option = 1;
    expect_accepted(p);
}

TEST(IPMI_SetupSession, TwoKeyLogin)
{
    auto p = valid_param();
    p.two_key_login_option = 1;
    p.server_key = nullptr;
    expect_refused(p, "Input server key.\n");
    p.server_key = "abcdefghijklmnopqrstu";
    expect_refused(p, "Invalid server key length.\n");
    p.server_key = "abcdefghijklmnopqrst";
    expect_accepted(p);
    p.two_key_login_option = 2;
    expect_refused(p, "Invalid two_key_login_option.\n");
}

TEST(IPMI_SetupSession, ServerKeyIgnoredWithoutTwoKeyLogin)
{
    auto p = valid_param();
    p.two_key_login_option = 0;
    p.server_key = "this server key is far longer than twenty characters";
    expect_accepted(p);
}

TEST(IPMI_SetupSession, SlaveAddressAndLun)
{
    auto p = valid_param();
    p.slave_address = 0x21;
    expect_refused(p, "Invalid Slave Address connected to.\n");
    p.slave_address = 0x20;
    p.lun = 4;
    expect_refused(p, "Invalid LUN connected to.\n");
    p.lun = 3;
    expect_accepted(p);
}

TEST(IPMI_SetupSession, RetryCountBeforeTimeout)
{
    auto p = valid_param();
    p.retry_count = 0;
    p.timeout_sec = 0;
    expect_refused(p, "Invalid retry number = 0.\n");
    p.retry_count = 1;
    expect_refused(p, "Invalid timeout = 0.\n");
}

TEST(IPMI_SetupSession, ChecksRunInOrder)
{
    // Every field is wrong: the port option is reported, and each fix
    // uncovers the next check.
    IPMI_SessionParam p{};
    p.port_option = 9;
    p.user_name = "abcdefghijklmnopq";
    p.user_password = "abcdefghijklmnopqrstu";
    p.privilege_level = 7;
    p.cipher_suite_id = 9;
    p.user_lookup_option = 9;
    p.two_key_login_option = 9;
    p.slave_address = 0x21;
    p.lun = 9;
    p.retry_count = 0;
    p.timeout_sec = 0;
    expect_refused(p, "Invalid port option.\n");
    p.port_option = 0;
    expect_refused(p, "Invalid user name length.\n");
    p.user_name = "u";
    expect_refused(p, "Invalid user password length.\n");
    p.user_password = "p";
    expect_refused(p, "Invalid request privilege level.\n");
    p.privilege_level = 2;
    expect_refused(p, "Invalid Chiper Suite ID.\n");
    p.cipher_suite_id = 1;
    expect_refused(p, "Invalid user look-up option.\n");
    p.user_lookup_option = 0;
    expect_refused(p, "Invalid two_key_login_option.\n");
    p.two_key_login_option = 0;
    expect_refused(p, "Invalid Slave Address connected to.\n");
    p.slave_address = 0x20;
    expect_refused(p, "Invalid LUN connected to.\n");
    p.lun = 0;
    expect_refused(p, "Invalid retry number = 0.\n");
    p.retry_count = 1;
    expect_refused(p, "Invalid timeout = 0.\n");
}

}  // namespace
