#include "sdr_repository.h"

#include <algorithm>
#include <set>
#include <string>

#include "sdr_record.h"
#include "wire.h"

namespace rmcpp::commands {

namespace {

using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

constexpr size_t repository_info_length = 14;

std::string hex4(uint16_t v)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string s(4, '0');
    for (int i = 3; i >= 0; --i, v = static_cast<uint16_t>(v >> 4)) s[static_cast<size_t>(i)] = digits[v & 0x0F];
    return s + "h";
}

[[noreturn]] void malformed(const std::string &step, const std::string &what)
{
    throw CommandError(CommandError::Kind::malformed, step, 0, 0, step + ": " + what);
}

uint16_t reserve(Transport &t)
{
    uint16_t reservation = 0;
    const Bytes data = call(t, "Reserve SDR Repository", sdr_storage_netfn, reserve_sdr_repository_cmd, {});
    if (!decode_reserve_sdr_repository(data, reservation))
        malformed("Reserve SDR Repository", "answer is not a 2-byte reservation ID");
    return reservation;
}

// One Get SDR. Returns the completion code of C5h and CAh to the caller
// (with `out` untouched); any other failure throws.
uint8_t get_sdr(Transport &t, const GetSdrRequest &rq, GetSdrResponse &out)
{
    const Reply reply = t.exchange(sdr_storage_netfn, get_sdr_cmd, build_get_sdr(rq));
    if (reply.result == 0 &&
        (reply.completion_code == cc_reservation_cancelled || reply.completion_code == cc_cannot_return_bytes))
        return reply.completion_code;
    if (reply.result != 0 || reply.completion_code != 0) call_replied(reply, "Get SDR");
    if (!decode_get_sdr(reply.data, out)) malformed("Get SDR", "answer shorter than the next record ID");
    if (out.data.size() != rq.count)
        malformed("Get SDR", "record " + hex4(rq.record_id) + ": asked for " + std::to_string(rq.count) +
                                 " bytes at offset " + std::to_string(rq.offset) + ", got " +
                                 std::to_string(out.data.size()));
    return 0;
}

enum class RecordRead { done, reservation_lost };

// Reads record `id` in pieces: the header, then its body. Sets `next`.
RecordRead read_record(Transport &t, uint16_t reservation, uint16_t id, uint8_t &piece, Bytes &record,
                       uint16_t &next)
{
    GetSdrResponse r;
    GetSdrRequest rq{reservation, id, 0, static_cast<uint8_t>(sdr_header_length)};
    uint8_t cc = get_sdr(t, rq, r);
    if (cc == cc_reservation_cancelled) return RecordRead::reservation_lost;
    if (cc == cc_cannot_return_bytes) malformed("Get SDR", "record " + hex4(id) + ": the header cannot be read");
    SdrHeader header;
    decode_sdr_header(r.data.data(), r.data.size(), header);
    next = r.next_record_id;
    record = r.data;
    const size_t total = sdr_header_length + header.length;
    while (record.size() < total) {
        if (record.size() > 0xFF) malformed("Get SDR", "record " + hex4(id) + ": longer than offsets reach");
        rq.offset = static_cast<uint8_t>(record.size());
        rq.count = static_cast<uint8_t>(std::min<size_t>(piece, total - record.size()));
        cc = get_sdr(t, rq, r);
        if (cc == cc_reservation_cancelled) return RecordRead::reservation_lost;
        if (cc == cc_cannot_return_bytes) {
            if (rq.count <= 1)
                throw CommandError(CommandError::Kind::completion_code, "Get SDR", 0, cc,
                                   "Get SDR: record " + hex4(id) + ": the BMC cannot return even one byte");
            piece = static_cast<uint8_t>(rq.count / 2);
            continue;
        }
        record.insert(record.end(), r.data.begin(), r.data.end());
    }
    return RecordRead::done;
}

}  // namespace

