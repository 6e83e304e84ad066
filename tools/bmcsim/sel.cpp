#include "sel.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

#include "engine.h"
#include "wire.h"

namespace bmcsim {
namespace {

enum : uint8_t {
    kOk = 0x00,
    kOutOfSpace = 0xC4,
    kReservationCancelled = 0xC5,
    kRequestLengthInvalid = 0xC7,
    kParameterOutOfRange = 0xC9,
    kCannotReturnBytes = 0xCA,
    kNotPresent = 0xCB,
    kInvalidDataField = 0xCC,
};

enum : uint8_t {
    kGetSelInfo = 0x40,
    kReserveSel = 0x42,
    kGetSelEntry = 0x43,
    kAddSelEntry = 0x44,
    kClearSel = 0x47,
};

constexpr size_t kRecord = 16;

uint16_t record_id(const std::array<uint8_t, 16> &r) { return static_cast<uint16_t>(r[0] | (r[1] << 8)); }

// System event (02h) and OEM timestamped (C0h-DFh) records carry a time.
bool timestamped(uint8_t type) { return type == 0x02 || (type >= 0xC0 && type <= 0xDF); }

}  // namespace

std::array<uint8_t, 16> system_event_record(const SystemEvent &e, uint32_t now)
{
    std::array<uint8_t, 16> r{};
    rmcpp::wire::Writer w(r.data(), r.size());
    w.u16le(0x0000).u8(0x02).u32le(now).u16le(e.generator_id).u8(0x04);  // EvM revision: IPMI v2.0
    w.u8(e.sensor_type).u8(e.sensor_number);
    w.u8(static_cast<uint8_t>((e.deassertion ? 0x80 : 0x00) | (e.event_type & 0x7F)));
    w.bytes(e.event_data.data(), e.event_data.size());
    return r;
}

namespace detail {

void SelStore::configure(const SelConfig &c, uint32_t now)
{
    if (configured_ && *configured_ == c) return;
    configured_ = c;
    records_.clear();
    next_id_ = 1;
    reservation_ = 0;
    last_add_ = last_erase_ = 0xFFFFFFFF;
    erase_polls_left_ = 0;
    overflow_ = false;
    for (auto record : c.entries) {
        const uint32_t ts = record[3] | (record[4] << 8) | (record[5] << 16) | (static_cast<uint32_t>(record[6]) << 24);
        if (!add(record, c, now)) break;
        // Records from the platform keep their own times.
        if (timestamped(record[2])) {
            rmcpp::wire::Writer w(records_.back().data() + 3, 4);
            w.u32le(ts);
        }
    }
}

std::optional<uint16_t> SelStore::add(std::array<uint8_t, 16> record, const SelConfig &c, uint32_t now)
{
    if (records_.size() >= c.capacity) {
        overflow_ = true;
        return std::nullopt;
    }
    const uint16_t id = next_id_;
    next_id_ = next_id_ >= 0xFFFE ? 1 : static_cast<uint16_t>(next_id_ + 1);
    rmcpp::wire::Writer w(record.data(), record.size());
    w.u16le(id);
    if (timestamped(record[2])) {
        w.u8(record[2]).u32le(now);
    }
    records_.push_back(record);
    last_add_ = now;
    return id;
}

std::pair<uint8_t, Bytes> SelStore::info(const SelConfig &c) const
{
    Bytes d(14);
    rmcpp::wire::Writer w(d.data(), d.size());
    const size_t free_records = c.capacity > records_.size() ? c.capacity - records_.size() : 0;
    w.u8(0x51).u16le(static_cast<uint16_t>(records_.size()));
    w.u16le(static_cast<uint16_t>(std::min<size_t>(free_records * kRecord, 0xFFFF)));
    w.u32le(last_add_).u32le(last_erase_);
    w.u8(static_cast<uint8_t>((overflow_ ? 0x80 : 0x00) | 0x02));  // Reserve SEL supported
    return {kOk, d};
}

std::pair<uint8_t, Bytes> SelStore::get_entry(const Bytes &data, const SelConfig &c) const
{
    if (data.size() != 6) return {kRequestLengthInvalid, {}};
    rmcpp::wire::Reader r(data.data(), data.size());
    const uint16_t reservation = r.u16le();
    const uint16_t id = r.u16le();
    const uint8_t offset = r.u8();
    const uint8_t count = r.u8();
    const bool whole = offset == 0 && count == 0xFF;
    if (!whole && (reservation == 0 || reservation != reservation_)) return {kReservationCancelled, {}};
    if (whole && !c.whole_records) return {kCannotReturnBytes, {}};
    if (!whole && count > c.max_partial_read) return {kCannotReturnBytes, {}};
    if (offset >= kRecord) return {kParameterOutOfRange, {}};
    if (records_.empty()) return {kNotPresent, {}};

    size_t at = records_.size();
    if (id == 0x0000) at = 0;
    else if (id == 0xFFFF) at = records_.size() - 1;
    else
        for (size_t i = 0; i < records_.size(); ++i)
            if (record_id(records_[i]) == id) at = i;
    if (at == records_.size()) return {kNotPresent, {}};

    const uint16_t next = at + 1 < records_.size() ? record_id(records_[at + 1]) : 0xFFFF;
    const size_t n = whole ? kRecord : std::min<size_t>(count, kRecord - offset);
    Bytes d{static_cast<uint8_t>(next), static_cast<uint8_t>(next >> 8)};
    d.insert(d.end(), records_[at].begin() + offset, records_[at].begin() + offset + n);
    return {kOk, d};
}

std::pair<uint8_t, Bytes> SelStore::clear(const Bytes &data, const SelConfig &c, uint32_t now)
{
    if (data.size() != 6) return {kRequestLengthInvalid, {}};
    rmcpp::wire::Reader r(data.data(), data.size());
    const uint16_t reservation = r.u16le();
    const uint8_t c1 = r.u8(), l = r.u8(), rr = r.u8(), action = r.u8();
    if (reservation == 0 || reservation != reservation_) return {kReservationCancelled, {}};
    if (c1 != 'C' || l != 'L' || rr != 'R') return {kInvalidDataField, {}};
    if (action == 0xAA) {
        records_.clear();
        overflow_ = false;
        last_erase_ = now;
        erase_polls_left_ = c.erase_polls;
    } else if (action != 0x00) {
        return {kInvalidDataField, {}};
    } else if (erase_polls_left_ > 0) {
        --erase_polls_left_;
        return {kOk, {0x00}};
    }
    return {kOk, {static_cast<uint8_t>(erase_polls_left_ > 0 ? 0x00 : 0x01)}};
}

std::optional<std::pair<uint8_t, Bytes>> SelStore::command(uint8_t cmd, const Bytes &data, const SelConfig &c,
                                                           uint32_t now)
{
    switch (cmd) {
    case kGetSelInfo: return data.empty() ? info(c) : std::pair<uint8_t, Bytes>{kRequestLengthInvalid, {}};
    case kReserveSel:
        if (!data.empty()) return std::pair<uint8_t, Bytes>{kRequestLengthInvalid, {}};
        reservation_ = static_cast<uint16_t>(reservation_ + 1 == 0 ? 1 : reservation_ + 1);
        return std::pair<uint8_t, Bytes>{kOk, {static_cast<uint8_t>(reservation_), static_cast<uint8_t>(reservation_ >> 8)}};
    case kGetSelEntry: return get_entry(data, c);
    case kAddSelEntry: {
        if (data.size() != kRecord) return std::pair<uint8_t, Bytes>{kRequestLengthInvalid, {}};
        std::array<uint8_t, 16> record{};
        std::copy(data.begin(), data.end(), record.begin());
        auto id = add(record, c, now);
        if (!id) return std::pair<uint8_t, Bytes>{kOutOfSpace, {}};
        return std::pair<uint8_t, Bytes>{kOk, {static_cast<uint8_t>(*id), static_cast<uint8_t>(*id >> 8)}};
    }
    case kClearSel: return clear(data, c, now);
    default: return std::nullopt;
    }
}

}  // namespace detail

namespace {

[[noreturn]] void bad(const YAML::Node &node, const std::string &what)
{
    throw std::runtime_error("line " + std::to_string(node.Mark().line + 1) + ": " + what);
}

template <typename T>
T number(const YAML::Node &node, const std::string &name, T max)
{
    if (!node.IsScalar()) bad(node, name + ": a number is needed");
    const std::string text = node.Scalar();
    size_t used = 0;
    unsigned long long v = 0;
    try {
        v = std::stoull(text, &used, 0);
    } catch (const std::exception &) {
        used = 0;
    }
    if (used == 0 || used != text.size() || text[0] == '-' || v > static_cast<unsigned long long>(max))
        bad(node, name + ": '" + text + "' is not a number from 0 to " + std::to_string(max));
    return static_cast<T>(v);
}

// A number of Unix seconds or "YYYY-MM-DDThh:mm:ssZ".
uint32_t timestamp(const YAML::Node &node)
{
    if (!node.IsScalar()) bad(node, "timestamp: a time is needed");
    const std::string text = node.Scalar();
    std::tm tm{};
    char z = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
                    &tm.tm_min, &tm.tm_sec, &z) == 7 &&
        z == 'Z') {
        tm.tm_year -= 1900;
        tm.tm_mon -= 1;
        // Widened first: where time_t is 32 bits the upper bound cannot be reached.
        const long long t = timegm(&tm);
        if (t < 0 || t > 0xFFFFFFFFLL) bad(node, "timestamp: '" + text + "' is out of range");
        return static_cast<uint32_t>(t);
    }
    return number<uint32_t>(node, "timestamp", 0xFFFFFFFF);
}

