// The rmcpp tool against the BMC simulator (127.0.15.1..127.0.15.9): every
// command's --json output is one JSON document, errors under --json are JSON
// objects with code, name and message, the session is closed also when a
// step after establishment fails, and ADMINISTRATOR is asked by default.
#include <gtest/gtest.h>

#include <algorithm>

#include <mutex>

#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "bmcsim.h"
#include "rmcpp.h"
#include "run_program.h"

namespace {

constexpr const char *kBmc = "127.0.15.1";
constexpr const char *kNobody = "127.0.15.2";

class CliTool : public ::testing::Test {
protected:
    void SetUp() override
    {
        bmcsim::Config c;
        c.address = kBmc;
        c.users = {{"admin", "password", 4, true}, {"operator", "password", 3, true}};
        sim_ = std::make_unique<bmcsim::Simulator>(c);
        sim_->start();
    }
    void TearDown() override { sim_->stop(); }

    static testkit::ProgramResult rmcpp(const std::string &host, std::vector<std::string> rest)
    {
        std::vector<std::string> a = {RMCPP_CLI, "-H", host, "-U", "admin", "-P", "password", "-R", "1", "-N", "1"};
        a.insert(a.end(), rest.begin(), rest.end());
        return testkit::run_program(a, std::chrono::seconds(30));
    }

    // No session is left open on the simulator: each one established was
    // closed.
    void expect_no_session_open(size_t established)
    {
        const auto stats = sim_->stats();
        EXPECT_EQ(stats.sessions_established, established);
        EXPECT_EQ(stats.sessions_closed, established);
        EXPECT_TRUE(stats.sessions.empty()) << stats.sessions.size() << " sessions left";
    }

