#include "platform_file.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <set>
#include <sstream>

#include "event_text.h"
#include "fru.h"
#include "platform_admin.h"
#include "sel.h"
#include "sensor_units.h"

namespace bmcsim {

namespace {

// One line per section: its name and its loader.
const PlatformSection kSections[] = {
    {"sensors", load_sensors},
    {"sel", load_sel},
    {"fru", load_fru},
    {"boot", load_boot},
    {"lan", load_lan},
};

// Thrown by the loaders with the node at fault; turned into
// PlatformFileError with the file's name and the node's line.
struct NodeError {
    YAML::Mark mark;
    std::string what;
};

[[noreturn]] void fail(const YAML::Node &n, const std::string &what) { throw NodeError{n.Mark(), what}; }

std::string lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

// Refuses keys of a mapping not in `known`.
void only_keys(const YAML::Node &map, const std::string &what, std::initializer_list<const char *> known)
{
    if (!map.IsMap()) fail(map, what + " must be a mapping");
    for (const auto &kv : map) {
        const std::string key = kv.first.as<std::string>();
        if (std::none_of(known.begin(), known.end(), [&](const char *k) { return key == k; })) {
            std::string list;
            for (const char *k : known) list += std::string(list.empty() ? "" : ", ") + k;
            fail(kv.first, "unknown key '" + key + "' in " + what + " (known: " + list + ")");
        }
    }
}

double number(const YAML::Node &n, const std::string &what)
{
    if (!n.IsScalar()) fail(n, what + " must be a number");
    const std::string text = n.Scalar();
    try {
        size_t used = 0;
        // Integers in any base ("0x10"), else a decimal number.
        if (text.find_first_of(".eE") == std::string::npos || text.rfind("0x", 0) == 0) {
            const long long v = std::stoll(text, &used, 0);
            if (used == text.size()) return static_cast<double>(v);
        }
        const double v = std::stod(text, &used);
        if (used == text.size()) return v;
    } catch (const std::exception &) {
    }
    fail(n, what + " must be a number, not '" + text + "'");
}

// long long, so that 32-bit unsigned fields fit where long has 32 bits.
long long integer(const YAML::Node &n, const std::string &what, long long lo, long long hi)
{
    const double v = number(n, what);
    if (v < static_cast<double>(lo) || v > static_cast<double>(hi) ||
        v != static_cast<double>(static_cast<long long>(v)))
        fail(n, what + " must be a whole number from " + std::to_string(lo) + " to " + std::to_string(hi));
    return static_cast<long long>(v);
}

bool boolean(const YAML::Node &n, const std::string &what)
{
    bool b = false;
    if (!n.IsScalar() || !YAML::convert<bool>::decode(n, b)) fail(n, what + " must be true or false");
    return b;
}

// A code given as a number or by one of its names.
uint8_t code(const YAML::Node &n, const std::string &what, const std::function<std::string(uint8_t)> &name_of,
             int count)
{
    if (!n.IsScalar()) fail(n, what + " must be a name or a number");
    const std::string text = lower(n.Scalar());
    for (int i = 0; i < count; ++i) {
        const std::string name = lower(name_of(static_cast<uint8_t>(i)));
        if (!name.empty() && name == text) return static_cast<uint8_t>(i);
    }
    if (!text.empty() && (std::isdigit(static_cast<unsigned char>(text[0])) != 0))
        return static_cast<uint8_t>(integer(n, what, 0, count - 1));
    fail(n, "unknown " + what + " '" + n.Scalar() + "'");
}

uint8_t sensor_type_code(const YAML::Node &n)
{
    return code(n, "sensor type", [](uint8_t c) { return std::string(rmcpp::commands::sensor_type_name(c)); }, 256);
}

uint8_t unit_code(const YAML::Node &n)
{
    return code(n, "unit", [](uint8_t c) { return std::string(rmcpp::commands::sensor_unit_name(c)); },
                static_cast<int>(rmcpp::commands::sensor_unit_names.size()));
}

uint8_t analog_format(const YAML::Node &n)
{
    static const char *const names[] = {"unsigned", "ones_complement", "twos_complement"};
    return code(n, "analog format", [](uint8_t c) { return std::string(c < 3 ? names[c] : ""); }, 3);
}

uint8_t linearization(const YAML::Node &n)
{
    static const char *const names[] = {"linear", "ln", "log10", "log2", "e", "exp10",
                                        "exp2", "1/x", "sqr", "cube", "sqrt", "cube_root"};
    return code(n, "linearization", [](uint8_t c) { return std::string(c < 12 ? names[c] : ""); }, 12);
}

SensorWave wave(const YAML::Node &n)
{
    SensorWave w;
    if (n.IsScalar()) {
        w.value = number(n, "reading");
        return w;
    }
    only_keys(n, "reading", {"sine", "random_walk"});
    if (n.size() != 1) fail(n, "reading takes one of sine or random_walk");
    if (const YAML::Node s = n["sine"]) {
        only_keys(s, "sine", {"center", "amplitude", "period_ms", "phase_ms"});
        w.kind = SensorWave::Kind::sine;
        if (!s["center"] || !s["amplitude"] || !s["period_ms"]) fail(s, "sine needs center, amplitude and period_ms");
        w.value = number(s["center"], "center");
        w.amplitude = number(s["amplitude"], "amplitude");
        w.period_ms = static_cast<uint32_t>(integer(s["period_ms"], "period_ms", 1, 86400000));
        if (s["phase_ms"]) w.phase_ms = static_cast<uint32_t>(integer(s["phase_ms"], "phase_ms", 0, 86400000));
        return w;
    }
    const YAML::Node r = n["random_walk"];
    only_keys(r, "random_walk", {"start", "step", "period_ms", "seed", "min", "max"});
    if (!r["start"] || !r["step"] || !r["period_ms"] || !r["seed"])
        fail(r, "random_walk needs start, step, period_ms and seed");
    w.kind = SensorWave::Kind::random_walk;
    w.value = number(r["start"], "start");
    w.step = number(r["step"], "step");
    w.period_ms = static_cast<uint32_t>(integer(r["period_ms"], "period_ms", 1, 86400000));
    w.seed = static_cast<uint32_t>(integer(r["seed"], "seed", 0, 0xFFFFFFFF));
    if (r["min"]) w.min = number(r["min"], "min");
    if (r["max"]) w.max = number(r["max"], "max");
    if (w.min > w.max) fail(r, "random_walk min is above max");
    return w;
}

SimSensor sensor(const YAML::Node &n)
{
    only_keys(n, "a sensor",
              {"name", "number", "lun", "type", "event_reading_type", "entity_id", "entity_instance", "unit", "m",
               "b", "b_exp", "r_exp", "analog_format", "linearization", "thresholds", "reading", "states",
               "unavailable", "scanning"});
    SimSensor s;
    if (!n["name"] || !n["number"]) fail(n, "a sensor needs a name and a number");
    s.name = n["name"].as<std::string>();
    if (s.name.empty() || s.name.size() > 16) fail(n["name"], "a sensor name takes 1 to 16 characters");
    s.number = static_cast<uint8_t>(integer(n["number"], "number", 0, 254));
    if (n["lun"]) s.lun = static_cast<uint8_t>(integer(n["lun"], "lun", 0, 3));
    if (n["type"]) s.sensor_type = sensor_type_code(n["type"]);
    if (n["event_reading_type"])
        s.event_reading_type = static_cast<uint8_t>(integer(n["event_reading_type"], "event_reading_type", 1, 0x7F));
    if (n["entity_id"]) s.entity_id = static_cast<uint8_t>(integer(n["entity_id"], "entity_id", 0, 255));
    if (n["entity_instance"])
        s.entity_instance = static_cast<uint8_t>(integer(n["entity_instance"], "entity_instance", 0, 127));
    if (n["unit"]) s.base_unit = unit_code(n["unit"]);
    if (n["m"]) s.m = static_cast<int16_t>(integer(n["m"], "m", -512, 511));
    if (n["b"]) s.b = static_cast<int16_t>(integer(n["b"], "b", -512, 511));
    if (n["b_exp"]) s.b_exp = static_cast<int8_t>(integer(n["b_exp"], "b_exp", -8, 7));
    if (n["r_exp"]) s.r_exp = static_cast<int8_t>(integer(n["r_exp"], "r_exp", -8, 7));
    if (n["analog_format"]) s.analog_format = analog_format(n["analog_format"]);
    if (n["linearization"]) s.linearization = linearization(n["linearization"]);
    if (n["unavailable"]) s.unavailable = boolean(n["unavailable"], "unavailable");
    if (n["scanning"]) s.scanning = boolean(n["scanning"], "scanning");
    if (s.threshold_based()) {
        if (n["states"]) fail(n["states"], "states are for discrete sensors (event_reading_type other than 1)");
        if (const YAML::Node t = n["thresholds"]) {
            only_keys(t, "thresholds", {"lnr", "lcr", "lnc", "unc", "ucr", "unr"});
            auto take = [&](const char *k, std::optional<double> &out) {
                if (t[k]) out = number(t[k], k);
            };
            take("lnr", s.lnr);
            take("lcr", s.lcr);
            take("lnc", s.lnc);
            take("unc", s.unc);
            take("ucr", s.ucr);
            take("unr", s.unr);
        }
        if (n["reading"]) s.reading = wave(n["reading"]);
    } else {
        if (n["thresholds"]) fail(n["thresholds"], "thresholds are for threshold sensors (event_reading_type 1)");
        if (n["reading"]) fail(n["reading"], "a discrete sensor has states, not a reading");
        if (n["states"]) s.states = static_cast<uint16_t>(integer(n["states"], "states", 0, 0x7FFF));
    }
    return s;
}

}  // namespace

void load_sensors(const YAML::Node &section, Config &config)
{
    if (!section.IsSequence()) fail(section, "sensors must be a list");
    std::set<uint8_t> numbers;
    std::vector<SimSensor> sensors;
    for (const auto &n : section) {
        SimSensor s = sensor(n);
        if (!numbers.insert(s.number).second) fail(n["number"], "sensor number " + std::to_string(s.number) + " is used twice");
        sensors.push_back(std::move(s));
    }
    config.sensors = std::move(sensors);
}

void load_platform_text(const std::string &text, const std::string &name, Config &config)
{
    auto where = [&](const YAML::Mark &m) { return name + ":" + std::to_string(m.line + 1) + ": "; };
    try {
        const YAML::Node root = YAML::Load(text);
        if (root.IsNull()) return;
        if (!root.IsMap()) fail(root, "a platform file is a mapping of sections");
        Config loaded = config;
        for (const auto &kv : root) {
            const std::string key = kv.first.as<std::string>();
            const auto *section = std::find_if(std::begin(kSections), std::end(kSections),
                                               [&](const PlatformSection &s) { return key == s.name; });
            if (section == std::end(kSections)) fail(kv.first, "unknown section '" + key + "'");
            section->load(kv.second, loaded);
        }
        config = std::move(loaded);
    } catch (const NodeError &e) {
        throw PlatformFileError(where(e.mark) + e.what);
    } catch (const YAML::Exception &e) {
        throw PlatformFileError(where(e.mark) + e.msg);
    } catch (const PlatformFileError &) {
        throw;
    } catch (const std::runtime_error &e) {
        // The sections' own loaders say "line N: what".
        throw PlatformFileError(name + ": " + e.what());
    }
}

void load_platform_file(const std::string &path, Config &config)
{
    std::ifstream in(path);
    if (!in) throw PlatformFileError(path + ": cannot be read");
    std::ostringstream text;
    text << in.rdbuf();
    load_platform_text(text.str(), path, config);
}

}  // namespace bmcsim