std::array<uint8_t, 16> entry(const YAML::Node &e)
{
    if (!e.IsMap()) bad(e, "sel entry: a map is needed");
    for (const auto &kv : e) {
        static const char *kKeys[] = {"timestamp",    "generator_id", "sensor_type", "sensor_number",
                                      "event_type",   "direction",    "event_data",  "raw"};
        const std::string key = kv.first.as<std::string>();
        if (std::find(std::begin(kKeys), std::end(kKeys), key) == std::end(kKeys))
            bad(kv.first, "sel entry: unknown key '" + key + "'");
    }
    if (e["raw"]) {
        const YAML::Node raw = e["raw"];
        if (!raw.IsSequence() || raw.size() != 16) bad(raw, "sel entry raw: 16 bytes are needed");
        std::array<uint8_t, 16> r{};
        for (size_t i = 0; i < 16; ++i) r[i] = number<uint8_t>(raw[i], "raw byte", 0xFF);
        return r;
    }
    SystemEvent ev;
    if (!e["sensor_type"]) bad(e, "sel entry: sensor_type is missing");
    if (!e["sensor_number"]) bad(e, "sel entry: sensor_number is missing");
    ev.sensor_type = number<uint8_t>(e["sensor_type"], "sensor_type", 0xFF);
    ev.sensor_number = number<uint8_t>(e["sensor_number"], "sensor_number", 0xFF);
    if (e["event_type"]) ev.event_type = number<uint8_t>(e["event_type"], "event_type", 0x7F);
    if (e["generator_id"]) ev.generator_id = number<uint16_t>(e["generator_id"], "generator_id", 0xFFFF);
    if (const YAML::Node d = e["direction"]) {
        const std::string dir = d.IsScalar() ? d.Scalar() : "";
        if (dir != "assertion" && dir != "deassertion") bad(d, "direction: assertion or deassertion");
        ev.deassertion = dir == "deassertion";
    }
    if (const YAML::Node d = e["event_data"]) {
        if (!d.IsSequence() || d.size() < 1 || d.size() > 3) bad(d, "event_data: 1 to 3 bytes are needed");
        for (size_t i = 0; i < d.size(); ++i) ev.event_data[i] = number<uint8_t>(d[i], "event_data byte", 0xFF);
    }
    const uint32_t ts = e["timestamp"] ? timestamp(e["timestamp"]) : 0xFFFFFFFF;
    return system_event_record(ev, ts);
}

}  // namespace

