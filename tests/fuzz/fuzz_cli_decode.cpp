// The rmcpp tool's decoders of response data (after the completion code):
// Get Device ID, Get Self Test Results and Get Chassis Status, and their
// text and JSON rendering. Option byte 0 picks the decoder (0..2, taken
// modulo 3). The JSON object must come out without a raw control character.
#include "decode.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t which = in.u8() % 3;
    const cli::Bytes response = in.take(300);
    std::optional<cli::Fields> fields;
    switch (which) {
    case 0: fields = cli::decode_device_id(response); break;
    case 1: fields = cli::decode_self_test(response); break;
    default: fields = cli::decode_chassis_status(response); break;
    }
    (void)cli::hex_bytes(response);
    if (!fields) return 0;
    nlohmann::json object = nlohmann::json::object();
    for (const auto &f : *fields) {
        (void)cli::field_text(f.value);
        object[f.key] = f.value;
    }
    const std::string json = object.dump();
    for (char c : json)
        if (static_cast<unsigned char>(c) < 0x20) __builtin_trap();
    return 0;
}
