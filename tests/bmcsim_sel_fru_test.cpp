// The simulator's SEL and FRU devices: the platform file's sections, and the
// Storage commands answered from them.
#include <yaml-cpp/yaml.h>

#include <gtest/gtest.h>

#include "engine.h"
#include "fru.h"
#include "fru_area.h"
#include "sel.h"
#include "sel_entry.h"

namespace {

using bmcsim::Bytes;
using bmcsim::Config;

Config load(const std::string &yaml)
{
    Config c;
    const YAML::Node root = YAML::Load(yaml);
    if (root["sel"]) bmcsim::load_sel(root["sel"], c);
    if (root["fru"]) bmcsim::load_fru(root["fru"], c);
    return c;
}

std::string load_error(const std::string &yaml)
{
    try {
        load(yaml);
    } catch (const std::runtime_error &e) {
        return e.what();
    }
    return "no error";
}

TEST(PlatformSel, ASystemEventBecomesItsRecord)
{
    const Config c = load(R"(
sel:
  capacity: 20
  erase_polls: 2
  entries:
    - timestamp: 2026-11-23T19:22:07Z
      sensor_type: 0x01
      sensor_number: 0x30
      event_type: 0x01
      direction: deassertion
      event_data: [0x59, 0x60, 0x55]
    - sensor_type: 7
      sensor_number: 0x41
      event_type: 0x6f
    - raw: [0, 0, 0xC1, 1, 2, 3, 4, 0x57, 1, 0, 1, 2, 3, 4, 5, 6]
)");
    EXPECT_EQ(c.sel.capacity, 20);
    EXPECT_EQ(c.sel.erase_polls, 2);
    ASSERT_EQ(c.sel.entries.size(), 3u);
    const auto r = rmcpp::commands::decode_sel_record(c.sel.entries[0].data(), 16);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->timestamp, 1795461727u);
    EXPECT_EQ(r->record_type, 0x02);
    EXPECT_EQ(r->generator_id, 0x0020);
    EXPECT_EQ(r->evm_rev, 0x04);
    EXPECT_EQ(r->sensor_type, 0x01);
    EXPECT_EQ(r->sensor_number, 0x30);
    EXPECT_TRUE(r->deassertion);
    EXPECT_EQ(r->event_type, 0x01);
    EXPECT_EQ(r->event_data, (std::array<uint8_t, 3>{0x59, 0x60, 0x55}));
    const auto second = rmcpp::commands::decode_sel_record(c.sel.entries[1].data(), 16);
    EXPECT_EQ(second->timestamp, 0xFFFFFFFFu);
    EXPECT_FALSE(second->deassertion);
    EXPECT_EQ(second->event_data, (std::array<uint8_t, 3>{0x00, 0xFF, 0xFF}));
    EXPECT_EQ(c.sel.entries[2][2], 0xC1);
    EXPECT_EQ(c.sel.entries[2][15], 6);
}

TEST(PlatformSel, BadValuesNameTheirLine)
{
    EXPECT_EQ(load_error("sel:\n  entries:\n    - sensor_type: 0x100\n      sensor_number: 1\n"),
              "line 3: sensor_type: '0x100' is not a number from 0 to 255");
    EXPECT_EQ(load_error("sel:\n  entries:\n    - sensor_type: 1\n"), "line 3: sel entry: sensor_number is missing");
    EXPECT_EQ(load_error("sel:\n  colour: red\n"), "line 2: sel: unknown key 'colour'");
    EXPECT_EQ(load_error("sel:\n  entries:\n    - raw: [1, 2]\n"), "line 3: sel entry raw: 16 bytes are needed");
    EXPECT_EQ(load_error("sel:\n  entries:\n    - sensor_type: 1\n      sensor_number: 1\n      direction: up\n"),
              "line 5: direction: assertion or deassertion");
    EXPECT_EQ(load_error("sel:\n  entries:\n    - sensor_type: 1\n      sensor_number: 1\n      timestamp: soon\n"),
              "line 5: timestamp: 'soon' is not a number from 0 to 4294967295");
}

