#include <gtest/gtest.h>

#include "runner_testkit.h"
#include "scripted_transport_testkit.h"

namespace {

using rmcpp::commands::Bytes;
using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

Bytes sel_info(uint16_t entries, uint16_t free, uint32_t add, uint32_t erase, uint8_t flags)
{
    return {0x51,
            static_cast<uint8_t>(entries), static_cast<uint8_t>(entries >> 8),
            static_cast<uint8_t>(free), static_cast<uint8_t>(free >> 8),
            static_cast<uint8_t>(add), static_cast<uint8_t>(add >> 8), static_cast<uint8_t>(add >> 16),
            static_cast<uint8_t>(add >> 24),
            static_cast<uint8_t>(erase), static_cast<uint8_t>(erase >> 8), static_cast<uint8_t>(erase >> 16),
            static_cast<uint8_t>(erase >> 24),
            flags};
}

Bytes with_next(uint16_t next, Bytes record)
{
    record.insert(record.begin(), {static_cast<uint8_t>(next), static_cast<uint8_t>(next >> 8)});
    return record;
}

// 2026-11-23T19:22:07Z
constexpr uint32_t kTime = 1795461727;

Bytes le32(uint32_t v)
{
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
            static_cast<uint8_t>(v >> 24)};
}

Bytes system_event(uint16_t id, uint32_t ts, uint8_t type, uint8_t number, uint8_t dir_type, Bytes data)
{
    Bytes r{static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8), 0x02};
    const Bytes t = le32(ts);
    r.insert(r.end(), t.begin(), t.end());
    r.insert(r.end(), {0x20, 0x00, 0x04, type, number, dir_type});
    r.insert(r.end(), data.begin(), data.end());
    return r;
}

struct Fixture : ::testing::Test {
    ScriptedTransport t;
    cli::testkit::CapturingRunner runner{t};
    CLI::App app;
    Fixture() { cli::add_sel_commands(app, runner); }
};

using SelInfoCommand = Fixture;
using SelListCommand = Fixture;
using SelClearCommand = Fixture;

TEST_F(SelInfoCommand, PrintsIpmitoolsLayoutAndTheSameValuesAsJson)
{
    t.queue(0x00, sel_info(6, 15904, kTime, 0xFFFFFFFF, 0x0A));
    cli::testkit::parse(app, {"sel", "info"});
    ASSERT_TRUE(runner.printed) << (runner.error ? runner.error->what() : "");
    EXPECT_EQ(runner.printed->text,
              "SEL Information\n"
              "Version          : 1.5\n"
              "Entries          : 6\n"
              "Free Space       : 15904 bytes\n"
              "Percent Used     : 0%\n"
              "Last Add Time    : 2026-11-23T19:22:07Z\n"
              "Last Del Time    : unspecified\n"
              "Overflow         : false\n"
              "Supported Cmds   : 'Delete' 'Reserve'\n");
    const auto &j = runner.printed->json;
    EXPECT_EQ(j["version"], "1.5");
    EXPECT_EQ(j["entries"], 6);
    EXPECT_EQ(j["free_space"], 15904);
    EXPECT_EQ(j["percent_used"], 0);
    EXPECT_EQ(j["last_add_time"], "2026-11-23T19:22:07Z");
    EXPECT_EQ(j["last_add_timestamp"], kTime);
    EXPECT_EQ(j["last_erase_time"], "unspecified");
    EXPECT_EQ(j["overflow"], false);
    EXPECT_EQ(j["supported_commands"], (nlohmann::json{"Delete", "Reserve"}));
    EXPECT_EQ(runner.sessions, (std::vector<std::string>{"sel info"}));
    EXPECT_EQ(t.asked.at(0), (Request{0x0A, 0x40, {}}));
}

TEST_F(SelInfoCommand, AFullSelShowsOverflowAndItsShare)
{
    t.queue(0x00, sel_info(100, 0, 0x100, 0x10, 0x8F));
    cli::testkit::parse(app, {"sel", "info"});
    ASSERT_TRUE(runner.printed);
    EXPECT_NE(runner.printed->text.find("Percent Used     : 100%\n"), std::string::npos);
    EXPECT_NE(runner.printed->text.find("Overflow         : true\n"), std::string::npos);
    EXPECT_NE(runner.printed->text.find("Last Add Time    : pre-init +256s\n"), std::string::npos);
    EXPECT_NE(runner.printed->text.find("'Delete' 'Partial Add' 'Reserve' 'Get Alloc Info'"), std::string::npos);
    EXPECT_EQ(runner.printed->json["overflow"], true);
    EXPECT_EQ(runner.printed->json["percent_used"], 100);
}

TEST_F(SelInfoCommand, AShortAnswerIsAnError)
{
    t.queue(0x00, {0x51});
    cli::testkit::parse(app, {"sel", "info"});
    EXPECT_FALSE(runner.printed);
    ASSERT_TRUE(runner.error);
    EXPECT_EQ(runner.exit_status(), 1);
}

