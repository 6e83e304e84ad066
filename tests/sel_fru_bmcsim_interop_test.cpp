// The tool's sel and fru commands and the simulator's SEL and FRU device,
// checked against ipmitool and FreeIPMI (run as black boxes) on 127.0.13.1:
// what they print for the simulator must be what the tool prints, field by
// field, which also confirms the simulator's encodings.
#include <yaml-cpp/yaml.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "bmcsim.h"
#include "fru.h"
#include "runner.h"
#include "sel.h"
#include "sel_fru_clients.h"

namespace {

using namespace std::chrono_literals;
using simtest::output;

constexpr const char *kAddress = "127.0.13.1";

bmcsim::Config platform()
{
    bmcsim::Config c;
    c.address = kAddress;
    c.users = {{"admin", "password", 4, true}};
    c.standard_keys = true;
    const YAML::Node root = YAML::LoadFile(RMCPP_SOURCE_DIR "/tools/bmcsim/sample-platform.yaml");
    bmcsim::load_sel(root["sel"], c);
    bmcsim::load_fru(root["fru"], c);
    c.fru.at(0).max_read = 20;  // reads of 32 bytes answer CAh
    return c;
}

class SelFruBmcsim : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const char *p : {"ipmitool", "ipmi-sel", "ipmi-fru"})
            ASSERT_FALSE(simtest::find_program(p).empty()) << p << " is not installed";
        sim_ = std::make_unique<bmcsim::Simulator>(platform());
        sim_->start();
        cache_ = std::filesystem::temp_directory_path() / ("selfru-sdr-" + std::to_string(::getpid()));
        std::filesystem::create_directories(cache_);
    }
    void TearDown() override
    {
        sim_.reset();
        std::filesystem::remove_all(cache_);
    }

    nlohmann::json ours(void (*add)(CLI::App &, cli::Runner &), const std::vector<std::string> &args,
                        std::string *text = nullptr)
    {
        std::string error;
        auto printed = selfru::rmcpp(peer_, add, args, error);
        EXPECT_TRUE(printed) << error;
        if (!printed) return nullptr;
        if (text) *text = printed->text;
        return printed->json;
    }

    selfru::Peer peer_{kAddress};
    std::unique_ptr<bmcsim::Simulator> sim_;
    std::filesystem::path cache_;
};

TEST_F(SelFruBmcsim, IpmitoolSelListAndElistShowTheToolsEntries)
{
    const auto json = ours(cli::add_sel_commands, {"sel", "list"});
    ASSERT_EQ(json.size(), 4u);
    for (const char *list : {"list", "elist"}) {
        const auto r = selfru::ipmitool(peer_, {"sel", list});
        ASSERT_EQ(r.exit_code, 0) << output(r);
        const auto printed = selfru::entry_lines(r.out);
        ASSERT_EQ(printed.size(), json.size()) << r.out;
        for (size_t i = 0; i < printed.size(); ++i) selfru::expect_same_entry(printed[i], json[i]);
    }
}

TEST_F(SelFruBmcsim, IpmitoolSelInfoShowsTheToolsFigures)
{
    const auto json = ours(cli::add_sel_commands, {"sel", "info"});
    const auto r = selfru::ipmitool(peer_, {"sel", "info"});
    ASSERT_EQ(r.exit_code, 0) << output(r);
    EXPECT_EQ(selfru::field(r.out, "Version").substr(0, 3), json["version"]);
    EXPECT_EQ(selfru::field(r.out, "Entries"), std::to_string(json["entries"].get<int>()));
    EXPECT_EQ(selfru::field(r.out, "Free Space"), std::to_string(json["free_space"].get<int>()) + " bytes");
    EXPECT_EQ(selfru::field(r.out, "Percent Used"), std::to_string(json["percent_used"].get<int>()) + "%");
    EXPECT_EQ(selfru::field(r.out, "Overflow"), json["overflow"].get<bool>() ? "true" : "false");
    const auto when = selfru::split(selfru::field(r.out, "Last Add Time"), ' ');
    ASSERT_GE(when.size(), 2u) << r.out;
    EXPECT_EQ(selfru::iso_from_ipmitool(when[0], when[1]), json["last_add_time"]);
}

