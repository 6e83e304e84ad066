// The tool's end of the library's log (putKivTrace): each line is shown
// with -v, and what the error messages read back is kept. The library logs
// on the thread that made the call, so what is kept is kept per thread: the
// threads of a run over many hosts each read back their own session's lines.
#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

namespace cli::trace {

void set_verbose(bool on);

// Remember whether this exact line is logged from now on (on every thread).
void watch(const std::string &line);
// A watched line has been logged on this thread.
bool seen(const std::string &line);

// Starts a new run on this thread: forgets what its earlier lines left
// (watched lines seen, the status code) and shows its lines under -v on
// `log` (nullptr: standard error).
void start_run(std::FILE *log);

// RMCP+ status code of the last "[ Status Code ] " line, read back through
// the library's own table of texts.
std::optional<std::pair<int, std::string>> last_status_code();

// Bytes of memory the log holds now (the watched lines and this thread's
// state), and forgetting all of it (for tests).
size_t held_bytes();
void reset();

}  // namespace cli::trace
