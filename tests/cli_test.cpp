// The rmcpp command-line tool against the BMC simulator.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "bmcsim.h"
#include "loopback.h"
#include "run_program.h"

namespace {

constexpr uint8_t kBmc = 18;
constexpr uint8_t kNobody = 19;

class Cli : public ::testing::Test {
protected:
    void SetUp() override
    {
        bmcsim::Config c;
        c.address = testkit::loopback_text(kBmc);
        c.users = {{"admin", "password", 4, true}, {"viewer", "look", 2, true}};
        sim_ = std::make_unique<bmcsim::Simulator>(c);
        sim_->start();
    }
    void TearDown() override { sim_->stop(); }

    static testkit::ProgramResult rmcpp(std::vector<std::string> args,
                                        const std::map<std::string, std::string> &env = {})
    {
        args.insert(args.begin(), RMCPP_CLI);
        return testkit::run_program(args, std::chrono::seconds(30), env);
    }
    static std::vector<std::string> as_admin(int suite, std::vector<std::string> command)
    {
        std::vector<std::string> a = {"-H", testkit::loopback_text(kBmc), "-U", "admin", "-P", "password", "-C",
                                      std::to_string(suite), "-R", "2", "-N", "1"};
        a.insert(a.end(), command.begin(), command.end());
        return a;
    }

