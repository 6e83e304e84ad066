// A Runner for the tool's unit tests: runs each command body on a given
// Transport (a scripted one, or a real cli::Session) and keeps what it
// printed or the error it stopped with, instead of writing to stdout.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "runner.h"

namespace cli::testkit {

class CapturingRunner : public Runner {
public:
    explicit CapturingRunner(rmcpp::commands::Transport &transport) : transport_(transport) {}

    void in_session(const std::string &what, const SessionBody &body) override
    {
        sessions.push_back(what);
        try {
            printed = body(transport_);
            status_ = 0;
        } catch (const rmcpp::commands::CommandError &e) {
            error = e;
            status_ = 1;
        }
    }

    void usage_error(const std::string &text) override
    {
        usage = text;
        status_ = 2;
    }

    int exit_status() const override { return status_; }

    std::vector<std::string> sessions;  // `what` of each in_session call
    std::optional<Printed> printed;
    std::optional<rmcpp::commands::CommandError> error;
    std::optional<std::string> usage;

private:
    rmcpp::commands::Transport &transport_;
    int status_ = 0;
};

// Parses `args` (without the program name) on an app that has only the
// groups the test added.
inline void parse(CLI::App &app, std::vector<std::string> args)
{
    std::reverse(args.begin(), args.end());
    app.parse(args);
}

}  // namespace cli::testkit
