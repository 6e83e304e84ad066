// Waiting for a datagram, in a way that lets the jobs of
// rmcpp_run_interleaved share their thread.
#pragma once

#include <poll.h>
#include <time.h>

namespace rmcpp::interleave {

// Waits for `p.fd` as ppoll(&p, 1, &wait, nullptr) does and returns what it
// would. Inside a job of rmcpp_run_interleaved, the thread runs the other
// jobs meanwhile.
int wait_readable(pollfd &p, const timespec &wait);

}  // namespace rmcpp::interleave