void load_sel(const YAML::Node &section, Config &config)
{
    if (!section.IsMap()) bad(section, "sel: a map is needed");
    SelConfig sel;
    for (const auto &kv : section) {
        const std::string key = kv.first.as<std::string>();
        const YAML::Node &v = kv.second;
        if (key == "capacity") sel.capacity = number<uint16_t>(v, "capacity", 4096);
        else if (key == "whole_records") {
            if (!v.IsScalar() || (v.Scalar() != "true" && v.Scalar() != "false"))
                bad(v, "whole_records: true or false");
            sel.whole_records = v.Scalar() == "true";
        } else if (key == "max_partial_read") sel.max_partial_read = number<uint8_t>(v, "max_partial_read", 16);
        else if (key == "erase_polls") sel.erase_polls = number<int>(v, "erase_polls", 100);
        else if (key == "entries") {
            if (!v.IsSequence()) bad(v, "entries: a list is needed");
            for (const YAML::Node &e : v) sel.entries.push_back(entry(e));
        } else
            bad(kv.first, "sel: unknown key '" + key + "'");
    }
    if (sel.max_partial_read == 0) bad(section["max_partial_read"], "max_partial_read: 1 to 16");
    if (sel.entries.size() > sel.capacity) bad(section["entries"], "entries: more than the capacity");
    config.sel = std::move(sel);
}

}  // namespace bmcsim

namespace bmcsim::detail {

namespace {
constexpr uint8_t kStorage = 0x0A;
uint32_t wall_clock() { return static_cast<uint32_t>(std::time(nullptr)); }
}  // namespace

bool Engine::sel_command(const IpmiRequest &rq, const Config &c, CommandResult &r)
{
    if (rq.netfn != kStorage) return false;
    const uint32_t now = wall_clock();
    sel_.configure(c.sel, now);
    auto answer = sel_.command(rq.cmd, rq.data, c.sel, now);
    if (!answer) return false;
    r.response = response_to(rq, answer->first, answer->second);
    if (rq.cmd == kClearSel && answer->first == kOk && rq.data.size() == 6 && rq.data[5] == 0xAA)
        log("sel: erased");
    return true;
}

bool Engine::log_system_event(const SystemEvent &event, const Config &c)
{
    const uint32_t now = wall_clock();
    sel_.configure(c.sel, now);
    auto id = sel_.add(system_event_record(event, now), c.sel, now);
    log("sel: " + (id ? "record " + std::to_string(*id) : std::string("full, event dropped")) + ": sensor type " +
        hex(&event.sensor_type, 1) + " number " + hex(&event.sensor_number, 1));
    return id.has_value();
}

}  // namespace bmcsim::detail
