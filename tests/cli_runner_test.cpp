// The tool's Runner in-process against the BMC simulator (127.0.15.5): the
// session is closed whatever the command's body does after establishment,
// the result or the error is printed once, as text or as JSON.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "bmcsim.h"
#include "tool_runner.h"

namespace {

using rmcpp::commands::call;
using rmcpp::commands::CommandError;
using rmcpp::commands::Transport;

constexpr const char *kBmc = "127.0.15.5";

std::string contents(std::FILE *file)
{
    std::string text;
    std::rewind(file);
    char buffer[4096];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, n);
    return text;
}

class CliRunner : public ::testing::Test {
protected:
    void SetUp() override
    {
        bmcsim::Config c;
        c.address = kBmc;
        c.users = {{"admin", "password", 4, true}};
        sim_ = std::make_unique<bmcsim::Simulator>(c);
        sim_->start();
        o_.host = kBmc;
        o_.user = "admin";
        o_.password = "password";
        o_.cipher_suite = 17;
        o_.attempts = 1;
        o_.timeout = 1;
        out_ = std::tmpfile();
        err_ = std::tmpfile();
    }
    void TearDown() override
    {
        std::fclose(out_);
        std::fclose(err_);
        sim_->stop();
    }

    void expect_every_session_closed(size_t established)
    {
        const auto stats = sim_->stats();
        EXPECT_EQ(stats.sessions_established, established);
        EXPECT_EQ(stats.sessions_closed, established);
        EXPECT_TRUE(stats.sessions.empty());
    }

    std::unique_ptr<bmcsim::Simulator> sim_;
    cli::Options o_;
    std::FILE *out_ = nullptr;
    std::FILE *err_ = nullptr;
};

TEST_F(CliRunner, AnswerThatDoesNotDecodeClosesTheSession)
{
    cli::ToolRunner runner(o_, out_, err_);
    runner.in_session("probe", [](Transport &t) -> cli::Printed {
        call(t, "Get Device ID", 0x06, 0x01, {});
        throw CommandError(CommandError::Kind::malformed, "Get Device ID", 0, 0, "answer too short");
    });
    EXPECT_EQ(runner.exit_status(), 1);
    EXPECT_EQ(contents(out_), "");
    EXPECT_EQ(contents(err_), "rmcpp: probe (Get Device ID) failed: answer too short\n");
    expect_every_session_closed(1);
}

TEST_F(CliRunner, AnyExceptionOfTheBodyClosesTheSession)
{
    o_.json = true;
    cli::ToolRunner runner(o_, out_, err_);
    runner.in_session("probe", [](Transport &t) -> cli::Printed {
        call(t, "Get Device ID", 0x06, 0x01, {});
        throw std::out_of_range("record 7 is cut short");
    });
    EXPECT_EQ(runner.exit_status(), 1);
    EXPECT_EQ(contents(err_), "rmcpp: probe failed: record 7 is cut short\n");
    EXPECT_EQ(nlohmann::json::parse(contents(out_)),
              nlohmann::json({{"code", 0}, {"name", "malformed_response"}, {"message", "probe failed: record 7 is cut short"}}));
    expect_every_session_closed(1);
}

TEST_F(CliRunner, RefusedSecondStepClosesTheSession)
{
    o_.json = true;
    cli::ToolRunner runner(o_, out_, err_);
    runner.in_session("two steps", [](Transport &t) -> cli::Printed {
        call(t, "Get Device ID", 0x06, 0x01, {});
        call(t, "Get Nothing", 0x06, 0x99, {});
        return {"unreached\n", {}};
    });
    EXPECT_EQ(runner.exit_status(), 1);
    EXPECT_EQ(contents(err_), "rmcpp: two steps (Get Nothing) failed: completion code 0xC1 (invalid command)\n");
    const auto json = nlohmann::json::parse(contents(out_));
    EXPECT_EQ(json["code"], 0xC1);
    EXPECT_EQ(json["name"], "completion_code");
    expect_every_session_closed(1);
}

TEST_F(CliRunner, ResultIsPrintedOnceAfterTheSessionClosed)
{
    cli::ToolRunner runner(o_, out_, err_);
    runner.in_session("mc info", [](Transport &t) {
        const auto data = call(t, "Get Device ID", 0x06, 0x01, {});
        return cli::Printed{"device " + std::to_string(data.at(0)) + "\n", {{"device_id", data.at(0)}}};
    });
    EXPECT_EQ(runner.exit_status(), 0);
    EXPECT_EQ(contents(out_), "device 32\n");
    EXPECT_EQ(contents(err_), "");
    expect_every_session_closed(1);

    o_.json = true;
    std::FILE *json_out = std::tmpfile();
    cli::ToolRunner json_runner(o_, json_out, err_);
    json_runner.in_session("mc info", [](Transport &t) {
        const auto data = call(t, "Get Device ID", 0x06, 0x01, {});
        return cli::Printed{"device " + std::to_string(data.at(0)) + "\n", {{"device_id", data.at(0)}}};
    });
    EXPECT_EQ(contents(json_out), "{\n  \"device_id\": 32\n}\n");
    std::fclose(json_out);
    expect_every_session_closed(2);
}

TEST_F(CliRunner, FailedEstablishmentIsReportedAndNothingRuns)
{
    o_.password = "wrong";
    cli::ToolRunner runner(o_, out_, err_);
    bool ran = false;
    runner.in_session("probe", [&](Transport &) {
        ran = true;
        return cli::Printed{};
    });
    EXPECT_FALSE(ran);
    EXPECT_EQ(runner.exit_status(), 1);
    EXPECT_EQ(contents(err_).rfind("rmcpp: establishment failed (", 0), 0u) << contents(err_);
    EXPECT_EQ(sim_->stats().sessions_established, 0u);
}

}  // namespace
