// IPMI message headers: a response checked against the request it answers,
// a request checked on its own, and a response checked against an expected
// header record. Option byte 0 is the request's length; the request's bytes
// follow, then the response's. Options 1 to 8 after the request are the
// expected header record.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t request_length = in.u8();
    const fuzz::Bytes request = in.take(request_length);
    IPMI_MsgHeader expected;
    expected.req_netfn = in.u8();
    expected.rq_addr = in.u8();
    expected.cmd = in.u8();
    expected.rq_lun = in.u8();
    expected.rq_seq = in.u8();
    expected.resp_netfn = in.u8();
    expected.rs_addr = in.u8();
    expected.rs_lun = in.u8();
    const fuzz::Bytes response = in.take(0x10000);

    int data_offset = 0, data_length = 0;
    if (CheckIPMIRespHead(request.data(), static_cast<int>(request.size()), response.data(),
                          static_cast<int>(response.size()), &data_offset, &data_length) == 0) {
        if (data_offset < 0 || data_length < 0 ||
            static_cast<size_t>(data_offset) + static_cast<size_t>(data_length) > response.size())
            __builtin_trap();
    }
    if (CheckIPMIReqHead(request.data(), static_cast<int>(request.size()), &data_offset, &data_length) == 0) {
        if (data_offset < 0 || data_length < 0 ||
            static_cast<size_t>(data_offset) + static_cast<size_t>(data_length) > request.size())
            __builtin_trap();
    }
    uint8_t completion_code = 0;
    uint32_t message_data_length = 0;
    if (Check_IPMIMessHead(response.data(), static_cast<uint32_t>(response.size()), &expected, &completion_code,
                           &message_data_length) == 0) {
        if (7 + static_cast<size_t>(message_data_length) > response.size()) __builtin_trap();
    }
    return 0;
}
