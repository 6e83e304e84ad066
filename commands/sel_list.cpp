#include "sel_list.h"

#include <algorithm>
#include <set>
#include <thread>

namespace rmcpp::commands {
namespace {

constexpr uint8_t kCcReservationCancelled = 0xC5;
constexpr uint8_t kCcCannotReturnBytes = 0xCA;
constexpr uint8_t kCcNotPresent = 0xCB;

[[noreturn]] void malformed(const std::string &step, const std::string &what)
{
    throw CommandError(CommandError::Kind::malformed, step, 0, 0, step + ": " + what);
}

[[noreturn]] void refused(const std::string &step, const Reply &r)
{
    call_replied(r, step);
    malformed(step, "refused");  // not reached: r is never a success here
}

uint16_t reserve_sel(Transport &t)
{
    const Bytes data = call(t, "Reserve SEL", kSelNetFn, kReserveSelCmd, {});
    auto id = decode_reserve_sel(data.data(), data.size());
    if (!id) malformed("Reserve SEL", "answer of " + std::to_string(data.size()) + " bytes");
    return *id;
}

Reply get_sel_entry(Transport &t, const GetSelEntryRequest &request)
{
    const auto req = build_get_sel_entry(request);
    return t.exchange(kSelNetFn, kGetSelEntryCmd, Bytes(req.begin(), req.end()));
}

// One record in parts under a reservation, restarted when the reservation
// is cancelled.
SelEntry read_record_in_parts(Transport &t, uint16_t record_id, const SelReadLimits &limits)
{
    const std::string step = "Get SEL Entry";
    for (int attempt = 0; attempt <= limits.max_reservation_retries; ++attempt) {
        const uint16_t reservation = reserve_sel(t);
        uint8_t chunk = std::max<uint8_t>(limits.partial_chunk, 1);
        Bytes raw;
        uint16_t next = 0;
        bool cancelled = false;
        while (raw.size() < kSelRecordSize) {
            const uint8_t want = static_cast<uint8_t>(std::min<size_t>(chunk, kSelRecordSize - raw.size()));
            const Reply r = get_sel_entry(t, {reservation, record_id, static_cast<uint8_t>(raw.size()), want});
            if (r.result == 0 && r.completion_code == kCcReservationCancelled) {
                cancelled = true;
                break;
            }
            if (r.result == 0 && r.completion_code == kCcCannotReturnBytes && chunk > 1) {
                chunk = static_cast<uint8_t>(chunk / 2);
                continue;
            }
            if (r.result != 0 || r.completion_code != 0) refused(step, r);
            auto part = decode_get_sel_entry_chunk(r.data.data(), r.data.size());
            if (!part || part->data.empty() || part->data.size() > want)
                malformed(step, "partial read of record " + std::to_string(record_id) + " gave " +
                                    std::to_string(r.data.size()) + " bytes");
            raw.insert(raw.end(), part->data.begin(), part->data.end());
            next = part->next_record_id;
        }
        if (cancelled) continue;
        Bytes whole{static_cast<uint8_t>(next), static_cast<uint8_t>(next >> 8)};
        whole.insert(whole.end(), raw.begin(), raw.end());
        auto entry = decode_get_sel_entry(whole.data(), whole.size());
        if (!entry) malformed(step, "record " + std::to_string(record_id) + " does not decode");
        return *entry;
    }
    malformed(step, "reservation cancelled " + std::to_string(limits.max_reservation_retries + 1) +
                        " times while reading record " + std::to_string(record_id));
}

}  // namespace

SelInfo read_sel_info(Transport &t)
{
    const Bytes data = call(t, "Get SEL Info", kSelNetFn, kGetSelInfoCmd, {});
    auto info = decode_get_sel_info(data.data(), data.size());
    if (!info) malformed("Get SEL Info", "answer of " + std::to_string(data.size()) + " bytes");
    return *info;
}

std::vector<SelEntry> read_sel(Transport &t, const SelReadLimits &limits)
{
    const std::string step = "Get SEL Entry";
    std::vector<SelEntry> entries;
    if (read_sel_info(t).entries == 0) return entries;

    std::set<uint16_t> seen;
    uint16_t id = kSelFirstEntry;
    while (id != kSelLastEntry) {
        if (entries.size() >= limits.max_entries)
            malformed(step, "more than " + std::to_string(limits.max_entries) + " records");
        if (!seen.insert(id).second) malformed(step, "record " + std::to_string(id) + " came round again");

        const Reply r = get_sel_entry(t, {0, id, 0, 0xFF});
        SelEntry entry;
        if (r.result == 0 && r.completion_code == kCcNotPresent && id == kSelFirstEntry) {
            return entries;  // emptied since Get SEL Info
        } else if (r.result == 0 && r.completion_code == kCcCannotReturnBytes) {
            entry = read_record_in_parts(t, id, limits);
        } else if (r.result != 0 || r.completion_code != 0) {
            refused(step, r);
        } else if (auto whole = decode_get_sel_entry(r.data.data(), r.data.size())) {
            entry = *whole;
        } else if (r.data.size() >= 2 && r.data.size() < 2 + kSelRecordSize) {
            // A short answer to a whole-record read: take the record in parts.
            entry = read_record_in_parts(t, id, limits);
        } else {
            malformed(step, "record " + std::to_string(id) + ": answer of " + std::to_string(r.data.size()) +
                                " bytes");
        }
        if (entry.next_record_id == kSelFirstEntry)
            malformed(step, "record " + std::to_string(id) + " gives 0000h as the next record");
        id = entry.next_record_id;
        entries.push_back(std::move(entry));
    }
    return entries;
}

void clear_sel(Transport &t, const SelClearLimits &limits)
{
    const std::string step = "Clear SEL";
    uint16_t reservation = reserve_sel(t);
    auto clear = [&](ClearSelAction action) {
        const auto req = build_clear_sel(reservation, action);
        return t.exchange(kSelNetFn, kClearSelCmd, Bytes(req.begin(), req.end()));
    };
    auto progress_of = [&](const Reply &r) {
        auto p = decode_clear_sel(r.data.data(), r.data.size());
        if (!p) malformed(step, "erasure progress of " + std::to_string(r.data.size()) + " bytes");
        return *p;
    };

    Reply r = clear(ClearSelAction::InitiateErase);
    if (r.result != 0 || r.completion_code != 0) refused(step, r);
    if (progress_of(r) == ErasureProgress::Completed) return;

    int lost = 0;
    for (int poll = 0; poll < limits.max_polls; ++poll) {
        if (limits.poll_interval.count() > 0) std::this_thread::sleep_for(limits.poll_interval);
        r = clear(ClearSelAction::GetStatus);
        if (r.result == 0 && r.completion_code == kCcReservationCancelled && lost++ < 3) {
            reservation = reserve_sel(t);
            continue;
        }
        if (r.result != 0 || r.completion_code != 0) refused(step, r);
        if (progress_of(r) == ErasureProgress::Completed) return;
    }
    malformed(step, "erasure still in progress after " + std::to_string(limits.max_polls) + " polls");
}

}  // namespace rmcpp::commands
