// Debian's ipmitool, run as a black box with -C 15, 16 and 17, against the
// scripted SHA-256 managed system of sha256_testkit.h on 127.0.2.18: a
// second, independent client that must agree with every code and key the
// managed system computes (RAKP 2 code, RAKP 3 code, SIK, RAKP 4 value, K1,
// K2). What the library's suites 15-17 tests compare against is thereby
// checked against a client nobody here wrote.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bmcsim_clients.h"
#include "sha256_testkit.h"

namespace {

using namespace sha256test;
using namespace std::chrono_literals;

constexpr uint32_t kAddress = 0x7F000212;  // 127.0.2.18
constexpr const char *kAddressText = "127.0.2.18";

using simtest::output;

bool ipmitool_installed() { return !simtest::find_program("ipmitool").empty(); }

// ipmitool's one-command session toward the scripted managed system.
testkit::ProgramResult ipmitool(int suite, const std::string &user, const std::string &password,
                                const std::vector<std::string> &extra, const std::vector<std::string> &command)
{
    std::vector<std::string> argv{"ipmitool", "-I", "lanplus", "-H", kAddressText, "-U", user, "-P", password,
                                  "-C", std::to_string(suite), "-L", "ADMINISTRATOR", "-N", "1", "-R", "1"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    argv.insert(argv.end(), command.begin(), command.end());
    return testkit::run_program(argv, 30s);
}

struct Case {
    const char *label;
    const char *name;
    const char *password;
    const char *kg;  // non-null: the channel has this Kg and ipmitool is given it
};

const Case kCases[] = {
    {"NamedUser", "admin", "secret", nullptr},
    {"LongestNameAndPassword", "abcdefghijklmnop", "ABCDEFGHIJKLMNOPQRST", nullptr},
    {"TwoKeyLogin", "admin", "secret", "kg-of-the-bmc"},
};

class IpmitoolSha256 : public ::testing::TestWithParam<std::tuple<int, Case>> {
protected:
    void SetUp() override { ASSERT_TRUE(ipmitool_installed()) << "ipmitool is not installed (Debian package ipmitool)"; }
};

TEST_P(IpmitoolSha256, AgreesWithEveryCodeAndKeyOfTheScriptedManagedSystem)
{
    const int suite = std::get<0>(GetParam());
    const Case c = std::get<1>(GetParam());
    Sha256Bmc bmc;
    bmc.suite = suite;
    bmc.password = c.password;
    if (c.kg) bmc.kg = c.kg;
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); }, kAddress);

    const std::vector<std::string> extra = c.kg ? std::vector<std::string>{"-k", c.kg} : std::vector<std::string>{};
    const testkit::ProgramResult r = ipmitool(suite, c.name, c.password, extra, {"raw", "6", "1"});
    peer.stop();
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 0) << output(r);
    // ipmitool took the managed system's RAKP 2 code and RAKP 4 value and
    // opened its K1/K2-protected Get Device ID answer.
    EXPECT_NE(r.out.find(" 20 81 05 02 02 bf 57 01 00 34 12 01 00 00 00"), std::string::npos) << output(r);

    EXPECT_EQ(bmc.proposed[0], 3);
    EXPECT_EQ(bmc.proposed[1], bmc.integrity_alg());
    EXPECT_EQ(bmc.proposed[2], bmc.confidentiality_alg());
    EXPECT_EQ(bmc.name, c.name);

    // ipmitool's RAKP 3 code is the managed system's own HMAC-SHA256.
    ASSERT_EQ(bmc.rakp3.size(), 56u) << output(r);
    EXPECT_EQ(bmc.rakp3[17], 0);
    EXPECT_EQ(Bytes(bmc.rakp3.begin() + 24, bmc.rakp3.end()),
              rakp3_code(bmc.kuid(), bmc.rc, bmc.console_sid, bmc.rakp_role, bmc.name));

    // Every session packet ipmitool sent opened with the managed system's K1
    // and K2, protected as the suite says; the last one closed the session.
    ASSERT_FALSE(bmc.session_requests.empty());
    for (size_t i = 0; i < bmc.session_requests.size(); ++i) {
        const auto &q = bmc.session_requests[i];
        ASSERT_TRUE(q) << "packet " << i << " did not open with the managed system's keys";
        EXPECT_EQ(q->payload_type, protection_of(suite));
        EXPECT_EQ(q->session_id, kBmcSid);
    }
    const Bytes &last = bmc.session_requests.back()->message;
    ASSERT_GE(last.size(), 7u);
    EXPECT_EQ(last[5], 0x3C);
}

INSTANTIATE_TEST_SUITE_P(Suites, IpmitoolSha256,
                         ::testing::Combine(::testing::Values(15, 16, 17), ::testing::ValuesIn(kCases)),
                         [](const ::testing::TestParamInfo<std::tuple<int, Case>> &info) {
                             return "Suite" + std::to_string(std::get<0>(info.param)) + "_" +
                                    std::get<1>(info.param).label;
                         });

class IpmitoolSha256Refusal : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { ASSERT_TRUE(ipmitool_installed()) << "ipmitool is not installed (Debian package ipmitool)"; }
};

// The cross-check can fail: ipmitool refuses the managed system's codes
// once one bit of them is off.
TEST_P(IpmitoolSha256Refusal, ARakp2CodeOneBitOffIsRefused)
{
    Sha256Bmc bmc;
    bmc.suite = GetParam();
    bmc.spoil_rakp2_byte = 31;
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); }, kAddress);
    const testkit::ProgramResult r = ipmitool(bmc.suite, "admin", "secret", {}, {"raw", "6", "1"});
    peer.stop();
    EXPECT_FALSE(r.timed_out);
    EXPECT_NE(r.exit_code, 0) << output(r);
    EXPECT_TRUE(bmc.session_datagrams.empty());
}

TEST_P(IpmitoolSha256Refusal, ARakp4ValueOneBitOffIsRefused)
{
    Sha256Bmc bmc;
    bmc.suite = GetParam();
    bmc.spoil_rakp4_byte = 15;
    Peer peer([&bmc](const Bytes &d) { return bmc.answer(d); }, kAddress);
    const testkit::ProgramResult r = ipmitool(bmc.suite, "admin", "secret", {}, {"raw", "6", "1"});
    peer.stop();
    EXPECT_FALSE(r.timed_out);
    EXPECT_NE(r.exit_code, 0) << output(r);
    EXPECT_TRUE(bmc.session_datagrams.empty());
}

INSTANTIATE_TEST_SUITE_P(Suites, IpmitoolSha256Refusal, ::testing::Values(15, 16, 17),
                         [](const ::testing::TestParamInfo<int> &info) { return "Suite" + std::to_string(info.param); });

}  // namespace
