// A UDP relay for tests that plays a bad network between a console and a
// managed system. Every datagram, in either direction, is independently
// dropped, duplicated, held back (reordered) or corrupted with the given
// probability each, or else passed on unchanged. A corruption XORs one byte
// at a random position with a random non-zero value, so the datagram always
// differs from the one sent. The decisions come from a seeded generator, so
// a run can be repeated (as far as the order of arrivals repeats).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace testkit {

struct RelayCounts {
    uint64_t received = 0;    // datagrams that reached the relay
    uint64_t passed = 0;      // forwarded unchanged, once
    uint64_t dropped = 0;
    uint64_t duplicated = 0;  // forwarded twice
    uint64_t reordered = 0;   // held back, then sent after a later datagram
    uint64_t corrupted = 0;   // forwarded with one byte changed

    RelayCounts &operator+=(const RelayCounts &o);
};

// The seed of a run: RMCPP_LOSSY_SEED when set, otherwise a fresh one.
uint64_t lossy_seed();

class LossyRelay {
public:
    // Listens on listen_address:listen_port (host order) for the console and
    // forwards to target_address:target_port from a port of its own; answers
    // go back to whoever sent to the relay last. `rate` is the probability of
    // each of the four mishaps.
    LossyRelay(uint32_t listen_address, uint16_t listen_port, uint32_t target_address, uint16_t target_port,
               uint64_t seed, double rate = 0.10);
    ~LossyRelay();
    LossyRelay(const LossyRelay &) = delete;
    LossyRelay &operator=(const LossyRelay &) = delete;

    RelayCounts counts() const;

    // From now on, keep one line per datagram: milliseconds since the relay
    // started, direction, size, what the datagram is and what was done to it.
    void keep_log();
    std::vector<std::string> log() const;

    // A datagram held back for reordering goes out after the next datagram in
    // its direction, or once it has been held this long (longer than the
    // console's one-second wait, so it arrives after the console has moved on).
    static constexpr int kHoldMs = 1200;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace testkit
