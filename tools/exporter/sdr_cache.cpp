#include "sdr_cache.h"

namespace exporter {

std::shared_ptr<const SdrRecords> SdrCache::find(const std::string &target, uint32_t last_addition,
                                                 uint32_t last_erase)
{
    std::lock_guard lock(mutex_);
    auto it = entries_.find(target);
    if (it == entries_.end() || it->second.last_addition != last_addition || it->second.last_erase != last_erase)
        return nullptr;
    ++hits_;
    return it->second.records;
}

void SdrCache::store(const std::string &target, uint32_t last_addition, uint32_t last_erase,
                     std::shared_ptr<const SdrRecords> records)
{
    ++reads_;
    std::lock_guard lock(mutex_);
    entries_[target] = Entry{last_addition, last_erase, std::move(records)};
}

}  // namespace exporter
