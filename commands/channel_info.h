// Get Channel Info and Get Channel Access (App network function), and the
// procedure that reads a channel's info with its volatile and non-volatile
// access settings.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "transport.h"

namespace rmcpp::commands {

inline constexpr uint8_t kGetChannelAccessCmd = 0x41;
inline constexpr uint8_t kGetChannelInfoCmd = 0x42;

struct ChannelInfo {
    uint8_t channel = 0;          // byte 1 bits 3:0
    uint8_t medium = 0;           // byte 2 bits 6:0
    uint8_t protocol = 0;         // byte 3 bits 4:0
    uint8_t session_support = 0;  // byte 4 bits 7:6
    uint8_t active_sessions = 0;  // byte 4 bits 5:0
    uint32_t vendor_id = 0;       // IANA enterprise number, 3 bytes LS first
    std::array<uint8_t, 2> aux{};

    bool operator==(const ChannelInfo &) const = default;
};

std::array<uint8_t, 1> build_get_channel_info(uint8_t channel);
// Exactly nine bytes.
std::optional<ChannelInfo> decode_get_channel_info(const uint8_t *data, size_t length);

// "802.3 LAN", "IPMB (I2C)", ...; "reserved" / "OEM" for the others.
const char *channel_medium_text(uint8_t medium);
// "IPMB-1.0", "ICMB-1.0", ...
const char *channel_protocol_text(uint8_t protocol);
// "session-less", "single-session", "multi-session", "session-based".
const char *session_support_text(uint8_t support);

enum class ChannelAccessSet : uint8_t {
    NonVolatile = 1,  // request byte 2 bits 7:6 = 01b
    Volatile = 2,     // 10b: the active settings
};

struct ChannelAccess {
    bool alerting = false;          // byte 1 bit 5 clear
    bool per_message_auth = false;  // bit 4 clear
    bool user_level_auth = false;   // bit 3 clear
    uint8_t access_mode = 0;        // bits 2:0
    uint8_t privilege_limit = 0;    // byte 2 bits 3:0

    bool operator==(const ChannelAccess &) const = default;
};

std::array<uint8_t, 2> build_get_channel_access(uint8_t channel, ChannelAccessSet set);
// Exactly two bytes.
std::optional<ChannelAccess> decode_get_channel_access(const uint8_t *data, size_t length);
// "disabled", "pre-boot only", "always available", "shared".
const char *access_mode_text(uint8_t mode);

struct ChannelReport {
    ChannelInfo info;
    // Absent when the BMC has no access settings for the channel (a
    // session-less channel, or completion code CCh / 82h).
    std::optional<ChannelAccess> volatile_access, non_volatile_access;
};

// Get Channel Info for `channel` (0Eh: the channel this session runs on),
// then Get Channel Access for both sets of the channel it names, unless the
// channel is session-less.
ChannelReport channel_info(Transport &t, uint8_t channel);

}  // namespace rmcpp::commands