TEST(PlatformFru, FieldsAreEncodedIntoTheImage)
{
    const Config c = load(R"(
fru:
  - id: 0
    max_read: 24
    chassis: {type: 0x17, part_number: CH-1, serial: CS-1}
    board: {mfg_date: 2024-05-23T07:28:00Z, manufacturer: Acme, product: Board X, serial: BS, part_number: BP}
    product: {manufacturer: Acme, name: Server Y, part_number: PP, version: "1.0", serial: PS, asset_tag: A}
  - id: 3
    access: words
    product: {name: Other}
)");
    ASSERT_EQ(c.fru.size(), 2u);
    const auto &d = c.fru.at(0);
    EXPECT_EQ(d.max_read, 24);
    EXPECT_FALSE(d.access_by_words);
    const auto fru = rmcpp::commands::decode_fru(d.image.data(), d.image.size());
    EXPECT_FALSE(fru.damaged());
    EXPECT_EQ(fru.chassis.chassis_type, 0x17);
    EXPECT_EQ(fru.chassis.part_number.text, "CH-1");
    EXPECT_EQ(fru.board.mfg_unix, 1716449280);  // 2024-05-23T07:28:00Z
    EXPECT_EQ(fru.board.product_name.text, "Board X");
    EXPECT_EQ(fru.product.version.text, "1.0");
    EXPECT_EQ(fru.product.asset_tag.text, "A");
    EXPECT_TRUE(c.fru.at(3).access_by_words);
    const auto other = rmcpp::commands::decode_fru(c.fru.at(3).image.data(), c.fru.at(3).image.size());
    EXPECT_EQ(other.product.product_name.text, "Other");
    EXPECT_FALSE(other.chassis.present);
}

TEST(PlatformFru, BadValuesNameTheirLine)
{
    EXPECT_EQ(load_error("fru:\n  - id: 255\n"), "line 2: id: '255' is not a number from 0 to 254");
    EXPECT_EQ(load_error("fru:\n  - id: 1\n    board: {mfg_date: yesterday}\n"),
              "line 3: mfg_date: 'YYYY-MM-DDThh:mm:00Z' is needed, not 'yesterday'");
    EXPECT_EQ(load_error("fru:\n  - id: 1\n    product:\n      name: " + std::string(64, 'n') + "\n"),
              "line 4: product.name: longer than 63 bytes");
    EXPECT_EQ(load_error("fru:\n  - id: 1\n  - id: 1\n"), "line 3: fru device 1 given twice");
    EXPECT_EQ(load_error("fru:\n  - id: 1\n    product: {nome: x}\n"), "line 3: product: unknown key 'nome'");
    EXPECT_EQ(load_error("fru:\n  id: 1\n"), "line 2: fru: a list of devices is needed");
    EXPECT_EQ(load_error("fru:\n  - id: 1\n    product: {type: 3}\n"), "line 3: product: unknown key 'type'");
    EXPECT_EQ(load_error("fru:\n  - id: 1\n    chassis: {type: 0x100}\n"),
              "line 3: chassis.type: '0x100' is not a number from 0 to 255");
}

TEST(PlatformSample, TheSampleSectionsLoad)
{
    const YAML::Node root = YAML::LoadFile(RMCPP_SOURCE_DIR "/tools/bmcsim/sample-platform.yaml");
    Config c;
    bmcsim::load_sel(root["sel"], c);
    bmcsim::load_fru(root["fru"], c);
    EXPECT_EQ(c.sel.entries.size(), 4u);
    ASSERT_EQ(c.fru.count(0), 1u);
    EXPECT_FALSE(rmcpp::commands::decode_fru(c.fru.at(0).image.data(), c.fru.at(0).image.size()).damaged());
}

// ---- the Storage commands --------------------------------------------------

using Answer = std::pair<uint8_t, Bytes>;

struct Sel : ::testing::Test {
    bmcsim::SelConfig config;
    bmcsim::detail::SelStore store;
    uint32_t now = 1795461727;

    Answer run(uint8_t cmd, Bytes data = {})
    {
        store.configure(config, now);
        auto a = store.command(cmd, data, config, now);
        EXPECT_TRUE(a);
        return a ? *a : Answer{0xFF, {}};
    }
    Bytes get(uint16_t reservation, uint16_t id, uint8_t offset, uint8_t count)
    {
        return {static_cast<uint8_t>(reservation), static_cast<uint8_t>(reservation >> 8), static_cast<uint8_t>(id),
                static_cast<uint8_t>(id >> 8), offset, count};
    }
    void add_events(int n)
    {
        for (int i = 0; i < n; ++i) {
            bmcsim::SystemEvent e;
            e.sensor_type = 0x01;
            e.sensor_number = static_cast<uint8_t>(i);
            config.entries.push_back(bmcsim::system_event_record(e, 1000 + i));
        }
    }
};

