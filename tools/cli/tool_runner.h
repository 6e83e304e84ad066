// The tool's Runner: sessions with the BMC the options name, results on
// standard output as text or as one JSON document, errors as one line on
// standard error (and, under --json, as a JSON object on standard output).
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "decode.h"
#include "options.h"
#include "runner.h"

namespace cli {

// Why a command failed, in the terms its error line and JSON object use.
struct Failure {
    enum class Kind { library, completion_code, malformed };
    Kind kind = Kind::library;
    std::string what;         // the command as typed ("mc info")
    std::string step;         // the request that failed, when not the command itself
    int result = 0;           // library result code (Kind::library)
    uint8_t completion_code = 0;
    std::string detail;       // what was wrong with the answer (Kind::malformed)
    std::string hint;         // appended to the library's meaning

    static Failure library(const std::string &what, int result, const std::string &hint = "");
    static Failure from(const rmcpp::commands::CommandError &e, const std::string &what, const std::string &hint);

    std::string text() const;           // without "rmcpp: " and the newline
    nlohmann::json json() const;        // {"code": ..., "name": ..., "message": ...}
};

// "Label : value" lines, the labels padded to the longest, and the JSON
// object of the same fields.
Printed printed(const Fields &fields);

// Lines of the library's log the error messages look for (watch them).
extern const char *const kRakp2KeyInvalid;
extern const char *const kRakp4KeyInvalid;

// The RMCPP_ERR_* name of a library result code.
const char *result_name(int code);

// Under --json in a run over many hosts, a host's result or error is kept
// here for its line instead of printed as a document of its own.
struct Collected {
    std::optional<nlohmann::json> result;
    std::optional<nlohmann::json> error;
};

class ToolRunner : public Runner {
public:
    explicit ToolRunner(const Options &o, std::FILE *out = stdout, std::FILE *err = stderr)
        : o_(o), out_(out), err_(err)
    {
    }

    void in_session(const std::string &what, const SessionBody &body) override;
    void usage_error(const std::string &text) override;
    int exit_status() const override { return status_; }

    // For the commands that need no session (ping, channel ciphers) or
    // show the session itself.
    void print(const Printed &p);
    void fail(const Failure &f);
    void warn(const std::string &what, int code);

    void collect_into(Collected *collected) { collected_ = collected; }

private:
    const Options &o_;
    std::FILE *out_;
    std::FILE *err_;
    int status_ = 0;
    Collected *collected_ = nullptr;
};

}  // namespace cli