    std::unique_ptr<bmcsim::Simulator> sim_;
};

// The whole of standard output parses as one JSON document (parse() refuses
// anything after it).
nlohmann::json one_document(const testkit::ProgramResult &r)
{
    try {
        return nlohmann::json::parse(r.out);
    } catch (const nlohmann::json::exception &e) {
        ADD_FAILURE() << "not one JSON document: " << e.what() << "\n" << r.out;
        return nullptr;
    }
}

TEST_F(CliTool, EveryCommandPrintsOneJsonDocument)
{
    const std::vector<std::vector<std::string>> commands = {
        {"ping"},           {"session"},          {"raw", "6", "1"},           {"mc", "info"},
        {"mc", "selftest"}, {"chassis", "status"}, {"chassis", "power", "on"}, {"chassis", "power", "status"},
        {"channel", "ciphers"}};
    for (const auto &command : commands) {
        std::vector<std::string> args = {"--json", "-C", "3"};
        args.insert(args.end(), command.begin(), command.end());
        const auto r = rmcpp(kBmc, args);
        EXPECT_EQ(r.exit_code, 0) << command[0] << ": " << r.err;
        const auto json = one_document(r);
        EXPECT_TRUE(json.is_object()) << r.out;
    }
    const auto info = one_document(rmcpp(kBmc, {"--json", "-C", "3", "mc", "info"}));
    EXPECT_EQ(info["device_id"], 32);
    EXPECT_EQ(info["manufacturer_id"], 23130);
    EXPECT_EQ(info["ipmi_version"], "2.0");
    EXPECT_EQ(info["device_available"], true);
    EXPECT_EQ(one_document(rmcpp(kBmc, {"--json", "chassis", "power", "status"}))["chassis_power"], "on");
}

// The JSON object of an error carries what the line on standard error says.
void expect_error_object(const testkit::ProgramResult &r, int code, const std::string &name)
{
    EXPECT_EQ(r.exit_code, 1) << r.err;
    const auto json = one_document(r);
    ASSERT_TRUE(json.is_object()) << r.out;
    EXPECT_EQ(json.size(), 3u) << r.out;
    EXPECT_EQ(json["code"], code) << r.out;
    EXPECT_EQ(json["name"], name) << r.out;
    ASSERT_TRUE(json["message"].is_string()) << r.out;
    EXPECT_EQ(r.err, "rmcpp: " + json["message"].get<std::string>() + "\n");
}

TEST_F(CliTool, LibraryFailureUnderJsonIsAnErrorObject)
{
    const auto r = rmcpp(kNobody, {"--json", "-C", "3", "mc", "info"});
    expect_error_object(r, RMCPP_ERR_PING, "RMCPP_ERR_PING");
    EXPECT_EQ(r.err, "rmcpp: establishment failed (34): the BMC did not answer the ASF presence ping; if the BMC "
                     "never answers presence pings, try --no-ping\n");
    expect_error_object(rmcpp(kNobody, {"--json", "ping"}), RMCPP_ERR_PING, "RMCPP_ERR_PING");
}

TEST_F(CliTool, RefusalUnderJsonIsAnErrorObjectWithTheCompletionCode)
{
    sim_->modify([](bmcsim::Config &c) {
        c.session.fault = bmcsim::SessionFault::CompletionCode;
        c.session.value = 0xD5;
        c.session.reply.faulty_answers = 1;
    });
    const auto r = rmcpp(kBmc, {"--json", "-C", "3", "chassis", "status"});
    expect_error_object(r, 0xD5, "completion_code");
    EXPECT_EQ(r.err, "rmcpp: chassis status failed: completion code 0xD5 (command not supported in present state)\n");
}

// A session starts at User level: a request refused for insufficient
// privilege is sent again once Set Session Privilege Level has raised the
// session to the level asked for (ADMINISTRATOR by default, -L otherwise).
TEST_F(CliTool, InsufficientPrivilegeRaisesTheSessionAndSendsTheRequestAgain)
{
    // The sink outlives the test: the simulator may still log while
    // TearDown stops it.
    static std::vector<std::string> log;
    static std::mutex m;
    {
        std::lock_guard<std::mutex> lock(m);
        log.clear();
    }
    sim_->on_log([&](const std::string &line) {
        std::lock_guard<std::mutex> lock(m);
        log.push_back(line);
    });
    sim_->modify([](bmcsim::Config &c) {
        c.session.fault = bmcsim::SessionFault::CompletionCode;
        c.session.value = 0xD4;
        c.session.reply.faulty_answers = 1;
    });
    const auto r = rmcpp(kBmc, {"-C", "3", "-L", "OPERATOR", "chassis", "status"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_NE(r.out.find("System Power"), std::string::npos) << r.out;
    std::lock_guard<std::mutex> lock(m);
    const bool raised = std::any_of(log.begin(), log.end(), [](const std::string &line) {
        return line.find(": privilege OPERATOR") != std::string::npos;
    });
    EXPECT_TRUE(raised) << "no Set Session Privilege Level to OPERATOR in the simulator's log";
}

// A refused request after establishment: the session is closed all the same.
TEST_F(CliTool, RefusedStepLeavesNoSessionOpen)
{
    sim_->modify([](bmcsim::Config &c) {
        c.session.fault = bmcsim::SessionFault::CompletionCode;
        c.session.reply.faulty_answers = 1;
    });
    const auto r = rmcpp(kBmc, {"-C", "3", "mc", "info"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err, "rmcpp: mc info failed: completion code 0xC1 (invalid command)\n");
    expect_no_session_open(1);
}

// An unanswered request after establishment: the session is closed all the
// same, and the failure of the request is what is reported.
TEST_F(CliTool, UnansweredStepLeavesNoSessionOpen)
{
    sim_->modify([](bmcsim::Config &c) { c.session.reply.ignore_first = 1; });
    const auto r = rmcpp(kBmc, {"-C", "17", "chassis", "power", "status"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.err,
              std::string("rmcpp: chassis power status failed (4): ") + rmcpp_strerror(RMCPP_ERR_RETRY_OVER) + "\n");
    expect_no_session_open(1);
}

TEST_F(CliTool, SessionLeavesNoSessionOpen)
{
    for (const char *suite : {"0", "3", "17"}) {
        const auto r = rmcpp(kBmc, {"-C", suite, "session"});
        EXPECT_EQ(r.exit_code, 0) << r.err;
    }
    expect_no_session_open(3);
}

// ADMINISTRATOR unless -L names another level: the requested maximum
// privilege of the Open Session Request (byte 17 of the datagram, 0: the
// highest the BMC grants) and the requested role of RAKP message 1 (byte 40;
// name-only look-up bit 4).
TEST_F(CliTool, AdministratorIsAskedByDefault)
{
    struct Case {
        std::vector<std::string> flags;
        uint8_t requested, role;
        const char *granted;
    };
    const std::vector<Case> cases = {
        {{}, 0x04, 0x04, "ADMINISTRATOR"},          {{"-L", "0"}, 0x00, 0x04, "ADMINISTRATOR"},
        {{"-L", "operator"}, 0x03, 0x03, "OPERATOR"}, {{"-L", "3"}, 0x03, 0x03, "OPERATOR"},
        {{"-L", "User"}, 0x02, 0x02, "USER"},         {{"--name-only"}, 0x04, 0x14, "ADMINISTRATOR"},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        std::vector<std::string> args = {"-C", "3"};
        args.insert(args.end(), cases[i].flags.begin(), cases[i].flags.end());
        args.push_back("session");
        const auto r = rmcpp(kBmc, args);
        EXPECT_EQ(r.exit_code, 0) << r.err;
        EXPECT_NE(r.out.find(std::string("Granted Privilege  : ") + cases[i].granted + "\n"), std::string::npos)
            << r.out;
        const auto open = sim_->stats().of(bmcsim::Kind::OpenSession);
        const auto rakp1 = sim_->stats().of(bmcsim::Kind::Rakp1);
        ASSERT_EQ(open.size(), i + 1);
        ASSERT_EQ(rakp1.size(), i + 1);
        EXPECT_EQ(open[i][17], cases[i].requested) << i;
        EXPECT_EQ(rakp1[i][40], cases[i].role) << i;
    }
}

// An operator asking for ADMINISTRATOR by default is refused, as by ipmitool.
TEST_F(CliTool, DefaultPrivilegeAboveTheUsersLimitIsRefused)
{
    auto r = testkit::run_program({RMCPP_CLI, "-H", kBmc, "-U", "operator", "-P", "password", "-C", "3", "-R", "1",
                                   "-N", "1", "session"},
                                  std::chrono::seconds(30));
    EXPECT_EQ(r.exit_code, 1);
    r = testkit::run_program({RMCPP_CLI, "-H", kBmc, "-U", "operator", "-P", "password", "-C", "3", "-R", "1", "-N",
                              "1", "-L", "OPERATOR", "session"},
                             std::chrono::seconds(30));
    EXPECT_EQ(r.exit_code, 0) << r.err;
}

}  // namespace
