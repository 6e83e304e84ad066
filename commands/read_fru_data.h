// Get FRU Inventory Area Info and Read FRU Data (IPMI v2.0 storage commands),
// and a planner that reads a FRU area in chunks, making the chunk smaller
// when the BMC cannot return that many bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace rmcpp::commands {

inline constexpr uint8_t kNetFnStorage = 0x0A;
inline constexpr uint8_t kCmdGetFruInventoryAreaInfo = 0x10;
inline constexpr uint8_t kCmdReadFruData = 0x11;

inline constexpr uint8_t kCcParameterOutOfRange = 0xC9;
inline constexpr uint8_t kCcCannotReturnRequestedBytes = 0xCA;

enum class FruResponseStatus : uint8_t {
    ok,
    completion_code,  // non-zero completion code; nothing else decoded
    truncated,        // shorter than the command's response
    bad_length,       // longer than the response, or data length not what the count says
};

struct FruInventoryAreaInfo {
    FruResponseStatus status = FruResponseStatus::truncated;
    uint8_t completion_code = 0;
    uint16_t area_size = 0;        // in bytes
    bool access_by_words = false;  // offsets and counts are in 16-bit words
};

struct FruDataChunk {
    FruResponseStatus status = FruResponseStatus::truncated;
    uint8_t completion_code = 0;
    uint8_t count = 0;  // count returned, in access units
    std::vector<uint8_t> data;
};

// Request data: FRU device ID.
std::vector<uint8_t> build_get_fru_inventory_area_info(uint8_t device_id);

// Request data: FRU device ID, offset (LS byte first), count to read. Offset
// and count are in the device's access units. Count 0 is refused (empty
// result).
std::vector<uint8_t> build_read_fru_data(uint8_t device_id, uint16_t offset, uint8_t count);

// Responses are given from the completion code on.
FruInventoryAreaInfo decode_get_fru_inventory_area_info(const uint8_t *response, size_t length);
FruDataChunk decode_read_fru_data(const uint8_t *response, size_t length, bool access_by_words);

// Reading an area chunk by chunk. All quantities are in access units (bytes,
// or words when the device is accessed by words).
struct FruReadPlan {
    uint32_t area_units = 0;  // area size in access units
    uint32_t offset = 0;      // units read so far
    uint8_t chunk = 1;        // units asked for per read now
    uint8_t min_chunk = 1;    // the chunk is never made smaller than this
};

struct FruChunkRequest {
    uint16_t offset = 0;
    uint8_t count = 0;
};

enum class FruChunkOutcome : uint8_t {
    advanced,       // data taken; ask for the next chunk (or done)
    retry_smaller,  // the chunk was halved; ask again at the same offset
    failed,         // give up: other completion code, no progress, or already at the minimum
};

// A plan for an area of `area_size` bytes. A word-accessed area of odd size
// is read to its last whole word plus one. chunk and min_chunk of 0 count as
// 1; a min_chunk above chunk is lowered to chunk.
FruReadPlan start_fru_read(uint16_t area_size, bool access_by_words, uint8_t chunk, uint8_t min_chunk);

bool fru_read_done(const FruReadPlan &plan);

// The next Read FRU Data offset and count; count 0 when the area is read.
FruChunkRequest next_fru_chunk(const FruReadPlan &plan);

// Applies the answer to `asked`: completion code 0 with 1..asked.count units
// advances the offset; C9h or CAh halves the chunk (from what was asked) down
// to the minimum.
FruChunkOutcome on_fru_chunk_response(FruReadPlan &plan, const FruChunkRequest &asked, uint8_t completion_code,
                                      uint8_t count_returned);

}  // namespace rmcpp::commands
