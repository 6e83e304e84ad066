// One IPMI request/response exchange on an open session: what the everyday
// commands' procedures (reading the SDR repository, the SEL, a FRU area, ...)
// are written against. The tool implements it over librmcpp; the procedures'
// tests script it.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace rmcpp::commands {

using Bytes = std::vector<uint8_t>;

struct Reply {
    int result = 0;               // 0: the BMC answered; else the library's result code
    uint8_t completion_code = 0;  // when result is 0
    Bytes data;                   // response data after the completion code
};

class Transport {
public:
    virtual ~Transport() = default;
    virtual Reply exchange(uint8_t netfn, uint8_t cmd, const Bytes &data) = 0;
};

// Why a procedure stopped: the exchange failed (result), the BMC refused a
// step (completion_code), or it answered with something that does not decode.
class CommandError : public std::runtime_error {
public:
    enum class Kind { exchange, completion_code, malformed };

    CommandError(Kind kind, std::string step, int result, uint8_t completion_code, const std::string &message)
        : std::runtime_error(message), kind(kind), step(std::move(step)), result(result),
          completion_code(completion_code)
    {
    }

    Kind kind;
    std::string step;  // the command that failed, in IPMI v2.0's words ("Get SDR")
    int result = 0;
    uint8_t completion_code = 0;
};

// Sends one request and returns its data; throws CommandError when the
// exchange fails or the completion code is not 00h.
Bytes call(Transport &t, const std::string &step, uint8_t netfn, uint8_t cmd, const Bytes &data);

// call()'s check alone, for a reply already in hand (after looking at its
// completion code).
Bytes check_reply(const std::string &step, Reply r);

}  // namespace rmcpp::commands
