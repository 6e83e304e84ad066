// How sdr list prints its entries: text in ipmitool's "sdr list" layout
// (name | value unit | status) and the JSON twin, from the same entries.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "sensor_list.h"

namespace cli {

// "45 degrees C", "12.90 Volts", "0x01" (a discrete sensor's states),
// "no reading", "Not Readable", "disabled", "Event-Only".
std::string sdr_value_text(const rmcpp::commands::SensorListEntry &e);
std::string sdr_list_text(const std::vector<rmcpp::commands::SensorListEntry> &list);
nlohmann::json sdr_list_json(const std::vector<rmcpp::commands::SensorListEntry> &list);

}  // namespace cli
