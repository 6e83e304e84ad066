#include "user_name.h"

#include "wire.h"

namespace rmcpp::commands {

std::array<uint8_t, 1> build_get_user_name(uint8_t user_id)
{
    return {static_cast<uint8_t>(user_id & 0x3F)};
}

std::optional<std::string> decode_get_user_name(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    rmcpp::wire::Reader r(data, length);
    std::array<uint8_t, kUserNameSize> raw{};
    r.bytes(raw.data(), raw.size());
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    std::string name;
    for (uint8_t c : raw) {
        if (c == 0) break;
        name.push_back(static_cast<char>(c));
    }
    return name;
}

}  // namespace rmcpp::commands