TEST_F(SelFruBmcsim, FreeipmiSelShowsTheToolsEntries)
{
    const auto json = ours(cli::add_sel_commands, {"sel", "list"});
    const auto r = selfru::freeipmi(peer_, "ipmi-sel",
                                    {"--ignore-sdr-cache", "--comma-separated-output", "--no-header-output", "-vv"},
                                    cache_.string());
    ASSERT_EQ(r.exit_code, 0) << output(r);
    const auto printed = selfru::lines(r.out);
    ASSERT_EQ(printed.size(), json.size()) << r.out;
    for (size_t i = 0; i < printed.size(); ++i) {
        const auto f = selfru::split(printed[i], ',');
        const auto &e = json[i];
        ASSERT_GE(f.size(), 7u) << printed[i];
        EXPECT_EQ(std::stoul(f[0]), e["record_id"].get<unsigned>());
        EXPECT_EQ(selfru::iso_from_freeipmi(f[1], f[2]), e["time"]) << printed[i];
        if (e["kind"] != "system_event") continue;
        EXPECT_EQ(f[3], "Sensor #" + std::to_string(e["sensor_number"].get<int>()) + " (Generator ID 20h)");
        EXPECT_EQ(f[4], e["sensor_type"]);
        EXPECT_EQ(f[5], e["direction"] == "Asserted" ? "Assertion Event" : "Deassertion Event");
    }
}

TEST_F(SelFruBmcsim, FreeipmiSelInfoShowsTheToolsFigures)
{
    const auto json = ours(cli::add_sel_commands, {"sel", "info"});
    const auto r = selfru::freeipmi(peer_, "ipmi-sel", {"--ignore-sdr-cache", "--info"}, cache_.string());
    ASSERT_EQ(r.exit_code, 0) << output(r);
    EXPECT_EQ(selfru::field(r.out, "SEL version"), json["version"]);
    EXPECT_EQ(selfru::field(r.out, "Number of log entries"), std::to_string(json["entries"].get<int>()));
    EXPECT_EQ(selfru::field(r.out, "Free space remaining"), std::to_string(json["free_space"].get<int>()) + " bytes");
    EXPECT_EQ(selfru::field(r.out, "Reserve SEL Command"), "supported");
    EXPECT_EQ(selfru::field(r.out, "Events dropped due to lack of space"), json["overflow"].get<bool>() ? "Yes" : "No");
}

TEST_F(SelFruBmcsim, PartialReadsGiveTheSameEntries)
{
    const auto whole = ours(cli::add_sel_commands, {"sel", "list"});
    sim_->modify([](bmcsim::Config &c) {
        c.sel.whole_records = false;
        c.sel.max_partial_read = 5;
    });
    const auto parts = ours(cli::add_sel_commands, {"sel", "list"});
    EXPECT_EQ(parts, whole);
}

TEST_F(SelFruBmcsim, ClearEmptiesTheSelForIpmitoolToo)
{
    sim_->modify([](bmcsim::Config &c) { c.sel.erase_polls = 2; });
    const auto cleared = ours(cli::add_sel_commands, {"sel", "clear"});
    EXPECT_EQ(cleared["cleared"], true);
    const auto r = selfru::ipmitool(peer_, {"sel", "info"});
    ASSERT_EQ(r.exit_code, 0) << output(r);
    EXPECT_EQ(selfru::field(r.out, "Entries"), "0");
    const auto list = selfru::ipmitool(peer_, {"sel", "list"});
    EXPECT_NE(output(list).find("SEL has no entries"), std::string::npos) << output(list);
    EXPECT_TRUE(ours(cli::add_sel_commands, {"sel", "list"}).empty());
}

TEST_F(SelFruBmcsim, IpmitoolClearIsSeenByTheTool)
{
    const auto r = selfru::ipmitool(peer_, {"sel", "clear"});
    ASSERT_EQ(r.exit_code, 0) << output(r);
    EXPECT_EQ(ours(cli::add_sel_commands, {"sel", "info"})["entries"], 0);
}

