// sel info, sel list, sel clear: the System Event Log, laid out as ipmitool
// lays it out, with timestamps in ISO 8601 UTC.
#include <cstdio>
#include <string>
#include <vector>

#include "event_text.h"
#include "runner.h"
#include "sel_list.h"

namespace cli {
namespace {

using nlohmann::json;
using namespace rmcpp::commands;

std::string hex2(unsigned v)
{
    char b[8];
    std::snprintf(b, sizeof b, "%02x", v & 0xFF);
    return b;
}

std::string hex_bytes(const std::vector<uint8_t> &bytes)
{
    std::string s;
    for (uint8_t b : bytes) s += hex2(b);
    return s;
}

// The timestamp as text and as JSON: a number of Unix seconds, or null when
// it is unspecified or counts from the controller's initialisation.
json timestamp_json(uint32_t ts)
{
    if (ts == kSelTimestampUnspecified || ts <= kSelTimestampPreInitMax) return nullptr;
    return ts;
}

// ---- sel info -------------------------------------------------------------

Printed print_sel_info(const SelInfo &info)
{
    std::vector<std::string> supported;
    if (info.delete_supported) supported.push_back("Delete");
    if (info.partial_add_supported) supported.push_back("Partial Add");
    if (info.reserve_supported) supported.push_back("Reserve");
    if (info.allocation_info_supported) supported.push_back("Get Alloc Info");

    const std::string version = std::to_string(info.version_major) + "." + std::to_string(info.version_minor);
    const bool free_known = info.free_space != 0xFFFF;
    const unsigned used = info.entries * 16u;
    const unsigned percent = free_known && used + info.free_space ? 100u * used / (used + info.free_space) : 0;

    std::string text = "SEL Information\n";
    text += "Version          : " + version + "\n";
    text += "Entries          : " + std::to_string(info.entries) + "\n";
    text += "Free Space       : " + (free_known ? std::to_string(info.free_space) + " bytes" : std::string("65535 bytes or more")) + "\n";
    text += "Percent Used     : " + (free_known ? std::to_string(percent) + "%" : std::string("unknown")) + "\n";
    text += "Last Add Time    : " + sel_timestamp_text(info.last_add_time) + "\n";
    text += "Last Del Time    : " + sel_timestamp_text(info.last_erase_time) + "\n";
    text += std::string("Overflow         : ") + (info.overflow ? "true" : "false") + "\n";
    text += "Supported Cmds   :";
    for (const auto &s : supported) text += " '" + s + "'";
    text += "\n";

    json j = {
        {"version", version},
        {"entries", info.entries},
        {"free_space", free_known ? json(info.free_space) : json(nullptr)},
        {"percent_used", free_known ? json(percent) : json(nullptr)},
        {"last_add_time", sel_timestamp_text(info.last_add_time)},
        {"last_add_timestamp", info.last_add_time},
        {"last_erase_time", sel_timestamp_text(info.last_erase_time)},
        {"last_erase_timestamp", info.last_erase_time},
        {"overflow", info.overflow},
        {"supported_commands", supported},
    };
    return {text, j};
}

// ---- sel list -------------------------------------------------------------

// One entry as both outputs show it.
struct SelLine {
    uint16_t record_id = 0;
    uint8_t record_type = 0;
    std::string kind;  // "system_event", "oem_timestamped", "oem"
    std::string time;
    json timestamp;
    // System events.
    std::string sensor;       // "Temperature #0x30"
    std::string sensor_type;  // "Temperature"
    uint8_t sensor_type_code = 0, sensor_number = 0, event_type = 0;
    uint16_t generator_id = 0;
    std::string description;
    bool asserted = true;
    std::vector<uint8_t> event_data;
    // OEM records.
    uint32_t manufacturer_id = 0;
    std::vector<uint8_t> oem_data;
};

SelLine sel_line(const SelEntry &e)
{
    const SelRecord &r = e.record;
    SelLine l;
    l.record_id = r.record_id;
    l.record_type = r.record_type;
    const bool timestamped = r.kind == SelRecordKind::SystemEvent || r.kind == SelRecordKind::OemTimestamped;
    l.time = timestamped ? sel_timestamp_text(r.timestamp) : "";
    l.timestamp = timestamped ? timestamp_json(r.timestamp) : json(nullptr);
    switch (r.kind) {
    case SelRecordKind::SystemEvent: {
        l.kind = "system_event";
        l.sensor_type_code = r.sensor_type;
        l.sensor_type = std::string(sensor_type_name(r.sensor_type));
        if (l.sensor_type.empty()) l.sensor_type = "Sensor type 0x" + hex2(r.sensor_type);
        l.sensor_number = r.sensor_number;
        l.sensor = l.sensor_type + " #0x" + hex2(r.sensor_number);
        l.event_type = r.event_type;
        l.generator_id = r.generator_id;
        l.description = std::string(event_description(r.event_type, r.sensor_type, r.offset));
        if (l.description.empty()) l.description = "Offset 0x" + hex2(r.offset);
        l.asserted = !r.deassertion;
        l.event_data.assign(r.event_data.begin(), r.event_data.end());
        break;
    }
    case SelRecordKind::OemTimestamped:
        l.kind = "oem_timestamped";
        l.manufacturer_id = r.manufacturer_id;
        l.oem_data = r.oem_data;
        break;
    case SelRecordKind::OemNonTimestamped:
    case SelRecordKind::Unspecified:
        l.kind = "oem";
        l.oem_data = r.oem_data;
        break;
    }
    return l;
}

std::string sel_line_text(const SelLine &l)
{
    char id[16];
    std::snprintf(id, sizeof id, "%4x", l.record_id);
    std::string text = std::string(id) + " | ";
    if (l.kind == "system_event") {
        text += l.time + " | " + l.sensor + " | " + l.description + " | " + (l.asserted ? "Asserted" : "Deasserted");
    } else if (l.kind == "oem_timestamped") {
        char mfg[8];
        std::snprintf(mfg, sizeof mfg, "%06x", l.manufacturer_id & 0xFFFFFF);
        text += l.time + " | OEM record " + hex2(l.record_type) + " | " + mfg + " | " + hex_bytes(l.oem_data);
    } else {
        text += "OEM record " + hex2(l.record_type) + " | " + hex_bytes(l.oem_data);
    }
    return text + "\n";
}

json sel_line_json(const SelLine &l)
{
    json j = {{"record_id", l.record_id}, {"record_type", l.record_type}, {"kind", l.kind}};
    if (l.kind != "oem") {
        j["time"] = l.time;
        j["timestamp"] = l.timestamp;
    }
    if (l.kind == "system_event") {
        j["generator_id"] = l.generator_id;
        j["sensor_type"] = l.sensor_type;
        j["sensor_type_code"] = l.sensor_type_code;
        j["sensor_number"] = l.sensor_number;
        j["event_type"] = l.event_type;
        j["description"] = l.description;
        j["direction"] = l.asserted ? "Asserted" : "Deasserted";
        j["event_data"] = l.event_data;
    } else {
        if (l.kind == "oem_timestamped") j["manufacturer_id"] = l.manufacturer_id;
        j["oem_data"] = l.oem_data;
    }
    return j;
}

Printed print_sel_list(const std::vector<SelEntry> &entries)
{
    Printed p{"", json::array()};
    for (const SelEntry &e : entries) {
        const SelLine l = sel_line(e);
        p.text += sel_line_text(l);
        p.json.push_back(sel_line_json(l));
    }
    if (entries.empty()) p.text = "SEL has no entries\n";
    return p;
}

}  // namespace

void add_sel_commands(CLI::App &app, Runner &runner)
{
    CLI::App *sel = app.add_subcommand("sel", "System Event Log");
    sel->require_subcommand(1);
    sel->add_subcommand("info", "SEL version, entries, free space and times")->callback([&runner] {
        runner.in_session("sel info", [](Transport &t) { return print_sel_info(read_sel_info(t)); });
    });
    sel->add_subcommand("list", "every SEL entry")->callback([&runner] {
        runner.in_session("sel list", [](Transport &t) { return print_sel_list(read_sel(t)); });
    });
    sel->add_subcommand("clear", "erase the SEL and wait until it is erased")->callback([&runner] {
        runner.in_session("sel clear", [](Transport &t) {
            clear_sel(t);
            return Printed{"SEL cleared\n", {{"cleared", true}}};
        });
    });
}

}  // namespace cli
