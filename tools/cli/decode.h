// Decoding of the IPMI responses the tool shows in words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cli {

using Bytes = std::vector<uint8_t>;

// One line of output: "Label : text" in text mode, "key": value in JSON.
struct Field {
    std::string label;
    std::string key;
    std::string text;
    bool number = false;  // text is a JSON number or literal (true/false)
};
using Fields = std::vector<Field>;

// Each takes the response data after the completion code; nothing when it
// is too short for the command.
std::optional<Fields> decode_device_id(const Bytes &data);
std::optional<Fields> decode_self_test(const Bytes &data);
std::optional<Fields> decode_chassis_status(const Bytes &data);

std::string hex_bytes(const Bytes &data);
std::string json_string(const std::string &text);
std::string json_object(const Fields &fields);

}  // namespace cli
