// The SEL responses (Get SEL Info, Reserve SEL, Get SEL Entry whole and in
// part, Clear SEL) and the description of a decoded system event record.
#include "event_text.h"
#include "fuzz_support.h"
#include "sel_entry.h"

using namespace rmcpp::commands;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Bytes in = fuzz::Options(data, size).rest();
    (void)decode_get_sel_info(in.data(), in.size());
    (void)decode_reserve_sel(in.data(), in.size());
    (void)decode_get_sel_entry_chunk(in.data(), in.size());
    (void)decode_clear_sel(in.data(), in.size());
    if (const auto entry = decode_get_sel_entry(in.data(), in.size())) {
        const SelRecord &r = entry->record;
        (void)sel_timestamp_text(r.timestamp);
        (void)sensor_type_name(r.sensor_type);
        (void)event_description(r.event_type, r.sensor_type, r.offset);
        (void)event_data2_use(r.event_type, r.event_data[0]);
        (void)event_data3_use(r.event_type, r.event_data[0]);
    }
    return 0;
}
