// A trace sink for tests: the library's log lines land here instead of on
// standard error, so tests can assert them byte for byte.
#pragma once

#include <string>
#include <vector>

#include "rmcpp.h"

namespace testkit {

struct TraceLine {
    int channel;
    KivTraceRecord record;
    std::string text;
};

// Everything the library has sent to putKivTrace since the last clear().
const std::vector<TraceLine> &trace();
void clear_trace();

// The texts of channel-1 lines (lib_log output) in order.
std::vector<std::string> log_lines();
// True when some channel-1 line equals text exactly.
bool logged(const std::string &text);
// Number of channel-1 lines equal to text.
int count_logged(const std::string &text);
// True when the channel-1 lines contain `lines` one right after another.
bool logged_together(const std::vector<std::string> &lines);
// All channel-1 text concatenated.
std::string log_text();

// What lmsg_getmsg was asked for: (number, argument) pairs.
struct MessageLookup {
    int number;
    std::string argument;
};
const std::vector<MessageLookup> &lookups();

}  // namespace testkit