// ipmitool's fru print labels against the tool's, value by value.
TEST_F(SelFruBmcsim, IpmitoolFruPrintShowsTheToolsFields)
{
    std::string text;
    const auto json = ours(cli::add_fru_commands, {"fru", "print", "0"}, &text);
    EXPECT_TRUE(json["damage"].empty());
    const auto r = selfru::ipmitool(peer_, {"fru", "print", "0"});
    ASSERT_EQ(r.exit_code, 0) << output(r);
    size_t compared = 0;
    for (const std::string &line : selfru::lines(text)) {
        const size_t colon = line.find(" : ");
        std::string label = line.substr(0, colon);
        label.erase(0, label.find_first_not_of(' '));
        label.erase(label.find_last_not_of(' ') + 1);
        const std::string value = line.substr(colon + 3);
        if (label == "FRU Device Description") continue;
        const std::string theirs = selfru::field(r.out, label);
        if (label == "Board Mfg Date") {
            // "Thu May 23 07:28:00 2024 UTC"
            std::tm tm{};
            std::istringstream in(theirs);
            in >> std::get_time(&tm, "%a %b %d %H:%M:%S %Y");
            EXPECT_EQ(selfru::iso(tm), value) << theirs;
        } else {
            EXPECT_EQ(theirs, value) << label;
        }
        ++compared;
    }
    EXPECT_EQ(compared, 14u) << text;
}

TEST_F(SelFruBmcsim, FreeipmiFruShowsTheToolsFields)
{
    const auto json = ours(cli::add_fru_commands, {"fru", "print"});
    const auto r = selfru::freeipmi(peer_, "ipmi-fru", {"--ignore-sdr-cache", "--device-id=0"}, cache_.string());
    ASSERT_EQ(r.exit_code, 0) << output(r);
    selfru::expect_ipmi_fru_fields(r.out, json);
}

// Every threshold offset, every generic offset and every sensor-specific
// offset of each standard sensor type, as ipmitool words it and as the tool
// does. Where ipmitool has no words ("" or "reserved") the tool may have
// some; System Firmware Progress (0Fh) ipmitool words from event data 2.
TEST(SelWordsBmcsim, IpmitoolWordsEveryStandardEventAsTheToolDoes)
{
    ASSERT_FALSE(simtest::find_program("ipmitool").empty());
    bmcsim::Config c;
    c.address = "127.0.13.3";
    c.users = {{"admin", "password", 4, true}};
    c.standard_keys = true;
    c.sel.capacity = 1000;
    auto add = [&](uint8_t sensor_type, uint8_t event_type, uint8_t offset) {
        bmcsim::SystemEvent e;
        e.sensor_type = sensor_type;
        e.sensor_number = 0x01;
        e.event_type = event_type;
        e.event_data = {offset, 0xFF, 0xFF};
        c.sel.entries.push_back(bmcsim::system_event_record(e, 1795461727));
    };
    for (uint8_t offset = 0; offset < 12; ++offset) add(0x01, 0x01, offset);
    for (uint8_t type = 0x02; type <= 0x0C; ++type)
        for (uint8_t offset = 0; offset < 15; ++offset) add(0x02, type, offset);
    for (uint8_t type = 0x01; type <= 0x2C; ++type)
        for (uint8_t offset = 0; offset < 15; ++offset) add(type, 0x6F, offset);
    bmcsim::Simulator sim(c);
    sim.start();
    const selfru::Peer peer{"127.0.13.3"};

    std::string error;
    const auto ours = selfru::rmcpp(peer, cli::add_sel_commands, {"sel", "list"}, error);
    ASSERT_TRUE(ours) << error;
    const auto r = selfru::ipmitool(peer, {"sel", "list"});
    ASSERT_EQ(r.exit_code, 0) << output(r);
    const auto theirs = selfru::entry_lines(r.out);
    ASSERT_EQ(theirs.size(), c.sel.entries.size());
    ASSERT_EQ(ours->json.size(), c.sel.entries.size());
    size_t compared = 0;
    for (size_t i = 0; i < theirs.size(); ++i) {
        const auto f = selfru::split(theirs[i], '|');
        ASSERT_EQ(f.size(), 6u) << theirs[i];
        const auto &e = ours->json[i];
        if (f[4].empty() || f[4] == "reserved" || e["sensor_type_code"] == 0x0F) continue;
        EXPECT_EQ(e["description"], f[4]) << theirs[i];
        EXPECT_EQ(e["direction"], f[5]) << theirs[i];
        ++compared;
    }
    EXPECT_GT(compared, 240u);
}

}  // namespace
