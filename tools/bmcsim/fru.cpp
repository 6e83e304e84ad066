#include "fru.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

#include "fru_area.h"
#include "engine.h"
#include "wire.h"

namespace bmcsim {
namespace {

enum : uint8_t {
    kOk = 0x00,
    kRequestLengthInvalid = 0xC7,
    kParameterOutOfRange = 0xC9,
    kCannotReturnBytes = 0xCA,
    kNotPresent = 0xCB,
    kInvalidDataField = 0xCC,
};

enum : uint8_t { kGetFruInventoryAreaInfo = 0x10, kReadFruData = 0x11 };

std::pair<uint8_t, Bytes> area_info(const Bytes &data, const Config &c)
{
    if (data.size() != 1) return {kRequestLengthInvalid, {}};
    auto it = c.fru.find(data[0]);
    if (it == c.fru.end() || data[0] == 0xFF) return {kNotPresent, {}};
    const size_t size = it->second.image.size();
    return {kOk, {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8),
                  static_cast<uint8_t>(it->second.access_by_words ? 0x01 : 0x00)}};
}

std::pair<uint8_t, Bytes> read_data(const Bytes &data, const Config &c)
{
    if (data.size() != 4) return {kRequestLengthInvalid, {}};
    rmcpp::wire::Reader r(data.data(), data.size());
    const uint8_t id = r.u8();
    const uint16_t offset = r.u16le();
    const uint8_t count = r.u8();
    auto it = c.fru.find(id);
    if (it == c.fru.end() || id == 0xFF) return {kNotPresent, {}};
    const FruDeviceConfig &d = it->second;
    const size_t unit = d.access_by_words ? 2 : 1;
    if (count == 0) return {kInvalidDataField, {}};
    if (count > d.max_read) return {kCannotReturnBytes, {}};
    const size_t at = size_t{offset} * unit;
    if (at >= d.image.size()) return {kParameterOutOfRange, {}};
    const size_t bytes = std::min(size_t{count} * unit, d.image.size() - at);
    const size_t units = (bytes + unit - 1) / unit;
    Bytes out{static_cast<uint8_t>(units)};
    out.insert(out.end(), d.image.begin() + at, d.image.begin() + at + bytes);
    out.resize(1 + units * unit, 0x00);  // a last odd byte read as a word
    return {kOk, out};
}

[[noreturn]] void bad(const YAML::Node &node, const std::string &what)
{
    throw std::runtime_error("line " + std::to_string(node.Mark().line + 1) + ": " + what);
}

unsigned long number(const YAML::Node &node, const std::string &name, unsigned long max)
{
    const std::string text = node.IsScalar() ? node.Scalar() : "";
    size_t used = 0;
    unsigned long v = 0;
    try {
        v = std::stoul(text, &used, 0);
    } catch (const std::exception &) {
        used = 0;
    }
    if (text.empty() || used != text.size() || text[0] == '-' || v > max)
        bad(node, name + ": '" + text + "' is not a number from 0 to " + std::to_string(max));
    return v;
}

std::string text(const YAML::Node &node, const std::string &name)
{
    if (!node.IsScalar()) bad(node, name + ": text is needed");
    if (node.Scalar().size() > rmcpp::commands::kFruFieldMaxLength) bad(node, name + ": longer than 63 bytes");
    return node.Scalar();
}

// Reads the keys of `area` into the fields named in `keys`; `other` is the
// one further key the area may have (read by the caller).
void fields(const YAML::Node &area, const std::string &name,
            std::initializer_list<std::pair<const char *, std::string *>> keys, const char *other = "")
{
    if (!area.IsMap()) bad(area, name + ": a map is needed");
    for (const auto &kv : area) {
        const std::string key = kv.first.as<std::string>();
        bool known = key == other;
        for (const auto &[k, out] : keys)
            if (key == k) {
                *out = text(kv.second, name + "." + key);
                known = true;
            }
        if (!known) bad(kv.first, name + ": unknown key '" + key + "'");
    }
}

// "YYYY-MM-DDThh:mm:ssZ" (or "... hh:mm") as minutes since 1996-01-01 00:00 UTC.
uint32_t mfg_minutes(const YAML::Node &node)
{
    const std::string s = node.IsScalar() ? node.Scalar() : "";
    std::tm tm{};
    char z = 0;
    int n = std::sscanf(s.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
                        &tm.tm_min, &tm.tm_sec, &z);
    if (n != 7 || z != 'Z' || tm.tm_sec != 0)
        bad(node, "mfg_date: 'YYYY-MM-DDThh:mm:00Z' is needed, not '" + s + "'");
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    const long long minutes = (static_cast<long long>(timegm(&tm)) - rmcpp::commands::kFruEpochUnix) / 60;
    if (minutes < 1 || minutes > 0xFFFFFF) bad(node, "mfg_date: '" + s + "' is outside 1996 to 2027");
    return static_cast<uint32_t>(minutes);
}

FruDeviceConfig device(const YAML::Node &d, uint8_t &id)
{
    if (!d.IsMap()) bad(d, "fru device: a map is needed");
    if (!d["id"]) bad(d, "fru device: id is missing");
    id = static_cast<uint8_t>(number(d["id"], "id", 254));
    FruDeviceConfig dev;
    rmcpp::commands::FruContents contents;
    for (const auto &kv : d) {
        const std::string key = kv.first.as<std::string>();
        const YAML::Node &v = kv.second;
        if (key == "id") continue;
        if (key == "max_read") dev.max_read = static_cast<uint8_t>(number(v, "max_read", 255));
        else if (key == "access") {
            const std::string a = v.IsScalar() ? v.Scalar() : "";
            if (a != "bytes" && a != "words") bad(v, "access: bytes or words");
            dev.access_by_words = a == "words";
        } else if (key == "chassis") {
            rmcpp::commands::FruChassisFields c;
            fields(v, "chassis", {{"part_number", &c.part_number}, {"serial", &c.serial_number}}, "type");
            if (v["type"]) c.chassis_type = static_cast<uint8_t>(number(v["type"], "chassis.type", 0xFF));
            contents.chassis = c;
        } else if (key == "board") {
            rmcpp::commands::FruBoardFields b;
            fields(v, "board", {{"manufacturer", &b.manufacturer}, {"product", &b.product_name},
                                {"serial", &b.serial_number}, {"part_number", &b.part_number},
                                {"fru_file_id", &b.fru_file_id}},
                   "mfg_date");
            if (v["mfg_date"]) b.mfg_minutes = mfg_minutes(v["mfg_date"]);
            contents.board = b;
        } else if (key == "product") {
            rmcpp::commands::FruProductFields p;
            fields(v, "product", {{"manufacturer", &p.manufacturer}, {"name", &p.product_name},
                                  {"part_number", &p.part_number}, {"version", &p.version},
                                  {"serial", &p.serial_number}, {"asset_tag", &p.asset_tag},
                                  {"fru_file_id", &p.fru_file_id}});
            contents.product = p;
        } else {
            bad(kv.first, "fru device: unknown key '" + key + "'");
        }
    }
    if (dev.max_read == 0) bad(d["max_read"], "max_read: 1 to 255");
    auto image = rmcpp::commands::encode_fru(contents);
    if (!image) bad(d, "fru device " + std::to_string(id) + ": a field cannot be encoded (one character outside space to underscore?)");
    dev.image = std::move(*image);
    return dev;
}

}  // namespace

void load_fru(const YAML::Node &section, Config &config)
{
    if (!section.IsSequence()) bad(section, "fru: a list of devices is needed");
    std::map<uint8_t, FruDeviceConfig> devices;
    for (const YAML::Node &d : section) {
        uint8_t id = 0;
        FruDeviceConfig dev = device(d, id);
        if (!devices.emplace(id, std::move(dev)).second) bad(d, "fru device " + std::to_string(id) + " given twice");
    }
    config.fru = std::move(devices);
}

namespace detail {

std::optional<std::pair<uint8_t, Bytes>> fru_command(uint8_t cmd, const Bytes &data, const Config &c)
{
    if (cmd == kGetFruInventoryAreaInfo) return area_info(data, c);
    if (cmd == kReadFruData) return read_data(data, c);
    return std::nullopt;
}

}  // namespace detail
}  // namespace bmcsim

namespace bmcsim::detail {

bool Engine::fru_command(const IpmiRequest &rq, const Config &c, CommandResult &r)
{
    if (rq.netfn != 0x0A) return false;
    auto answer = detail::fru_command(rq.cmd, rq.data, c);
    if (!answer) return false;
    r.response = response_to(rq, answer->first, answer->second);
    return true;
}

}  // namespace bmcsim::detail
