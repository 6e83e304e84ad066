#include "read_fru_data.h"

#include <algorithm>

#include "wire.h"

namespace rmcpp::commands {

std::vector<uint8_t> build_get_fru_inventory_area_info(uint8_t device_id)
{
    std::vector<uint8_t> out(1);
    wire::Writer w(out.data(), out.size());
    w.u8(device_id);
    return out;
}

std::vector<uint8_t> build_read_fru_data(uint8_t device_id, uint16_t offset, uint8_t count)
{
    if (count == 0) return {};
    std::vector<uint8_t> out(4);
    wire::Writer w(out.data(), out.size());
    w.u8(device_id).u16le(offset).u8(count);
    return out;
}

FruInventoryAreaInfo decode_get_fru_inventory_area_info(const uint8_t *response, size_t length)
{
    FruInventoryAreaInfo info;
    if (response == nullptr) length = 0;
    wire::Reader r(response, length);
    info.completion_code = r.u8();
    if (!r.ok()) return info;
    if (info.completion_code != 0) {
        info.status = FruResponseStatus::completion_code;
        return info;
    }
    const uint16_t size = r.u16le();
    const uint8_t access = r.u8();
    if (!r.ok()) return info;
    if (r.remaining() != 0) {
        info.status = FruResponseStatus::bad_length;
        return info;
    }
    info.area_size = size;
    info.access_by_words = (access & 0x01) != 0;
    info.status = FruResponseStatus::ok;
    return info;
}

FruDataChunk decode_read_fru_data(const uint8_t *response, size_t length, bool access_by_words)
{
    FruDataChunk chunk;
    if (response == nullptr) length = 0;
    wire::Reader r(response, length);
    chunk.completion_code = r.u8();
    if (!r.ok()) return chunk;
    if (chunk.completion_code != 0) {
        chunk.status = FruResponseStatus::completion_code;
        return chunk;
    }
    const uint8_t count = r.u8();
    if (!r.ok()) return chunk;
    const size_t bytes = access_by_words ? size_t{count} * 2 : size_t{count};
    if (r.remaining() < bytes) return chunk;
    if (r.remaining() > bytes) {
        chunk.status = FruResponseStatus::bad_length;
        return chunk;
    }
    chunk.data.resize(bytes);
    r.bytes(chunk.data.data(), bytes);
    chunk.count = count;
    chunk.status = FruResponseStatus::ok;
    return chunk;
}

FruReadPlan start_fru_read(uint16_t area_size, bool access_by_words, uint8_t chunk, uint8_t min_chunk)
{
    FruReadPlan plan;
    plan.area_units = access_by_words ? (uint32_t{area_size} + 1) / 2 : area_size;
    plan.chunk = std::max<uint8_t>(chunk, 1);
    plan.min_chunk = std::min(std::max<uint8_t>(min_chunk, 1), plan.chunk);
    return plan;
}

bool fru_read_done(const FruReadPlan &plan) { return plan.offset >= plan.area_units; }

FruChunkRequest next_fru_chunk(const FruReadPlan &plan)
{
    FruChunkRequest req;
    if (fru_read_done(plan)) return req;
    req.offset = static_cast<uint16_t>(plan.offset);
    req.count = static_cast<uint8_t>(std::min<uint32_t>(plan.chunk, plan.area_units - plan.offset));
    return req;
}

FruChunkOutcome on_fru_chunk_response(FruReadPlan &plan, const FruChunkRequest &asked, uint8_t completion_code,
                                      uint8_t count_returned)
{
    if (completion_code == 0) {
        if (asked.offset != plan.offset || count_returned == 0 || count_returned > asked.count)
            return FruChunkOutcome::failed;
        plan.offset += count_returned;
        return FruChunkOutcome::advanced;
    }
    if (completion_code != kCcParameterOutOfRange && completion_code != kCcCannotReturnRequestedBytes)
        return FruChunkOutcome::failed;
    const uint8_t tried = std::min(asked.count, plan.chunk);
    if (tried <= plan.min_chunk) return FruChunkOutcome::failed;
    plan.chunk = std::max<uint8_t>(static_cast<uint8_t>(tried / 2), plan.min_chunk);
    return FruChunkOutcome::retry_smaller;
}

}  // namespace rmcpp::commands
