// The SDR repository of each target, kept with the most recent addition
// and erase timestamps Get SDR Repository Info gave when it was read. A
// probe reads the repository again only when either timestamp has moved.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "transport.h"

namespace exporter {

using SdrRecords = std::vector<rmcpp::commands::Bytes>;

class SdrCache {
public:
    // The records cached for `target` when they were read under the same
    // timestamps; null otherwise. Counts a hit when found.
    std::shared_ptr<const SdrRecords> find(const std::string &target, uint32_t last_addition, uint32_t last_erase);
    // Keeps a repository just read; counts the read.
    void store(const std::string &target, uint32_t last_addition, uint32_t last_erase,
               std::shared_ptr<const SdrRecords> records);

    size_t reads() const { return reads_.load(); }
    size_t hits() const { return hits_.load(); }

private:
    struct Entry {
        uint32_t last_addition = 0;
        uint32_t last_erase = 0;
        std::shared_ptr<const SdrRecords> records;
    };
    std::mutex mutex_;
    std::map<std::string, Entry> entries_;
    std::atomic<size_t> reads_{0};
    std::atomic<size_t> hits_{0};
};

}  // namespace exporter