TEST_F(SelListCommand, PrintsEachEntryAsIpmitoolDoesWithIsoTimes)
{
    t.queue(0x00, sel_info(4, 1000, kTime, kTime, 0x0A));
    t.queue(0x00, with_next(2, system_event(1, kTime, 0x01, 0x30, 0x01, {0x59, 0x60, 0x55})));
    t.queue(0x00, with_next(3, system_event(2, 0x1000, 0x07, 0x41, 0xEF, {0x00, 0xFF, 0xFF})));
    Bytes oem{0x03, 0x00, 0xC1};
    const Bytes ts = le32(kTime);
    oem.insert(oem.end(), ts.begin(), ts.end());
    oem.insert(oem.end(), {0x57, 0x01, 0x00, 1, 2, 3, 4, 5, 6});
    t.queue(0x00, with_next(0x1A, oem));
    Bytes oem_nt{0x1A, 0x00, 0xE0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
    t.queue(0x00, with_next(0xFFFF, oem_nt));
    cli::testkit::parse(app, {"sel", "list"});
    ASSERT_TRUE(runner.printed) << (runner.error ? runner.error->what() : "");
    EXPECT_EQ(runner.printed->text,
              "   1 | 2026-11-23T19:22:07Z | Temperature #0x30 | Upper Critical going high | Asserted\n"
              "   2 | pre-init +4096s | Processor #0x41 | IERR | Deasserted\n"
              "   3 | 2026-11-23T19:22:07Z | OEM record c1 | 000157 | 010203040506\n"
              "  1a | OEM record e0 | 0102030405060708090a0b0c0d\n");
    const auto &j = runner.printed->json;
    ASSERT_EQ(j.size(), 4u);
    EXPECT_EQ(j[0]["record_id"], 1);
    EXPECT_EQ(j[0]["kind"], "system_event");
    EXPECT_EQ(j[0]["time"], "2026-11-23T19:22:07Z");
    EXPECT_EQ(j[0]["timestamp"], kTime);
    EXPECT_EQ(j[0]["sensor_type"], "Temperature");
    EXPECT_EQ(j[0]["sensor_number"], 0x30);
    EXPECT_EQ(j[0]["event_type"], 0x01);
    EXPECT_EQ(j[0]["description"], "Upper Critical going high");
    EXPECT_EQ(j[0]["direction"], "Asserted");
    EXPECT_EQ(j[0]["event_data"], (nlohmann::json{0x59, 0x60, 0x55}));
    EXPECT_EQ(j[0]["generator_id"], 0x20);
    EXPECT_EQ(j[1]["timestamp"], nullptr);
    EXPECT_EQ(j[1]["time"], "pre-init +4096s");
    EXPECT_EQ(j[1]["direction"], "Deasserted");
    EXPECT_EQ(j[2]["kind"], "oem_timestamped");
    EXPECT_EQ(j[2]["manufacturer_id"], 0x157);
    EXPECT_EQ(j[2]["oem_data"], (nlohmann::json{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(j[3]["kind"], "oem");
    EXPECT_EQ(j[3]["record_id"], 0x1A);
    EXPECT_FALSE(j[3].contains("time"));
}

TEST_F(SelListCommand, AnEmptySelSaysSo)
{
    t.queue(0x00, sel_info(0, 16000, 0, 0, 0x0A));
    cli::testkit::parse(app, {"sel", "list"});
    ASSERT_TRUE(runner.printed);
    EXPECT_EQ(runner.printed->text, "SEL has no entries\n");
    EXPECT_TRUE(runner.printed->json.is_array());
    EXPECT_TRUE(runner.printed->json.empty());
}

TEST_F(SelListCommand, AnUnknownOffsetIsShownAsANumber)
{
    t.queue(0x00, sel_info(1, 1000, 0, 0, 0x0A));
    t.queue(0x00, with_next(0xFFFF, system_event(1, kTime, 0xC0, 0x05, 0x70, {0x03, 0xFF, 0xFF})));
    cli::testkit::parse(app, {"sel", "list"});
    ASSERT_TRUE(runner.printed);
    EXPECT_EQ(runner.printed->text, "   1 | 2026-11-23T19:22:07Z | OEM reserved #0x05 | Offset 0x03 | Asserted\n");
}

TEST_F(SelListCommand, ABmcErrorStopsWithIt)
{
    t.queue(0x00, sel_info(1, 1000, 0, 0, 0x0A));
    t.queue(0xC1);
    cli::testkit::parse(app, {"sel", "list"});
    EXPECT_FALSE(runner.printed);
    ASSERT_TRUE(runner.error);
    EXPECT_EQ(runner.error->completion_code, 0xC1);
}

TEST_F(SelClearCommand, ErasesAndSaysSoOnceDone)
{
    t.queue(0x00, {0x05, 0x00});
    t.queue(0x00, {0x01});
    cli::testkit::parse(app, {"sel", "clear"});
    ASSERT_TRUE(runner.printed);
    EXPECT_EQ(runner.printed->text, "SEL cleared\n");
    EXPECT_EQ(runner.printed->json["cleared"], true);
    ASSERT_EQ(t.asked.size(), 2u);
    EXPECT_EQ(t.asked[1], (Request{0x0A, 0x47, {0x05, 0x00, 'C', 'L', 'R', 0xAA}}));
}

TEST_F(SelClearCommand, ARefusalIsAnError)
{
    t.queue(0xD4);
    cli::testkit::parse(app, {"sel", "clear"});
    EXPECT_FALSE(runner.printed);
    ASSERT_TRUE(runner.error);
    EXPECT_EQ(runner.error->step, "Reserve SEL");
}

TEST(SelCommands, NeedASubcommand)
{
    ScriptedTransport t;
    cli::testkit::CapturingRunner runner{t};
    CLI::App app;
    cli::add_sel_commands(app, runner);
    EXPECT_THROW(cli::testkit::parse(app, {"sel"}), CLI::ParseError);
    EXPECT_TRUE(runner.sessions.empty());
}

}  // namespace
