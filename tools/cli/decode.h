// Decoding of the IPMI responses the tool shows in words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace cli {

using Bytes = std::vector<uint8_t>;

// One line of output: "Label : value" in text mode, "key": value in JSON.
struct Field {
    std::string label;
    std::string key;
    nlohmann::json value;  // a string, a number or true/false
};
using Fields = std::vector<Field>;

// The value as the text output shows it: strings as they are, numbers and
// true/false as JSON writes them.
std::string field_text(const nlohmann::json &value);


// Each takes the response data after the completion code; nothing when it
// is too short for the command.
std::optional<Fields> decode_device_id(const Bytes &data);
std::optional<Fields> decode_self_test(const Bytes &data);
std::optional<Fields> decode_chassis_status(const Bytes &data);

std::string hex_bytes(const Bytes &data);

}  // namespace cli
