#include "collectors.h"

#include <cctype>
#include <cstdio>
#include <set>
#include <utility>
#include <stdexcept>

#include "decode.h"
#include "event_text.h"
#include "sdr_repository.h"
#include "sel_list.h"

namespace exporter {

namespace cmd = rmcpp::commands;

namespace {

constexpr uint8_t kNetFnChassis = 0x00, kGetChassisStatus = 0x01;
constexpr uint8_t kNetFnApp = 0x06, kGetDeviceId = 0x01;

const char *const kSensorValueHelp = "Sensor reading in the unit its unit label names.";
const char *const kSensorStateHelp =
    "Threshold state of the sensor: 0 nominal, 1 non-critical, 2 critical, 3 non-recoverable.";
const char *const kPowerHelp = "Chassis power: 1 on, 0 off.";
const char *const kSelEntriesHelp = "Entries in the System Event Log.";
const char *const kSelFreeHelp = "Free space in the System Event Log, in bytes (65535 means 65535 or more).";
const char *const kBmcInfoHelp = "The BMC's identity as Get Device ID gives it; always 1.";

// A field of the tool's decoding, as label text.
std::string field(const cli::Fields &fields, const std::string &key)
{
    for (const cli::Field &f : fields)
        if (f.key == key) return cli::field_text(f.value);
    throw std::runtime_error("decoded answer lacks " + key);
}

std::string words_label(std::string_view text)
{
    std::string out;
    bool gap = false;
    for (const char c : text) {
        if (std::isalnum(static_cast<unsigned char>(c))) {
            if (gap && !out.empty()) out += '_';
            gap = false;
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else {
            gap = true;
        }
    }
    return out;
}

}  // namespace

std::string sensor_type_label(uint8_t sensor_type)
{
    const std::string label = words_label(cmd::sensor_type_name(sensor_type));
    return label.empty() ? "unknown" : label;
}

std::string sensor_unit_label(const cmd::SensorListEntry &e)
{
    if (e.percentage) return "percent";
    if (e.unit == "degrees C") return "celsius";
    if (e.unit == "Volts") return "volts";
    if (e.unit == "RPM") return "rpm";
    if (e.unit == "Watts") return "watts";
    if (e.unit == "Amps") return "amperes";
    std::string out;
    for (const char c : e.unit)
        out += c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

int sensor_state_value(cmd::ThresholdSeverity severity)
{
    switch (severity) {
    case cmd::ThresholdSeverity::ok: return 0;
    case cmd::ThresholdSeverity::non_critical: return 1;
    case cmd::ThresholdSeverity::critical: return 2;
    case cmd::ThresholdSeverity::non_recoverable: return 3;
    }
    return 0;
}

void collect_sensors(cmd::Transport &t, SdrCache &cache, const std::string &target, Families &out)
{
    const cmd::Bytes data =
        cmd::call(t, "Get SDR Repository Info", cmd::sdr_storage_netfn, cmd::get_sdr_repository_info_cmd, {});
    cmd::SdrRepositoryInfo info;
    if (!cmd::decode_get_sdr_repository_info(data, info))
        throw std::runtime_error("Get SDR Repository Info: answer of " + std::to_string(data.size()) + " bytes");
    std::shared_ptr<const SdrRecords> records = cache.find(target, info.last_addition, info.last_erase);
    if (!records) {
        records = std::make_shared<const SdrRecords>(cmd::read_sdr_repository(t));
        cache.store(target, info.last_addition, info.last_erase, records);
    }
    // Families even when no sensor has a reading, so the names are there.
    out.family("ipmi_sensor_value", kSensorValueHelp, MetricType::gauge);
    out.family("ipmi_sensor_state", kSensorStateHelp, MetricType::gauge);
    std::set<std::pair<std::string, std::string>> seen;
    for (const cmd::SensorListEntry &e : cmd::sensor_list(t, *records, cmd::SdrFilter::sensors)) {
        if (e.state != cmd::SensorState::reading || !e.threshold_based) continue;
        const std::string type = sensor_type_label(e.sensor_type);
        // Two sensors of one name and type would make two series with the
        // same labels, which a scrape may not hold: the later ones are told
        // apart by their sensor numbers.
        std::string name = e.name;
        if (!seen.emplace(name, type).second) {
            char number[8];
            std::snprintf(number, sizeof number, "%02Xh", e.number);
            name += std::string(" (") + number + ")";
            seen.emplace(name, type);
        }
        if (e.reading)
            out.add("ipmi_sensor_value", kSensorValueHelp, MetricType::gauge,
                    {{"name", name}, {"type", type}, {"unit", sensor_unit_label(e)}}, *e.reading);
        out.add("ipmi_sensor_state", kSensorStateHelp, MetricType::gauge, {{"name", name}, {"type", type}},
                sensor_state_value(e.threshold.severity));
    }
}

void collect_chassis(cmd::Transport &t, Families &out)
{
    const auto fields = cli::decode_chassis_status(cmd::call(t, "Get Chassis Status", kNetFnChassis, kGetChassisStatus, {}));
    if (!fields) throw std::runtime_error("Get Chassis Status: answer too short");
    out.add("ipmi_chassis_power_state", kPowerHelp, MetricType::gauge, {},
            field(*fields, "system_power") == "on" ? 1 : 0);
}

void collect_sel(cmd::Transport &t, Families &out)
{
    const cmd::SelInfo info = cmd::read_sel_info(t);
    out.add("ipmi_sel_entries", kSelEntriesHelp, MetricType::gauge, {}, info.entries);
    out.add("ipmi_sel_free_space_bytes", kSelFreeHelp, MetricType::gauge, {}, info.free_space);
}

void collect_device(cmd::Transport &t, Families &out)
{
    const auto fields = cli::decode_device_id(cmd::call(t, "Get Device ID", kNetFnApp, kGetDeviceId, {}));
    if (!fields) throw std::runtime_error("Get Device ID: answer too short");
    out.add("ipmi_bmc_info", kBmcInfoHelp, MetricType::gauge,
            {{"firmware_revision", field(*fields, "firmware_revision")},
             {"ipmi_version", field(*fields, "ipmi_version")},
             {"manufacturer_id", field(*fields, "manufacturer_id")},
             {"product_id", field(*fields, "product_id")},
             {"device_id", field(*fields, "device_id")}},
            1);
}

bool collect(const std::string &name, cmd::Transport &t, SdrCache &cache, const std::string &target, Families &out)
{
    if (name == "sensors") collect_sensors(t, cache, target, out);
    else if (name == "chassis") collect_chassis(t, out);
    else if (name == "sel") collect_sel(t, out);
    else if (name == "device") collect_device(t, out);
    else return false;
    return true;
}

}  // namespace exporter
