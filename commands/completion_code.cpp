#include "completion_code.h"

#include <array>
#include <utility>

namespace rmcpp::commands {

namespace {

constexpr std::array<std::pair<uint8_t, const char *>, 25> kTexts{{
    {0x00, "command completed normally"},
    {0xC0, "node busy"},
    {0xC1, "invalid command"},
    {0xC2, "command invalid for given LUN"},
    {0xC3, "timeout while processing command"},
    {0xC4, "out of space"},
    {0xC5, "reservation cancelled or invalid"},
    {0xC6, "request data truncated"},
    {0xC7, "request data length invalid"},
    {0xC8, "request data field length limit exceeded"},
    {0xC9, "parameter out of range"},
    {0xCA, "cannot return number of requested data bytes"},
    {0xCB, "requested sensor, data, or record not present"},
    {0xCC, "invalid data field in request"},
    {0xCD, "command illegal for specified sensor or record type"},
    {0xCE, "command response could not be provided"},
    {0xCF, "cannot execute duplicated request"},
    {0xD0, "SDR repository in update mode"},
    {0xD1, "device in firmware update mode"},
    {0xD2, "BMC initialization in progress"},
    {0xD3, "destination unavailable"},
    {0xD4, "insufficient privilege level"},
    {0xD5, "command not supported in present state"},
    {0xD6, "sub-function disabled or unavailable"},
    {0xFF, "unspecified error"},
}};

}  // namespace

const char *completion_code_text(uint8_t cc)
{
    for (const auto &[code, text] : kTexts)
        if (code == cc) return text;
    return "unknown completion code";
}

}  // namespace rmcpp::commands