bool decode_get_sdr_repository_info(const Bytes &data, SdrRepositoryInfo &out)
{
    if (data.size() != repository_info_length) return false;
    Reader r(data.data(), data.size());
    SdrRepositoryInfo info;
    info.version = r.u8();
    info.record_count = r.u16le();
    info.free_space = r.u16le();
    info.last_addition = r.u32le();
    info.last_erase = r.u32le();
    info.operation_support = r.u8();
    if (!r.ok()) return false;
    out = info;
    return true;
}

Bytes encode_get_sdr_repository_info(const SdrRepositoryInfo &info)
{
    Bytes out(repository_info_length);
    Writer w(out.data(), out.size());
    w.u8(info.version).u16le(info.record_count).u16le(info.free_space);
    w.u32le(info.last_addition).u32le(info.last_erase).u8(info.operation_support);
    return out;
}

bool decode_reserve_sdr_repository(const Bytes &data, uint16_t &reservation)
{
    if (data.size() != 2) return false;
    Reader r(data.data(), data.size());
    reservation = r.u16le();
    return r.ok();
}

Bytes encode_reserve_sdr_repository(uint16_t reservation)
{
    Bytes out(2);
    Writer w(out.data(), out.size());
    w.u16le(reservation);
    return out;
}

Bytes build_get_sdr(const GetSdrRequest &request)
{
    Bytes out(6);
    Writer w(out.data(), out.size());
    w.u16le(request.reservation).u16le(request.record_id).u8(request.offset).u8(request.count);
    return out;
}

bool decode_get_sdr_request(const Bytes &data, GetSdrRequest &out)
{
    if (data.size() != 6) return false;
    Reader r(data.data(), data.size());
    out.reservation = r.u16le();
    out.record_id = r.u16le();
    out.offset = r.u8();
    out.count = r.u8();
    return r.ok();
}

bool decode_get_sdr(const Bytes &data, GetSdrResponse &out)
{
    Reader r(data.data(), data.size());
    const uint16_t next = r.u16le();
    if (!r.ok()) return false;
    out.next_record_id = next;
    out.data.assign(r.here(), r.here() + r.remaining());
    return true;
}

Bytes encode_get_sdr(uint16_t next_record_id, const uint8_t *data, size_t length)
{
    Bytes out(2 + length);
    Writer w(out.data(), out.size());
    w.u16le(next_record_id).bytes(data, length);
    return out;
}

std::vector<Bytes> read_sdr_repository(Transport &t, const SdrReadLimits &limits)
{
    SdrRepositoryInfo info;
    const Bytes data = call(t, "Get SDR Repository Info", sdr_storage_netfn, get_sdr_repository_info_cmd, {});
    if (!decode_get_sdr_repository_info(data, info))
        malformed("Get SDR Repository Info", "answer is not the 14 bytes of the repository info");
    std::vector<Bytes> records;
    if (info.record_count == 0) return records;

    uint8_t piece = std::max<uint8_t>(limits.piece, 1);
    uint16_t reservation = reserve(t);
    std::set<uint16_t> asked, read;  // IDs asked for; IDs the records carry
    uint16_t id = sdr_first_record_id;
    while (id != sdr_last_record_id) {
        if (!asked.insert(id).second)
            malformed("Get SDR", "the repository links back to record " + hex4(id));
        if (records.size() >= limits.max_records)
            malformed("Get SDR", "more than " + std::to_string(limits.max_records) + " records");
        Bytes record;
        uint16_t next = 0;
        int lost = 0;
        while (read_record(t, reservation, id, piece, record, next) == RecordRead::reservation_lost) {
            if (++lost > limits.reservation_retries)
                throw CommandError(CommandError::Kind::completion_code, "Get SDR", 0, cc_reservation_cancelled,
                                   "Get SDR: record " + hex4(id) + ": the reservation was lost " +
                                       std::to_string(lost) + " times");
            reservation = reserve(t);
        }
        SdrHeader header;
        decode_sdr_header(record.data(), record.size(), header);
        if (!read.insert(header.record_id).second)
            malformed("Get SDR", "the repository links back to record " + hex4(header.record_id));
        records.push_back(std::move(record));
        id = next;
    }
    return records;
}

}  // namespace rmcpp::commands
