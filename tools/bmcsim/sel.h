// The simulated BMC's System Event Log: Get SEL Info, Reserve SEL, Get SEL
// Entry (whole records and parts), Add SEL Entry and Clear SEL with an
// erasure that takes a poll or two; and the SEL section of the platform file.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "bmcsim.h"

namespace YAML {
class Node;
}

namespace bmcsim {

// Reads the platform file's `sel:` section into config.sel; throws
// std::runtime_error naming the line of a bad value.
void load_sel(const YAML::Node &section, Config &config);

// A system event as its 16-byte SEL record (record ID 0, timestamp `now`).
std::array<uint8_t, 16> system_event_record(const SystemEvent &event, uint32_t now);

namespace detail {

class SelStore {
public:
    // Starts over from the configuration when it differs from the last one.
    void configure(const SelConfig &c, uint32_t now);

    // The answer to a SEL command of the Storage network function (completion
    // code, data); nothing for other commands.
    std::optional<std::pair<uint8_t, Bytes>> command(uint8_t cmd, const Bytes &data, const SelConfig &c,
                                                     uint32_t now);

    // Appends a record, giving it the next record ID and, for timestamped
    // types, the time; the ID, or nothing when the SEL is full.
    std::optional<uint16_t> add(std::array<uint8_t, 16> record, const SelConfig &c, uint32_t now);

    size_t size() const { return records_.size(); }

private:
    std::pair<uint8_t, Bytes> info(const SelConfig &c) const;
    std::pair<uint8_t, Bytes> get_entry(const Bytes &data, const SelConfig &c) const;
    std::pair<uint8_t, Bytes> clear(const Bytes &data, const SelConfig &c, uint32_t now);

    std::vector<std::array<uint8_t, 16>> records_;
    uint16_t next_id_ = 1;
    uint16_t reservation_ = 0;
    uint32_t last_add_ = 0xFFFFFFFF, last_erase_ = 0xFFFFFFFF;
    int erase_polls_left_ = 0;
    bool overflow_ = false;
    std::optional<SelConfig> configured_;
};

}  // namespace detail
}  // namespace bmcsim
