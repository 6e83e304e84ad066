// The SDR Repository commands (NetFn Storage): Get SDR Repository Info,
// Reserve SDR Repository and Get SDR, and reading every record of the
// repository with them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "transport.h"

namespace rmcpp::commands {

inline constexpr uint8_t sdr_storage_netfn = 0x0A;
inline constexpr uint8_t get_sdr_repository_info_cmd = 0x20;
inline constexpr uint8_t reserve_sdr_repository_cmd = 0x22;
inline constexpr uint8_t get_sdr_cmd = 0x23;

inline constexpr uint16_t sdr_first_record_id = 0x0000;
inline constexpr uint16_t sdr_last_record_id = 0xFFFF;
inline constexpr uint8_t sdr_read_whole_record = 0xFF;

inline constexpr uint8_t cc_reservation_cancelled = 0xC5;
inline constexpr uint8_t cc_cannot_return_bytes = 0xCA;

struct SdrRepositoryInfo {
    uint8_t version = 0x51;  // BCD, 51h for IPMI v2.0
    uint16_t record_count = 0;
    uint16_t free_space = 0;  // bytes; FFFFh unspecified
    uint32_t last_addition = 0;
    uint32_t last_erase = 0;
    uint8_t operation_support = 0;
    bool operator==(const SdrRepositoryInfo &) const = default;
};

// Response data after the completion code; false when it is not the 14
// bytes the command returns.
bool decode_get_sdr_repository_info(const Bytes &data, SdrRepositoryInfo &out);
Bytes encode_get_sdr_repository_info(const SdrRepositoryInfo &info);

bool decode_reserve_sdr_repository(const Bytes &data, uint16_t &reservation);
Bytes encode_reserve_sdr_repository(uint16_t reservation);

struct GetSdrRequest {
    uint16_t reservation = 0;  // 0000h only for a whole-record read
    uint16_t record_id = 0;
    uint8_t offset = 0;
    uint8_t count = sdr_read_whole_record;
    bool operator==(const GetSdrRequest &) const = default;
};

Bytes build_get_sdr(const GetSdrRequest &request);
bool decode_get_sdr_request(const Bytes &data, GetSdrRequest &out);

struct GetSdrResponse {
    uint16_t next_record_id = 0;
    Bytes data;  // the bytes of the record asked for
};

// At least the two next-record-ID bytes.
bool decode_get_sdr(const Bytes &data, GetSdrResponse &out);
Bytes encode_get_sdr(uint16_t next_record_id, const uint8_t *data, size_t length);

struct SdrReadLimits {
    uint8_t piece = 16;        // bytes asked for per Get SDR after the header
    int reservation_retries = 5;  // restarts of one record after a lost reservation
    size_t max_records = 4096;
};

// Every record of the repository, header included, in the order the BMC
// links them from record 0000h to FFFFh. Throws CommandError: completion
// codes other than the ones handled, a record or next ID that does not fit
// (malformed), a next ID that names a record already read, more than
// max_records records, or a reservation lost more than the retries allow.
std::vector<Bytes> read_sdr_repository(Transport &t, const SdrReadLimits &limits = {});

}  // namespace rmcpp::commands
