#include "fru_read.h"

#include <algorithm>
#include <string>

namespace rmcpp::commands {
namespace {

constexpr uint8_t kCcFruDeviceBusy = 0x81;

[[noreturn]] void malformed(const std::string &step, const std::string &what)
{
    throw CommandError(CommandError::Kind::malformed, step, 0, 0, step + ": " + what);
}

// The decoders take the response from its completion code on.
Bytes with_completion_code(const Reply &r)
{
    Bytes response{r.completion_code};
    response.insert(response.end(), r.data.begin(), r.data.end());
    return response;
}

}  // namespace

FruDevice read_fru(Transport &t, uint8_t device_id, const FruReadLimits &limits)
{
    FruDevice fru;
    fru.device_id = device_id;

    const std::string info_step = "Get FRU Inventory Area Info";
    const Bytes info_data =
        call(t, info_step, kNetFnStorage, kCmdGetFruInventoryAreaInfo, build_get_fru_inventory_area_info(device_id));
    const Bytes info_response = with_completion_code({0, 0, info_data});
    const FruInventoryAreaInfo info = decode_get_fru_inventory_area_info(info_response.data(), info_response.size());
    if (info.status != FruResponseStatus::ok)
        malformed(info_step, "answer of " + std::to_string(info_data.size()) + " bytes");
    fru.area_size = info.area_size;
    fru.access_by_words = info.access_by_words;

    const std::string step = "Read FRU Data";
    const uint8_t unit = info.access_by_words ? 2 : 1;
    const uint8_t chunk = static_cast<uint8_t>(std::max(1, limits.chunk_bytes / unit));
    FruReadPlan plan = start_fru_read(info.area_size, info.access_by_words, chunk, 1);
    int busy = 0;
    // Each exchange either advances or halves the chunk, so this bounds the loop.
    for (uint32_t exchanges = 0; !fru_read_done(plan); ++exchanges) {
        if (exchanges > plan.area_units + 16u + static_cast<uint32_t>(limits.busy_retries))
            malformed(step, "no progress at offset " + std::to_string(plan.offset));
        const FruChunkRequest asked = next_fru_chunk(plan);
        const Reply r = t.exchange(kNetFnStorage, kCmdReadFruData, build_read_fru_data(device_id, asked.offset, asked.count));
        if (r.result != 0) call_replied(r, step);
        if (r.completion_code == kCcFruDeviceBusy && busy++ < limits.busy_retries) continue;
        const Bytes response = with_completion_code(r);
        const FruDataChunk got = decode_read_fru_data(response.data(), response.size(), info.access_by_words);
        if (r.completion_code == 0 && got.status != FruResponseStatus::ok)
            malformed(step, "answer of " + std::to_string(r.data.size()) + " bytes at offset " +
                                std::to_string(asked.offset));
        switch (on_fru_chunk_response(plan, asked, r.completion_code, got.count)) {
        case FruChunkOutcome::advanced:
            fru.image.insert(fru.image.end(), got.data.begin(), got.data.end());
            break;
        case FruChunkOutcome::retry_smaller: break;
        case FruChunkOutcome::failed:
            if (r.completion_code != 0) call_replied(r, step);
            malformed(step, "count " + std::to_string(got.count) + " at offset " + std::to_string(asked.offset) +
                                " for " + std::to_string(asked.count) + " asked");
        }
    }
    fru.image.resize(fru.area_size);  // a word-accessed area of odd size read one byte over
    fru.decoded = decode_fru(fru.image.data(), fru.image.size());
    return fru;
}

}  // namespace rmcpp::commands
