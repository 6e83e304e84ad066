// IPMI LAN message framing: the six-byte header with checksum 1, the data,
// and checksum 2 over rqAddr through the last data byte.
#include "arguments.h"
#include "rmcpp.h"
#include "wire.h"

using rmcpp::wire::checksum;
using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

namespace {

// Builds one message: byte 0, byte 1, checksum 1, bytes 3 to 5, data,
// checksum 2. The two callers differ only in which roles fill the fields.
int frame(uint8_t addr0, uint8_t netfn_lun, uint8_t addr3, uint8_t seq_lun, uint8_t cmd, const uint8_t *data,
          int data_length, uint8_t *output, int output_size, int *output_length)
{
    // Wide arithmetic: a length near INT_MAX must not wrap past the size test.
    if (static_cast<int64_t>(data_length) + 7 > output_size) {
        lib_log(3, "Insufficient buffer size.\n");
        return 6;
    }
    Writer w(output, static_cast<size_t>(output_size));
    w.u8(addr0).u8(netfn_lun).u8(checksum(output, 2));
    w.u8(addr3).u8(seq_lun).u8(cmd).bytes(data, static_cast<size_t>(data_length));
    w.u8(checksum(output + 3, static_cast<size_t>(data_length) + 3));
    *output_length = data_length + 7;
    return 0;
}

// The data may be null only when there is none.
int check_frame_arguments(const IPMI_MsgHeader *h, const uint8_t *data, int data_length, const uint8_t *output,
                          const int *output_length)
{
    if (rmcpp::args::any_null(h, output, output_length) || (data == nullptr && data_length != 0))
        return rmcpp::args::null_input();
    if (data_length < 0) return rmcpp::args::invalid_length();
    return 0;
}

// Both checksums of a message of at least 7 bytes: the covered bytes plus
// their checksum add up to 0.
bool checksum1_ok(const uint8_t *m) { return checksum(m, 3) == 0; }
bool checksum2_ok(const uint8_t *m, uint32_t length) { return checksum(m + 3, length - 3) == 0; }

}  // namespace

