#include "transport.h"

#include <cstdio>

#include "completion_code.h"

namespace rmcpp::commands {

Bytes call(Transport &t, const std::string &step, uint8_t netfn, uint8_t cmd, const Bytes &data)
{
    return check_reply(step, t.exchange(netfn, cmd, data));
}

Bytes check_reply(const std::string &step, Reply r)
{
    if (r.result != 0)
        throw CommandError(CommandError::Kind::exchange, step, r.result, 0,
                           step + " failed: result " + std::to_string(r.result));
    if (r.completion_code != 0) {
        char text[200];
        std::snprintf(text, sizeof text, "%s failed: completion code 0x%02X (%s)", step.c_str(), r.completion_code,
                      completion_code_text(r.completion_code));
        throw CommandError(CommandError::Kind::completion_code, step, 0, r.completion_code, text);
    }
    return std::move(r.data);
}

}  // namespace rmcpp::commands