TEST_F(Sel, InfoCountsEntriesAndFreeSpace)
{
    config.capacity = 10;
    add_events(3);
    const Answer a = run(0x40);
    EXPECT_EQ(a.first, 0x00);
    const auto info = rmcpp::commands::decode_get_sel_info(a.second.data(), a.second.size());
    ASSERT_TRUE(info);
    EXPECT_EQ(info->version_raw, 0x51);
    EXPECT_EQ(info->entries, 3);
    EXPECT_EQ(info->free_space, 7 * 16);
    EXPECT_TRUE(info->reserve_supported);
    EXPECT_FALSE(info->overflow);
}

TEST_F(Sel, EntriesChainFromFirstToLastKeepingTheirTimes)
{
    add_events(3);
    Answer a = run(0x43, get(0, 0x0000, 0, 0xFF));
    ASSERT_EQ(a.first, 0x00);
    auto e = rmcpp::commands::decode_get_sel_entry(a.second.data(), a.second.size());
    ASSERT_TRUE(e);
    EXPECT_EQ(e->record.record_id, 1);
    EXPECT_EQ(e->next_record_id, 2);
    EXPECT_EQ(e->record.timestamp, 1000u);
    a = run(0x43, get(0, 0x0003, 0, 0xFF));
    e = rmcpp::commands::decode_get_sel_entry(a.second.data(), a.second.size());
    ASSERT_TRUE(e);
    EXPECT_EQ(e->next_record_id, 0xFFFF);
    EXPECT_EQ(e->record.sensor_number, 2);
    EXPECT_EQ(run(0x43, get(0, 0x0009, 0, 0xFF)).first, 0xCB);
}

TEST_F(Sel, PartialReadsNeedTheReservationAndAreBounded)
{
    add_events(1);
    config.max_partial_read = 8;
    EXPECT_EQ(run(0x43, get(0, 0, 0, 4)).first, 0xC5);
    const Answer reserved = run(0x42);
    ASSERT_EQ(reserved.first, 0x00);
    const uint16_t r = static_cast<uint16_t>(reserved.second.at(0) | (reserved.second.at(1) << 8));
    EXPECT_EQ(run(0x43, get(r, 0, 0, 9)).first, 0xCA);
    const Answer part = run(0x43, get(r, 0, 12, 8));
    ASSERT_EQ(part.first, 0x00);
    EXPECT_EQ(part.second.size(), 2u + 4u);  // the record's last four bytes
    EXPECT_EQ(run(0x43, get(r, 0, 16, 1)).first, 0xC9);
    run(0x42);
    EXPECT_EQ(run(0x43, get(r, 0, 0, 4)).first, 0xC5);  // a newer reservation cancels it
}

TEST_F(Sel, WholeRecordsCanBeRefused)
{
    add_events(1);
    config.whole_records = false;
    EXPECT_EQ(run(0x43, get(0, 0, 0, 0xFF)).first, 0xCA);
}

TEST_F(Sel, AnEmptySelHasNoFirstEntry)
{
    EXPECT_EQ(run(0x43, get(0, 0, 0, 0xFF)).first, 0xCB);
}

TEST_F(Sel, AddGivesTheNextIdAndTheTimeAndFillsUp)
{
    config.capacity = 2;
    bmcsim::SystemEvent e;
    auto record = bmcsim::system_event_record(e, 5);
    Answer a = run(0x44, Bytes(record.begin(), record.end()));
    ASSERT_EQ(a.first, 0x00);
    EXPECT_EQ(a.second, (Bytes{0x01, 0x00}));
    EXPECT_EQ(run(0x44, Bytes(record.begin(), record.end())).second, (Bytes{0x02, 0x00}));
    EXPECT_EQ(run(0x44, Bytes(record.begin(), record.end())).first, 0xC4);
    const Answer got = run(0x43, get(0, 1, 0, 0xFF));
    const auto entry = rmcpp::commands::decode_get_sel_entry(got.second.data(), got.second.size());
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->record.timestamp, now);
    const Answer info = run(0x40);
    EXPECT_TRUE(rmcpp::commands::decode_get_sel_info(info.second.data(), info.second.size())->overflow);
    EXPECT_EQ(run(0x44, Bytes(15)).first, 0xC7);
}

