#include <gtest/gtest.h>

#include "boot_options.h"
#include "runner_testkit.h"
#include "scripted_transport_testkit.h"

namespace {

using rmcpp::commands::Bytes;
using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

struct Fixture {
    ScriptedTransport t;
    cli::testkit::CapturingRunner runner{t};
    CLI::App app;
    CLI::App *chassis = app.add_subcommand("chassis");
    Fixture() { cli::add_boot_commands(*chassis, runner); }
};

Request set_request(Bytes data) { return {0x00, 0x08, std::move(data)}; }

TEST(ChassisBootdev, PersistentEfiPxe)
{
    Fixture f;
    for (int i = 0; i < 4; ++i) f.t.queue(0x00);
    cli::testkit::parse(f.app, {"chassis", "bootdev", "pxe", "--persistent", "--efi"});
    ASSERT_EQ(f.t.asked.size(), 4u);
    EXPECT_EQ(f.t.asked[1], set_request({0x05, 0xE0, 0x04, 0x00, 0x00, 0x00}));
    EXPECT_EQ(f.runner.sessions, std::vector<std::string>{"chassis bootdev"});
    ASSERT_TRUE(f.runner.printed);
    EXPECT_EQ(f.runner.printed->text, "Set Boot Device to pxe\n");
    EXPECT_EQ(f.runner.printed->json["boot_device"], "pxe");
    EXPECT_EQ(f.runner.printed->json["persistent"], true);
    EXPECT_EQ(f.runner.printed->json["efi"], true);
}

TEST(ChassisBootdev, EveryDeviceNameSelectsItsDevice)
{
    const std::pair<const char *, uint8_t> devices[] = {{"none", 0x00}, {"pxe", 0x04},  {"disk", 0x08}, {"safe", 0x0C},
                                                        {"diag", 0x10}, {"cdrom", 0x14}, {"bios", 0x18}};
    for (const auto &[name, byte2] : devices) {
        Fixture f;
        for (int i = 0; i < 4; ++i) f.t.queue(0x00);
        cli::testkit::parse(f.app, {"chassis", "bootdev", name});
        ASSERT_EQ(f.t.asked.size(), 4u) << name;
        EXPECT_EQ(f.t.asked[1], set_request({0x05, 0x80, byte2, 0x00, 0x00, 0x00})) << name;
        EXPECT_EQ(f.runner.printed->json["persistent"], false);
        EXPECT_EQ(f.runner.printed->json["efi"], false);
    }
}

TEST(ChassisBootdev, UnknownDeviceIsAUsageError)
{
    Fixture f;
    cli::testkit::parse(f.app, {"chassis", "bootdev", "floppy"});
    EXPECT_TRUE(f.runner.usage);
    EXPECT_EQ(f.runner.exit_status(), 2);
    EXPECT_TRUE(f.t.asked.empty());
}

TEST(ChassisBootdev, RefusalIsReported)
{
    Fixture f;
    f.t.queue(0x00);
    f.t.queue(0xD4);
    f.t.queue(0x00);
    cli::testkit::parse(f.app, {"chassis", "bootdev", "disk"});
    ASSERT_TRUE(f.runner.error);
    EXPECT_EQ(f.runner.error->completion_code, 0xD4);
    EXPECT_EQ(f.runner.exit_status(), 1);
}

TEST(ChassisBootparamGet, PrintsBootFlagsAsTextAndJson)
{
    Fixture f;
    f.t.queue(0x00, {0x01, 0x05, 0xE0, 0x04, 0x00, 0x00, 0x00});
    cli::testkit::parse(f.app, {"chassis", "bootparam", "get", "5"});
    ASSERT_EQ(f.t.asked.size(), 1u);
    EXPECT_EQ(f.t.asked[0], (Request{0x00, 0x09, {0x05, 0x00, 0x00}}));
    ASSERT_TRUE(f.runner.printed);
    const std::string &text = f.runner.printed->text;
    EXPECT_NE(text.find("Boot parameter version: 1\n"), std::string::npos);
    EXPECT_NE(text.find("Boot parameter 5 is valid/unlocked\n"), std::string::npos);
    EXPECT_NE(text.find("Boot parameter data: e004000000\n"), std::string::npos);
    EXPECT_NE(text.find("   - Boot Flag Valid\n"), std::string::npos);
    EXPECT_NE(text.find("   - Options apply to all future boots\n"), std::string::npos);
    EXPECT_NE(text.find("   - BIOS EFI boot\n"), std::string::npos);
    EXPECT_NE(text.find("   - Boot Device Selector : Force PXE\n"), std::string::npos);
    const auto &j = f.runner.printed->json;
    EXPECT_EQ(j["parameter"], 5);
    EXPECT_EQ(j["valid"], true);
    EXPECT_EQ(j["data"], "e004000000");
    EXPECT_EQ(j["boot_flags"]["valid"], true);
    EXPECT_EQ(j["boot_flags"]["persistent"], true);
    EXPECT_EQ(j["boot_flags"]["efi"], true);
    EXPECT_EQ(j["boot_flags"]["boot_device"], "pxe");
    EXPECT_EQ(j["boot_flags"]["boot_device_text"], "Force PXE");
}

TEST(ChassisBootparamGet, LegacyNextBootLocked)
{
    Fixture f;
    f.t.queue(0x00, {0x01, 0x85, 0x80, 0x18, 0x00, 0x00, 0x00});
    cli::testkit::parse(f.app, {"chassis", "bootparam", "get", "5"});
    ASSERT_TRUE(f.runner.printed);
    const std::string &text = f.runner.printed->text;
    EXPECT_NE(text.find("Boot parameter 5 is invalid/locked\n"), std::string::npos);
    EXPECT_NE(text.find("   - Options apply to only next boot\n"), std::string::npos);
    EXPECT_NE(text.find("   - BIOS PC Compatible (legacy) boot\n"), std::string::npos);
    EXPECT_NE(text.find("   - Boot Device Selector : Force Boot into BIOS Setup\n"), std::string::npos);
    EXPECT_EQ(f.runner.printed->json["valid"], false);
    EXPECT_EQ(f.runner.printed->json["boot_flags"]["boot_device"], "bios");
}

TEST(ChassisBootparamGet, SetInProgressParameter)
{
    Fixture f;
    f.t.queue(0x00, {0x01, 0x00, 0x01});
    cli::testkit::parse(f.app, {"chassis", "bootparam", "get", "0"});
    ASSERT_TRUE(f.runner.printed);
    EXPECT_EQ(f.runner.printed->json["set_in_progress"], "Set In Progress");
    EXPECT_FALSE(f.runner.printed->json.contains("boot_flags"));
}

TEST(ChassisBootparamGet, BadParameterIsAUsageError)
{
    Fixture f;
    cli::testkit::parse(f.app, {"chassis", "bootparam", "get", "128"});
    EXPECT_TRUE(f.runner.usage);
    Fixture g;
    cli::testkit::parse(g.app, {"chassis", "bootparam", "get", "five"});
    EXPECT_TRUE(g.runner.usage);
    EXPECT_TRUE(g.t.asked.empty());
}

TEST(ChassisBootparamGet, UnsupportedParameterIsAnError)
{
    Fixture f;
    f.t.queue(0x80);
    cli::testkit::parse(f.app, {"chassis", "bootparam", "get", "5"});
    ASSERT_TRUE(f.runner.error);
    EXPECT_EQ(f.runner.error->completion_code, 0x80);
}

}  // namespace
