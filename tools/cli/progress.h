// The progress bar of a run over many hosts, drawn on standard error when
// that is a terminal. The line itself is a pure function of the counts.
#pragma once

#include <cstddef>
#include <string>

namespace cli {

struct Progress {
    size_t done = 0;     // hosts finished, failed ones included
    size_t total = 0;
    size_t failed = 0;
    double elapsed = 0;  // seconds since the run started
};

// One line of at most width - 1 columns (the cursor stays on the line):
// "[=====>      ] 412/1000 hosts, 3 failed, 812 hosts/s, 0:01 left".
// The bar is left out when the line would leave it fewer than 10 columns;
// rate and time left read "?" until a host has finished.
std::string progress_line(const Progress &p, size_t width);

// "0:07", "2:05", "1:02:05": seconds as h:mm:ss, rounded up.
std::string clock_text(double seconds);

}  // namespace cli
