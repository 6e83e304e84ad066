// fru print [ID]: a FRU device's chassis, board and product areas, laid out
// as ipmitool lays them out; dates in ISO 8601 UTC.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "fru_read.h"
#include "runner.h"
#include "sel_entry.h"

namespace cli {
namespace {

using nlohmann::json;
using namespace rmcpp::commands;

const char *area_name(FruAreaKind kind)
{
    switch (kind) {
    case FruAreaKind::header: return "header";
    case FruAreaKind::internal_use: return "internal_use";
    case FruAreaKind::chassis: return "chassis";
    case FruAreaKind::board: return "board";
    case FruAreaKind::product: return "product";
    case FruAreaKind::multirecord: return "multirecord";
    }
    return "";
}

const char *problem_name(FruProblem problem)
{
    switch (problem) {
    case FruProblem::truncated: return "truncated";
    case FruProblem::bad_version: return "bad_version";
    case FruProblem::bad_checksum: return "bad_checksum";
    case FruProblem::zero_length: return "zero_length";
    case FruProblem::length_past_end: return "length_past_end";
    case FruProblem::field_past_end: return "field_past_end";
    case FruProblem::missing_end_marker: return "missing_end_marker";
    case FruProblem::missing_field: return "missing_field";
    }
    return "";
}

const char *problem_words(FruProblem problem)
{
    switch (problem) {
    case FruProblem::truncated: return "ends early";
    case FruProblem::bad_version: return "format version is not 1";
    case FruProblem::bad_checksum: return "checksum is wrong";
    case FruProblem::zero_length: return "length is 0";
    case FruProblem::length_past_end: return "length runs past the end of the data";
    case FruProblem::field_past_end: return "a field runs past the end of the area";
    case FruProblem::missing_end_marker: return "no end-of-fields marker";
    case FruProblem::missing_field: return "a required field is missing";
    }
    return "";
}

// The device as both outputs show it: labelled fields in ipmitool's order,
// each with its JSON key.
struct FruLine {
    std::string label;  // ipmitool's words
    std::string key;    // JSON key within its area
    std::string area;   // "chassis", "board", "product"
    json value;         // a string, or a number
    std::string text;
};

std::vector<FruLine> fru_lines(const FruImage &f)
{
    std::vector<FruLine> lines;
    auto field = [&](const char *area, const char *label, const char *key, const FruField &v) {
        lines.push_back({label, key, area, v.text, v.text});
    };
    auto custom = [&](const char *area, const char *label, const std::vector<FruField> &fields) {
        for (const FruField &v : fields) lines.push_back({label, "extra", area, v.text, v.text});
    };
    if (f.chassis.present) {
        const FruChassisArea &c = f.chassis;
        std::string type(fru_chassis_type_name(c.chassis_type));
        if (type.empty()) {
            char code[16];
            std::snprintf(code, sizeof code, "0x%02X", c.chassis_type);
            type = std::string("Unknown (") + code + ")";
        }
        lines.push_back({"Chassis Type", "type", "chassis", type, type});
        lines.push_back({"", "type_code", "chassis", c.chassis_type, ""});
        field("chassis", "Chassis Part Number", "part_number", c.part_number);
        field("chassis", "Chassis Serial", "serial", c.serial_number);
        custom("chassis", "Chassis Extra", c.custom);
    }
    if (f.board.present) {
        const FruBoardArea &b = f.board;
        const std::string date = b.mfg_minutes ? iso8601_utc(static_cast<uint32_t>(b.mfg_unix)) : "Unspecified";
        lines.push_back({"Board Mfg Date", "mfg_date", "board", b.mfg_minutes ? json(date) : json(nullptr), date});
        field("board", "Board Mfg", "manufacturer", b.manufacturer);
        field("board", "Board Product", "product", b.product_name);
        field("board", "Board Serial", "serial", b.serial_number);
        field("board", "Board Part Number", "part_number", b.part_number);
        if (!b.fru_file_id.raw.empty()) field("board", "Board FRU ID", "fru_file_id", b.fru_file_id);
        custom("board", "Board Extra", b.custom);
    }
    if (f.product.present) {
        const FruProductArea &p = f.product;
        field("product", "Product Manufacturer", "manufacturer", p.manufacturer);
        field("product", "Product Name", "name", p.product_name);
        field("product", "Product Part Number", "part_number", p.part_number);
        field("product", "Product Version", "version", p.version);
        field("product", "Product Serial", "serial", p.serial_number);
        field("product", "Product Asset Tag", "asset_tag", p.asset_tag);
        if (!p.fru_file_id.raw.empty()) field("product", "Product FRU ID", "fru_file_id", p.fru_file_id);
        custom("product", "Product Extra", p.custom);
    }
    return lines;
}

Printed print_fru(const FruDevice &d)
{
    const std::string id = std::to_string(d.device_id);
    std::string text = "FRU Device Description : " +
                       (d.device_id == 0 ? "Builtin FRU Device (ID 0)" : std::string("FRU Device (ID ") + id + ")") +
                       "\n";
    json j = {{"device_id", d.device_id}, {"area_size", d.area_size}, {"access_by_words", d.access_by_words}};
    for (const char *area : {"chassis", "board", "product"}) j[area] = nullptr;

    for (const FruLine &l : fru_lines(d.decoded)) {
        if (!l.label.empty()) {
            std::string label = " " + l.label;
            label.resize(std::max<size_t>(label.size(), 23), ' ');
            text += label + ": " + l.text + "\n";
        }
        json &area = j[l.area];
        if (area.is_null()) area = json::object();
        if (l.key == "extra")
            area["extra"].push_back(l.value);
        else
            area[l.key] = l.value;
    }

    j["damage"] = json::array();
    for (const FruDamage &damage : d.decoded.damage) {
        text += std::string(" Damaged ") + area_name(damage.area) + " area: " + problem_words(damage.problem) +
                " (byte " + std::to_string(damage.offset) + ")\n";
        j["damage"].push_back({{"area", area_name(damage.area)},
                               {"problem", problem_name(damage.problem)},
                               {"offset", damage.offset}});
    }
    return {text, j};
}

}  // namespace

void add_fru_commands(CLI::App &app, Runner &runner)
{
    CLI::App *fru = app.add_subcommand("fru", "FRU inventory");
    fru->require_subcommand(1);
    CLI::App *print = fru->add_subcommand("print", "a FRU device's chassis, board and product areas");
    auto id = std::make_shared<std::string>("0");
    print->add_option("ID", *id, "FRU device ID, 0 to 254 (default 0: the BMC's own)");
    print->callback([&runner, id] {
        size_t used = 0;
        unsigned long value = 256;
        try {
            const bool hex = id->size() > 2 && (*id)[0] == '0' && ((*id)[1] == 'x' || (*id)[1] == 'X');
            value = std::stoul(hex ? id->substr(2) : *id, &used, hex ? 16 : 10);
            if (hex) used += 2;
        } catch (const std::exception &) {
            used = 0;
        }
        if (used == 0 || used != id->size() || value > 254)
            return runner.usage_error("fru print: ID must be a number from 0 to 254, not '" + *id + "'");
        const uint8_t device = static_cast<uint8_t>(value);
        runner.in_session("fru print", [device](Transport &t) { return print_fru(read_fru(t, device)); });
    });
}

}  // namespace cli