TEST_F(Sel, ClearTakesTheConfiguredPollsToComplete)
{
    add_events(2);
    config.erase_polls = 2;
    const Answer reserved = run(0x42);
    const Bytes id = reserved.second;
    auto clear = [&](uint8_t action) { return run(0x47, {id[0], id[1], 'C', 'L', 'R', action}); };
    EXPECT_EQ(run(0x47, {0x00, 0x00, 'C', 'L', 'R', 0xAA}).first, 0xC5);
    EXPECT_EQ(run(0x47, {id[0], id[1], 'C', 'L', 'X', 0xAA}).first, 0xCC);
    EXPECT_EQ(clear(0xAA), (Answer{0x00, {0x00}}));
    EXPECT_EQ(clear(0x00), (Answer{0x00, {0x00}}));
    EXPECT_EQ(clear(0x00), (Answer{0x00, {0x00}}));
    EXPECT_EQ(clear(0x00), (Answer{0x00, {0x01}}));
    EXPECT_EQ(store.size(), 0u);
    const Answer info = run(0x40);
    EXPECT_EQ(rmcpp::commands::decode_get_sel_info(info.second.data(), info.second.size())->last_erase_time, now);
}

TEST_F(Sel, LoggedEventsFollowTheConfiguredOnes)
{
    add_events(1);
    store.configure(config, now);
    bmcsim::SystemEvent e;
    e.sensor_type = 0x02;
    e.sensor_number = 0x31;
    e.event_type = 0x01;
    e.event_data = {0x57, 0x10, 0x12};
    ASSERT_EQ(store.add(bmcsim::system_event_record(e, now), config, now), std::optional<uint16_t>(2));
    const Answer got = run(0x43, get(0, 2, 0, 0xFF));
    const auto entry = rmcpp::commands::decode_get_sel_entry(got.second.data(), got.second.size());
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->record.sensor_number, 0x31);
    EXPECT_EQ(entry->record.event_data, e.event_data);
    EXPECT_EQ(entry->record.timestamp, now);
}

TEST(Fru, AreaInfoAndReadsWithinTheMaximumCount)
{
    Config c;
    c.fru[0].image = Bytes(100);
    for (size_t i = 0; i < 100; ++i) c.fru[0].image[i] = static_cast<uint8_t>(i);
    c.fru[0].max_read = 16;
    using bmcsim::detail::fru_command;
    EXPECT_EQ(*fru_command(0x10, {0x00}, c), (Answer{0x00, {100, 0, 0}}));
    EXPECT_EQ(fru_command(0x10, {0x01}, c)->first, 0xCB);
    EXPECT_EQ(fru_command(0x11, {0x00, 0x00, 0x00, 17}, c)->first, 0xCA);
    const Answer a = *fru_command(0x11, {0x00, 96, 0x00, 16}, c);
    EXPECT_EQ(a, (Answer{0x00, {4, 96, 97, 98, 99}}));
    EXPECT_EQ(fru_command(0x11, {0x00, 100, 0x00, 1}, c)->first, 0xC9);
    EXPECT_EQ(fru_command(0x11, {0x00, 0, 0x00, 0}, c)->first, 0xCC);
    EXPECT_EQ(fru_command(0x11, {0x00, 0, 0x00}, c)->first, 0xC7);
    EXPECT_FALSE(fru_command(0x12, {}, c));
}

TEST(Fru, WordAccessCountsWords)
{
    Config c;
    c.fru[2].image = Bytes{1, 2, 3, 4, 5};
    c.fru[2].access_by_words = true;
    using bmcsim::detail::fru_command;
    EXPECT_EQ(*fru_command(0x10, {0x02}, c), (Answer{0x00, {5, 0, 1}}));
    EXPECT_EQ(*fru_command(0x11, {0x02, 1, 0, 2}, c), (Answer{0x00, {2, 3, 4, 5, 0}}));
}

}  // namespace

namespace {

TEST(LogSystemEvent, AddsUntilTheSelIsFull)
{
    bmcsim::detail::Engine engine(nullptr);
    bmcsim::Config c;
    c.sel.capacity = 1;
    bmcsim::SystemEvent e;
    e.sensor_type = 0x01;
    EXPECT_TRUE(engine.log_system_event(e, c));
    EXPECT_FALSE(engine.log_system_event(e, c));
}

}  // namespace
