// A FRU inventory image as Read FRU Data assembles it, and the two storage
// responses that carry it: option byte 0 says whether the device is read
// by words; the rest is given to every decoder.
#include "fru_area.h"
#include "fuzz_support.h"
#include "read_fru_data.h"

using namespace rmcpp::commands;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const bool by_words = in.u8() & 1;
    const fuzz::Bytes rest = in.rest();

    (void)decode_get_fru_inventory_area_info(rest.data(), rest.size());
    const FruDataChunk chunk = decode_read_fru_data(rest.data(), rest.size(), by_words);
    if (chunk.status == FruResponseStatus::ok && chunk.data.size() > rest.size()) __builtin_trap();
    (void)decode_fru(rest.data(), rest.size());
    return 0;
}