extern "C" {

RMCPP_API int MakeIPMIRequest(const IPMI_MsgHeader *h, const uint8_t *data, int data_length, uint8_t *output,
                              int output_size, int *output_length)
{
    if (const int r = check_frame_arguments(h, data, data_length, output, output_length)) return r;
    return frame(h->rs_addr, static_cast<uint8_t>((h->req_netfn << 2) | (h->rs_lun & 3)), h->rq_addr,
                 static_cast<uint8_t>((h->rq_seq << 2) | (h->rq_lun & 3)), h->cmd, data, data_length, output,
                 output_size, output_length);
}

RMCPP_API int MakeIPMIResponse(const IPMI_MsgHeader *h, const uint8_t *data, int data_length, uint8_t *output,
                               int output_size, int *output_length)
{
    if (const int r = check_frame_arguments(h, data, data_length, output, output_length)) return r;
    return frame(h->rq_addr, static_cast<uint8_t>((h->resp_netfn << 2) | (h->rq_lun & 3)), h->rs_addr,
                 static_cast<uint8_t>((h->rq_seq << 2) | (h->rs_lun & 3)), h->cmd, data, data_length, output,
                 output_size, output_length);
}

RMCPP_API int CheckIPMIRespHead(const uint8_t *request, int request_length, const uint8_t *response,
                                int response_length, int *data_offset, int *data_length)
{
    if (rmcpp::args::any_null(request, response, data_offset, data_length)) return rmcpp::args::null_input();
    if (request_length <= 6) {
        lib_log(3, "Invalid IPMI Request Data Length.\n");
        return 68;
    }
    if (response_length <= 7) {
        lib_log(3, "Invalid IPMI Response Data Length.\n");
        return 68;
    }
    // One message serves both checksums.
    if (!checksum1_ok(response) || !checksum2_ok(response, static_cast<uint32_t>(response_length))) {
        lib_log(3, "Invalid IPMI Response checksum1.\n");
        return 66;
    }
    Reader rq(request, static_cast<size_t>(request_length));
    const uint8_t rq_rs_addr = rq.u8();
    const uint8_t rq_netfn_lun = rq.u8();
    rq.skip(1);
    const uint8_t rq_rq_addr = rq.u8();
    const uint8_t rq_seq_lun = rq.u8();
    const uint8_t rq_cmd = rq.u8();

    Reader rs(response, static_cast<size_t>(response_length));
    const uint8_t rs_rq_addr = rs.u8();
    const uint8_t rs_netfn_lun = rs.u8();
    rs.skip(1);
    const uint8_t rs_rs_addr = rs.u8();
    const uint8_t rs_seq_lun = rs.u8();
    const uint8_t rs_cmd = rs.u8();

    if (rs_rq_addr != rq_rq_addr) {
        lib_log(3, "IPMI Header : Invalid request address.\n");
        return 66;
    }
    if ((rs_netfn_lun >> 2) != (rq_netfn_lun >> 2) + 1) {
        lib_log(3, "IPMI Header : Invalid NetFn.\n");
        return 66;
    }
    if ((rs_netfn_lun & 3) != (rq_seq_lun & 3)) {
        lib_log(3, "IPMI Header : Invalid rqLUN.\n");
        return 66;
    }
    if (rs_rs_addr != rq_rs_addr) {
        lib_log(3, "IPMI Header : Invalid response address.\n");
        return 66;
    }
    if ((rs_seq_lun >> 2) != (rq_seq_lun >> 2)) {
        lib_log(3, "IPMI Header : Invalid rqSeq.\n");
        return 66;
    }
    if ((rs_seq_lun & 3) != (rq_netfn_lun & 3)) {
        lib_log(3, "IPMI Header : Invalid rsLUN.\n");
        return 66;
    }
    if (rs_cmd != rq_cmd) {
        lib_log(3, "IPMI Header : Invalid command.\n");
        return 66;
    }
    *data_offset = 6;
    *data_length = response_length - 7;
    return 0;
}

RMCPP_API int CheckIPMIReqHead(const uint8_t *message, int length, int *data_offset, int *data_length)
{
    if (rmcpp::args::any_null(message, data_offset, data_length)) return rmcpp::args::null_input();
    if (length < 7) {
        lib_log(1, "Received Unexpected Packet.(P_L length)\n");
        return 1;
    }
    if (!checksum1_ok(message)) {
        lib_log(1, "[ Invalid Response ] IPMI Message : checksum1\n");
        return 1;
    }
    if (!checksum2_ok(message, static_cast<uint32_t>(length))) {
        lib_log(1, "[ Invalid Response ] IPMI Message : checksum2\n");
        return 1;
    }
    Reader r(message, static_cast<size_t>(length));
    r.skip(1);
    const uint8_t netfn_lun = r.u8();
    if (netfn_lun & 0x04) {
        lib_log(1, "[ Invalid Response ] IPMI Message : netFn = %02xh (not Request)\n", netfn_lun);
        return 1;
    }
    *data_offset = 6;
    *data_length = length - 7;
    return 0;
}

RMCPP_API int Check_IPMIMessHead(const uint8_t *message, uint32_t length, const IPMI_MsgHeader *h,
                                 uint8_t *completion_code, uint32_t *data_length)
{
    if (rmcpp::args::any_null(message, h, completion_code, data_length)) return rmcpp::args::null_input();
    if (length <= 7) {
        lib_log(1, "Received Unexpected Packet.(P_L length)\n");
        return 1;
    }
    if (!checksum1_ok(message)) {
        lib_log(1, "[ Invalid Response ] IPMI Message : checksum1\n");
        return 1;
    }
    if (!checksum2_ok(message, length)) {
        lib_log(1, "[ Invalid Response ] IPMI Message : checksum2\n");
        return 1;
    }
    Reader r(message, length);
    const uint8_t rq_addr = r.u8();
    const uint8_t netfn_lun = r.u8();
    r.skip(1);
    const uint8_t rs_addr = r.u8();
    const uint8_t seq_lun = r.u8();
    const uint8_t cmd = r.u8();
    const uint8_t cc = r.u8();

    // The LUNs are not masked: a LUN above 3 can never match.
    const uint8_t want_netfn_lun = static_cast<uint8_t>((h->resp_netfn << 2) | h->rq_lun);
    const uint8_t want_seq_lun = static_cast<uint8_t>((h->rq_seq << 2) | h->rs_lun);
    if (rq_addr != h->rq_addr) {
        lib_log(1, "[ Invalid Response ] IPMI Message : rqAddr.= %02xh (expected %02xh)\n", rq_addr, h->rq_addr);
        return 1;
    }
    if (netfn_lun != want_netfn_lun) {
        lib_log(1, "[ Invalid Response ] IPMI Message : netFn/rqLUN = %02xh (expected %02xh)\n", netfn_lun,
                want_netfn_lun);
        return 1;
    }
    if (rs_addr != h->rs_addr) {
        lib_log(1, "[ Invalid Response ] IPMI Message : rsAddr.= %02xh (expected %02xh)\n", rs_addr, h->rs_addr);
        return 1;
    }
    if (seq_lun != want_seq_lun) {
        lib_log(1, "[ Invalid Response ] IPMI Message : rqSeq/rsLUN = %02xh (expected %02xh)\n", seq_lun,
                want_seq_lun);
        return 1;
    }
    if (cmd != h->cmd) {
        lib_log(1, "[ Invalid Response ] IPMI Message : Cmd = %02xh (expected %02xh)\n", cmd, h->cmd);
        return 1;
    }
    *completion_code = cc;
    *data_length = length - 8;
    return 0;
}

}  // extern "C"
