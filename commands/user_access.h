// Get User Access (App network function), and the procedure that lists a
// channel's users with their names.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "transport.h"

namespace rmcpp::commands {

inline constexpr uint8_t kAppNetFn = 0x06;
inline constexpr uint8_t kGetUserAccessCmd = 0x44;
inline constexpr uint8_t kCurrentChannel = 0x0E;

// User ID enable status, byte 2 bits 7:6.
enum class UserEnableStatus : uint8_t {
    Unspecified = 0,
    Enabled = 1,
    Disabled = 2,
    Reserved = 3,
};

struct UserAccess {
    uint8_t max_user_ids = 0;        // byte 1 bits 5:0
    UserEnableStatus enable_status = UserEnableStatus::Unspecified;
    uint8_t enabled_user_ids = 0;    // byte 2 bits 5:0
    uint8_t fixed_name_user_ids = 0; // byte 3 bits 5:0
    bool callback_only = false;      // byte 4 bit 6: restricted to callback
    bool link_auth = false;          // bit 5
    bool ipmi_messaging = false;     // bit 4
    uint8_t privilege_limit = 0;     // bits 3:0 (Fh: no access)

    bool operator==(const UserAccess &) const = default;
};

// Channel number (bits 3:0), user ID (bits 5:0).
std::array<uint8_t, 2> build_get_user_access(uint8_t channel, uint8_t user_id);
// Exactly four bytes.
std::optional<UserAccess> decode_get_user_access(const uint8_t *data, size_t length);

// "CALLBACK", "USER", "OPERATOR", "ADMINISTRATOR", "OEM", "NO ACCESS"; the
// number in words for the others ("Unknown (0x06)").
std::string privilege_limit_text(uint8_t level);

struct UserEntry {
    uint8_t id = 0;
    std::string name;
    UserAccess access;
};

struct UserList {
    uint8_t channel = 0;
    uint8_t max_user_ids = 0;
    uint8_t enabled_user_ids = 0;
    uint8_t fixed_name_user_ids = 0;
    std::vector<UserEntry> users;  // IDs 1 to max_user_ids
};

// Get User Access for user 1 gives the counts; then Get User Access and Get
// User Name for each ID up to the maximum. A user whose name the BMC will
// not give (completion code CCh or CBh, as for an unset ID) gets an empty
// name.
UserList list_users(Transport &t, uint8_t channel);

}  // namespace rmcpp::commands
