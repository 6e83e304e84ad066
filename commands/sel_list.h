// Reading and clearing the System Event Log over a Transport: Get SEL Info,
// every entry from 0000h to FFFFh (reading a record in parts when the BMC
// cannot return it whole), and Clear SEL with its erasure polled to the end.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "sel_entry.h"
#include "transport.h"

namespace rmcpp::commands {

// Get SEL Info, decoded.
SelInfo read_sel_info(Transport &t);

struct SelReadLimits {
    // No SEL holds more: 64 KiB of 16-byte records.
    size_t max_entries = 4096;
    // Bytes asked per partial read at first; halved on CAh down to 1.
    uint8_t partial_chunk = 8;
    // Times a record is started again after its reservation was cancelled.
    int max_reservation_retries = 3;
};

// Every entry in record order, from 0000h until the next record ID is
// FFFFh. An empty SEL (Get SEL Info says 0 entries, or the first Get SEL
// Entry answers CBh) gives none. A record ID seen twice, a next record ID of
// 0000h or more than max_entries records end the read with a malformed
// CommandError rather than going round for ever.
std::vector<SelEntry> read_sel(Transport &t, const SelReadLimits &limits = {});

struct SelClearLimits {
    int max_polls = 20;  // get-status polls after initiate erase
    std::chrono::milliseconds poll_interval{100};
};

// Reserve SEL, Clear SEL initiate erase, then Clear SEL get status until the
// erasure has completed. A reservation cancelled while polling is taken
// again. Still in progress after max_polls: a malformed CommandError.
void clear_sel(Transport &t, const SelClearLimits &limits = {});

}  // namespace rmcpp::commands