    std::unique_ptr<bmcsim::Simulator> sim_;
};

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

TEST_F(Cli, HelpListsOptionsAndCommands)
{
    const auto r = rmcpp({"--help"});
    EXPECT_EQ(r.exit_code, 0);
    for (const char *word : {"-H HOST", "-E", "-k KG", "--name-only", "--standard-keys", "--json", "chassis power",
                             "mc selftest", "raw NETFN CMD"})
        EXPECT_TRUE(contains(r.out, word)) << word;
}

TEST_F(Cli, UsageErrorsExitWith2)
{
    EXPECT_EQ(rmcpp({"-H", "127.0.0.18", "-C", "4", "session"}).exit_code, 2);
    EXPECT_EQ(rmcpp({"-H", "127.0.0.18"}).exit_code, 2);
    EXPECT_EQ(rmcpp({"session"}).exit_code, 2);
    EXPECT_EQ(rmcpp({"-H", "127.0.0.18", "-L", "KING", "session"}).exit_code, 2);
    EXPECT_EQ(rmcpp({"-H", "127.0.0.18", "-p", "0", "session"}).exit_code, 2);
    EXPECT_EQ(rmcpp({"-H", "127.0.0.18", "-p", "65536", "session"}).exit_code, 2);
    const auto r = rmcpp({"-H", "127.0.0.18", "frobnicate"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_TRUE(contains(r.err, "unknown command: frobnicate"));
}

TEST_F(Cli, Ping)
{
    const auto r = rmcpp({"-H", testkit::loopback_text(kBmc), "ping"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, "127.0.0.18 answered the presence ping (IPMI supported)\n");
    EXPECT_EQ(r.err, "");
}

TEST_F(Cli, PingWithoutAnswerNamesTheCode)
{
    const auto r = rmcpp({"-H", testkit::loopback_text(kNobody), "-R", "1", "-N", "1", "ping"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "rmcpp: ping failed (34): the BMC did not answer the ASF presence ping\n");
}

TEST_F(Cli, SessionForEachSuite)
{
    for (int suite = 0; suite <= 3; ++suite) {
        const auto r = rmcpp(as_admin(suite, {"session"}));
        EXPECT_EQ(r.exit_code, 0) << r.err;
        EXPECT_TRUE(contains(r.out, "Cipher Suite       : " + std::to_string(suite))) << r.out;
        EXPECT_TRUE(contains(r.out, "Granted Privilege  : ADMINISTRATOR")) << r.out;
        EXPECT_TRUE(contains(r.out, suite >= 2 ? "Integrity          : HMAC-SHA1-96" : "Integrity          : none"));
        EXPECT_TRUE(contains(r.out, suite >= 3 ? "Confidentiality    : AES-CBC-128" : "Confidentiality    : none"));
        EXPECT_TRUE(contains(r.out, "Closed             : true"));
        EXPECT_EQ(r.err, "") << "silent without -v";
    }
    const auto stats = sim_->stats();
    EXPECT_EQ(stats.sessions_established, 4u);
    EXPECT_EQ(stats.sessions_closed, 4u);
}

TEST_F(Cli, SessionAsJson)
{
    const auto r = rmcpp(as_admin(3, {"--json", "session"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    const auto json = nlohmann::json::parse(r.out);
    EXPECT_EQ(json["cipher_suite"], 3) << r.out;
    EXPECT_EQ(json["granted_privilege"], "ADMINISTRATOR") << r.out;
    EXPECT_EQ(json["closed"], true) << r.out;
}

TEST_F(Cli, PrivilegeByName)
{
    const auto r = rmcpp({"-H", testkit::loopback_text(kBmc), "-U", "viewer", "-P", "look", "-L", "user", "session"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Granted Privilege  : USER"));
}

TEST_F(Cli, McInfoIsDecoded)
{
    const auto r = rmcpp(as_admin(3, {"mc", "info"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Device ID                 : 32\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "IPMI Version              : 2.0\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "Manufacturer ID           : ")) << r.out;
}

TEST_F(Cli, RawRequestPrintsTheResponseData)
{
    const auto raw = rmcpp(as_admin(2, {"raw", "0x06", "1"}));
    EXPECT_EQ(raw.exit_code, 0) << raw.err;
    EXPECT_EQ(raw.out.substr(0, 3), "20 ") << raw.out;  // device ID 0x20 first
    const auto json = rmcpp(as_admin(2, {"--json", "raw", "6", "1"}));
    EXPECT_EQ(nlohmann::json::parse(json.out),
              nlohmann::json({{"completion_code", 0}, {"data", raw.out.substr(0, raw.out.size() - 1)}}));
}

TEST_F(Cli, ChassisPowerOffThenStatus)
{
    EXPECT_EQ(rmcpp(as_admin(3, {"chassis", "power", "on"})).exit_code, 0);
    auto status = rmcpp(as_admin(3, {"chassis", "power", "status"}));
    EXPECT_EQ(status.out, "Chassis Power is on\n");
    const auto off = rmcpp(as_admin(3, {"chassis", "power", "off"}));
    EXPECT_EQ(off.exit_code, 0) << off.err;
    EXPECT_EQ(off.out, "Chassis Power Control: Down/Off\n");
    status = rmcpp(as_admin(3, {"chassis", "status"}));
    EXPECT_TRUE(contains(status.out, "System Power         : off\n")) << status.out;
    EXPECT_EQ(nlohmann::json::parse(rmcpp(as_admin(3, {"--json", "chassis", "power", "status"})).out),
              nlohmann::json({{"chassis_power", "off"}}));
}

TEST_F(Cli, SelfTest)
{
    const auto r = rmcpp(as_admin(1, {"mc", "selftest"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Selftest    : passed\n")) << r.out;
}

TEST_F(Cli, UnknownUserNamesTheStatusCode)
{
    const auto r = rmcpp({"-H", testkit::loopback_text(kBmc), "-U", "intruder", "-P", "x", "session"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "rmcpp: establishment failed (65): the BMC answered with RMCP+ status 0x0D, unauthorized name\n");
}

TEST_F(Cli, WrongPasswordNamesTheCode)
{
    const auto r = rmcpp({"-H", testkit::loopback_text(kBmc), "-U", "admin", "-P", "nope", "-C", "3", "session"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err,
              "rmcpp: establishment failed (65): the key exchange code in RAKP 2 did not match: wrong password (or "
              "Kg); the session was refused\n");
}

TEST_F(Cli, VerboseShowsTheLibraryLog)
{
    const auto r = rmcpp({"-v", "-H", testkit::loopback_text(kBmc), "-U", "intruder", "-P", "x", "session"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_TRUE(contains(r.err, "[ Status Code ] \nUnauthorized name.\n")) << r.err;
    EXPECT_TRUE(contains(r.err, "Failed to set up session.\n")) << r.err;
}

TEST_F(Cli, PasswordFromEnvironmentAndFile)
{
    std::vector<std::string> base = {"-H", testkit::loopback_text(kBmc), "-U", "admin", "-E", "session"};
    EXPECT_EQ(rmcpp(base, {{"IPMI_PASSWORD", "password"}}).exit_code, 0);
    EXPECT_EQ(rmcpp(base, {{"IPMI_PASSWORD", "wrong"}}).exit_code, 1);

    const std::string file = "/tmp/rmcpp-cli-test-password";
    std::ofstream(file) << "password\n";
    const auto r = rmcpp({"-H", testkit::loopback_text(kBmc), "-U", "admin", "-f", file, "session"});
    std::remove(file.c_str());
    EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST_F(Cli, CompletionCodeIsReported)
{
    sim_->modify([](bmcsim::Config &c) {
        c.session.fault = bmcsim::SessionFault::CompletionCode;
        c.session.value = 0xC1;
        c.session.reply.faulty_answers = 1;
    });
    const auto r = rmcpp(as_admin(3, {"mc", "info"}));
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "rmcpp: mc info failed: completion code 0xC1 (invalid command)\n");
}

TEST_F(Cli, TwoKeyLoginWithKg)
{
    sim_->modify([](bmcsim::Config &c) { c.kg = bmcsim::Bytes{'k', 'e', 'y', 'g'}; });
    auto r = rmcpp(as_admin(3, {"-k", "keyg", "session"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    r = rmcpp(as_admin(3, {"-k", "nope", "session"}));
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err,
              "rmcpp: establishment failed (66): the integrity check value in RAKP 4 did not match: the two sides "
              "derived different session keys (wrong Kg?)\n");
}

TEST_F(Cli, NameOnlyLookupSetsTheRoleBit)
{
    const auto r = rmcpp(as_admin(3, {"--name-only", "-L", "OPERATOR", "session"}));
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "Granted Privilege  : OPERATOR"));
    const auto rakp1 = sim_->stats().of(bmcsim::Kind::Rakp1);
    ASSERT_EQ(rakp1.size(), 1u);
    EXPECT_EQ(rakp1[0][40], 0x13);
}

TEST_F(Cli, TargetAddressAndLunGoIntoTheRequest)
{
    const auto r = rmcpp(as_admin(2, {"-t", "0x24", "--lun", "2", "raw", "6", "1"}));
    const auto messages = sim_->stats().messages();
    ASSERT_FALSE(messages.empty()) << r.err;
    EXPECT_EQ(messages[0][0], 0x24);              // rsAddr
    EXPECT_EQ(messages[0][1], (0x06 << 2) | 2);   // netFn / rsLUN
}

TEST(CliPort, AlternativePort664)
{
    bmcsim::Config c;
    c.address = testkit::loopback_text(kNobody);
    c.port = 664;
    c.users = {{"admin", "password", 4, true}};
    bmcsim::Simulator sim(c);
    sim.start();
    auto r = testkit::run_program({RMCPP_CLI, "-H", testkit::loopback_text(kNobody), "-p", "664", "-U", "admin", "-P",
                                   "password", "session"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    r = testkit::run_program({RMCPP_CLI, "-H", testkit::loopback_text(kNobody), "-U", "admin", "-P", "password", "-R",
                              "1", "-N", "1", "session"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "rmcpp: establishment failed (34): the BMC did not answer the ASF presence ping; if the BMC never "
                     "answers presence pings, try --no-ping\n");
    sim.stop();
}

}  // namespace
