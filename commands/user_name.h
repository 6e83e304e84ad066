// Get User Name (App network function).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace rmcpp::commands {

inline constexpr uint8_t kGetUserNameCmd = 0x46;
inline constexpr size_t kUserNameSize = 16;

// User ID, bits 5:0.
std::array<uint8_t, 1> build_get_user_name(uint8_t user_id);
// Exactly sixteen bytes; the name ends at the first 00h.
std::optional<std::string> decode_get_user_name(const uint8_t *data, size_t length);

}  // namespace rmcpp::commands
