#include "runner_testkit.h"

#include <gtest/gtest.h>

#include "scripted_transport_testkit.h"

namespace {

TEST(CapturingRunner, KeepsWhatTheBodyPrintedOrTheErrorItThrew)
{
    rmcpp::commands::testkit::ScriptedTransport t;
    t.queue(0x00, {0x01});
    t.queue(0xCB);
    cli::testkit::CapturingRunner runner(t);
    CLI::App app;
    app.add_subcommand("probe")->callback([&] {
        runner.in_session("probe", [](rmcpp::commands::Transport &s) {
            const auto data = rmcpp::commands::call(s, "Get Thing", 0x06, 0x01, {});
            return cli::Printed{"one\n", {{"byte", data.at(0)}}};
        });
    });
    cli::testkit::parse(app, {"probe"});
    ASSERT_TRUE(runner.printed);
    EXPECT_EQ(runner.printed->text, "one\n");
    EXPECT_EQ(runner.printed->json["byte"], 1);
    EXPECT_EQ(runner.exit_status(), 0);

    CLI::App again;
    again.add_subcommand("probe")->callback([&] {
        runner.in_session("probe", [](rmcpp::commands::Transport &s) {
            rmcpp::commands::call(s, "Get Thing", 0x06, 0x01, {});
            return cli::Printed{};
        });
    });
    cli::testkit::parse(again, {"probe"});
    ASSERT_TRUE(runner.error);
    EXPECT_EQ(runner.error->completion_code, 0xCB);
    EXPECT_EQ(runner.exit_status(), 1);
}

}  // namespace
