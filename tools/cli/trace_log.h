// The tool's end of the library's log (putKivTrace): each line is shown
// with -v, and what the error messages read back is kept.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

namespace cli::trace {

void set_verbose(bool on);

// Remember whether this exact line is logged from now on.
void watch(const std::string &line);
// A watched line has been logged.
bool seen(const std::string &line);

// RMCP+ status code of the last "[ Status Code ] " line, read back through
// the library's own table of texts.
std::optional<std::pair<int, std::string>> last_status_code();

// Bytes of memory the log holds now, and forgetting all of it (for tests).
size_t held_bytes();
void reset();

}  // namespace cli::trace
