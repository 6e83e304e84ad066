// sdr list [all|full|compact|event], and its alias sensor list: the sensors
// of the SDR repository with their readings, laid out as ipmitool's
// "sdr list" lays them out.
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "event_text.h"
#include "runner.h"
#include "sdr_list_print.h"
#include "sensor_list.h"

namespace cli {

namespace {

using rmcpp::commands::SdrFilter;
using rmcpp::commands::SensorListEntry;
using rmcpp::commands::SensorState;

std::optional<SdrFilter> filter_named(const std::string &name)
{
    if (name.empty()) return SdrFilter::sensors;
    if (name == "all") return SdrFilter::all;
    if (name == "full") return SdrFilter::full;
    if (name == "compact") return SdrFilter::compact;
    if (name == "event") return SdrFilter::event;
    return std::nullopt;
}

nlohmann::json number_or_null(const std::optional<double> &v)
{
    return v ? nlohmann::json(*v) : nlohmann::json(nullptr);
}

const char *state_name(SensorState s)
{
    switch (s) {
    case SensorState::reading: return "reading";
    case SensorState::no_reading: return "no_reading";
    case SensorState::disabled: return "disabled";
    case SensorState::event_only: return "event_only";
    }
    return "no_reading";
}

}  // namespace

std::string sdr_value_text(const SensorListEntry &e)
{
    char text[64];
    switch (e.state) {
    case SensorState::no_reading: return e.threshold_based ? "no reading" : "Not Readable";
    case SensorState::disabled: return "disabled";
    case SensorState::event_only: return "Event-Only";
    case SensorState::reading: break;
    }
    if (!e.threshold_based) {
        std::snprintf(text, sizeof text, "0x%02x", e.discrete_states & 0xFF);
        return text;
    }
    if (!e.reading) return "no reading";
    const double v = *e.reading;
    if (v == std::trunc(v) && std::fabs(v) < 1e15)
        std::snprintf(text, sizeof text, "%.0f", v);
    else
        std::snprintf(text, sizeof text, "%.2f", v);
    std::string out = text;
    out += ' ';
    out += e.percentage ? "percent" : e.unit;
    return out;
}

std::string sdr_list_text(const std::vector<SensorListEntry> &list)
{
    std::string out;
    char line[160];
    for (const auto &e : list) {
        std::snprintf(line, sizeof line, "%-16s | %-17s | %s\n", e.name.c_str(), sdr_value_text(e).c_str(),
                      rmcpp::commands::sensor_status_text(e).c_str());
        out += line;
    }
    return out;
}

nlohmann::json sdr_list_json(const std::vector<SensorListEntry> &list)
{
    nlohmann::json sensors = nlohmann::json::array();
    for (const auto &e : list) {
        nlohmann::json j;
        j["record_id"] = e.record_id;
        j["name"] = e.name;
        j["sensor_number"] = e.number;
        j["sensor_type"] = std::string(rmcpp::commands::sensor_type_name(e.sensor_type));
        j["event_reading_type"] = e.event_reading_type;
        j["state"] = state_name(e.state);
        j["reading"] = number_or_null(e.reading);
        j["unit"] = e.percentage ? "percent" : e.unit;
        j["status"] = rmcpp::commands::sensor_status_text(e);
        if (e.threshold_based) {
            j["thresholds"] = {{"lnr", number_or_null(e.thresholds.lnr)}, {"lcr", number_or_null(e.thresholds.lcr)},
                               {"lnc", number_or_null(e.thresholds.lnc)}, {"unc", number_or_null(e.thresholds.unc)},
                               {"ucr", number_or_null(e.thresholds.ucr)}, {"unr", number_or_null(e.thresholds.unr)}};
        } else if (e.state == SensorState::reading) {
            j["states"] = e.discrete_states;
        }
        sensors.push_back(std::move(j));
    }
    return sensors;
}

void add_sdr_commands(CLI::App &app, Runner &runner)
{
    CLI::App *sdr = app.add_subcommand("sdr", "the Sensor Data Record repository (also: sensor)");
    sdr->alias("sensor");
    sdr->require_subcommand(1);
    CLI::App *list = sdr->add_subcommand("list", "the sensors with their readings and status");
    auto kind = std::make_shared<std::string>();
    list->add_option("type", *kind, "all, full, compact or event (default: full+compact)");
    list->callback([&runner, kind] {
        const auto filter = filter_named(*kind);
        if (!filter) return runner.usage_error("sdr list: unknown record type '" + *kind + "' (all, full, compact, event)");
        runner.in_session("sdr list", [filter](rmcpp::commands::Transport &t) {
            const auto list = rmcpp::commands::sensor_list(t, *filter);
            return Printed{sdr_list_text(list), sdr_list_json(list)};
        });
    });
}

}  // namespace cli
