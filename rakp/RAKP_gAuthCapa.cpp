// Get Channel Authentication Capabilities over an unauthenticated IPMI v1.5
// session, with the IPMI v2.0 extension bit set: tells whether the channel
// supports RMCP+ at all, and carries the Kg, per-message and user-level
// authentication status bits. The only IPMI v1.5 session framing the
// library speaks.
#include "arguments.h"
#include "RAKP_common.h"
#include "process_settings.h"
#include "rmcpp.h"
#include "wire.h"

using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

namespace {

constexpr uint32_t kRequestLength = 23;
constexpr uint8_t kNetFnApp = 0x06;
constexpr uint8_t kCmdGetChannelAuthCapabilities = 0x38;
// Bit 7: get IPMI v2.0 extended data; channel 0x0E: the channel this
// request arrives on.
constexpr uint8_t kChannelByte = 0x8E;

}  // namespace

extern "C" {

RMCPP_API int Make_GetAuthCapa_v15(RMCPp_SetupState *, const IPMI_MsgHeader *record, uint8_t privilege,
                                   uint8_t *buffer, uint32_t buffer_size, uint32_t *length_out)
{
    if (rmcpp::args::any_null(record, buffer, length_out)) return rmcpp::args::null_input();
    uint32_t header_length = 0;
    if (rmcpp::rakp::start_request(buffer, buffer_size, kRequestLength, header_length) != 0) return 3;
    *length_out = kRequestLength;

    const uint8_t rs[2] = {record->rs_addr,
                           static_cast<uint8_t>((record->req_netfn << 2) | (record->rs_lun & 3))};
    const uint8_t rq[5] = {record->rq_addr, static_cast<uint8_t>((record->rq_seq << 2) | (record->rq_lun & 3)),
                           record->cmd, kChannelByte, privilege};

    Writer w(buffer + header_length, buffer_size - header_length);
    // Session header: authentication type none, sequence number 0,
    // session ID 0, message length.
    w.u8(0x00).u32le(0).u32le(0).u8(kRequestLength - 14);
    w.bytes(rs, sizeof rs).u8(rmcpp::wire::checksum(rs, sizeof rs));
    w.bytes(rq, sizeof rq).u8(rmcpp::wire::checksum(rq, sizeof rq));
    return 0;
}

// Code 69 tells the retry routine that the datagram is not the awaited
// answer, so the wait goes on; 66 ends the phase.
RMCPP_API int Check_IPMIv15_NonAuth(RMCPp_SetupState *, const uint8_t *data, uint32_t *length,
                                    const IPMI_MsgHeader *expected, uint32_t *used)
{
    if (rmcpp::args::any_null(data, length, expected, used)) return rmcpp::args::null_input();
    if (*length <= 9) {
        lib_log(1, "Received unexpected Packet.(S_H length)\n");
        return 69;
    }
    Reader r(data, *length);
    if (r.u8() != 0x00) {
        lib_log(1, "Received unexpected Packet.(S_H Auth Format)\n");
        return 69;
    }
    // The first word is the session sequence number and the second the
    // session ID; the two messages name them the other way round, and
    // operators' log filters know these texts.
    if (r.u32le() != 0) {
        lib_log(1, "Received unexpected Packet.(S_H SessID)\n");
        return 69;
    }
    if (r.u32le() != 0) {
        lib_log(1, "Received unexpected Packet.(S_H SessSeqNum)\n");
        return 69;
    }
    const uint8_t message_length = r.u8();
    *used = 10;
    *length -= 10;
    if (message_length <= 7 || *length != message_length) {
        lib_log(1, "Invalid Payload Length.\n");
        return 66;
    }
    uint8_t completion_code = 0;
    uint32_t data_length = 0;
    if (Check_IPMIMessHead(r.here(), *length, expected, &completion_code, &data_length) != 0) {
        lib_log(1, "Error at IPMI Message Header.\n");
        return 66;
    }
    *used += 6;
    *length -= 7;
    return 0;
}

// A channel without IPMI v2.0 is no failure here: 0 with the flag set.
RMCPP_API int Check_GetAuthCapa_v15(const uint8_t *data, uint32_t length, uint8_t *not_supported,
                                    uint8_t *kg_status, uint8_t *per_msg_auth_status, uint8_t *user_auth_status)
{
    if (rmcpp::args::any_null(data, not_supported, kg_status, per_msg_auth_status, user_auth_status))
        return rmcpp::args::null_input();
    Reader r(data, length);
    const uint8_t completion_code = r.u8();
    if (completion_code != 0) {
        lib_log(3, "Unexpected Completion Code = %02xh\n", completion_code);
        return 67;
    }
    if (length != 9) {
        lib_log(3, "Invalid IPMI Respone Data Length = %d (expected 9)\n", static_cast<int>(length));
        return 68;
    }
    r.skip(1);  // channel number
    const uint8_t auth_type_support = r.u8();
    const uint8_t status = r.u8();
    const uint8_t extended = r.u8();

    if ((auth_type_support & 0x80) == 0) {
        lib_log(3, "IPMI v 2.0 is not supported.\n");
        *not_supported = 1;
        return 0;
    }
    *kg_status = status & 0x20;
    *per_msg_auth_status = status & 0x10;
    *user_auth_status = status & 0x08;
    if (extended & 0x02) return 0;
    lib_log(3, "channel not supports IPMI v2.0 connection.\n");
    *not_supported = 1;
    return 0;
}

RMCPP_API int GetAuthCapa_v15(RMCPp_SetupState *state, uint8_t *not_supported, uint8_t privilege)
{
    if (rmcpp::args::any_null(state, not_supported)) return rmcpp::args::null_input();
    const uint8_t rq_addr = rmcpp::load_setting(RMCPConnectSA);
    const IPMI_MsgHeader record = {kNetFnApp,     rq_addr,        kCmdGetChannelAuthCapabilities, 0, 1,
                                   kNetFnApp + 1, state->rs_addr, state->rs_lun};

    uint8_t request[400];
    uint32_t request_length = 0;
    if (Make_GetAuthCapa_v15(state, &record, privilege, request, sizeof request, &request_length) != 0) {
        lib_log(3, "Failed to make Get Authentication Capabilitties Request.\n\n");
        return 3;
    }

    uint8_t response[400];
    uint32_t response_length = 0;
    uint32_t payload_offset = 0;
    uint8_t status = 0;
    int r = RetryRoutine_RAKP(state, request, kRequestLength, response, sizeof response, &response_length, 0x00,
                              &payload_offset, &status, 0, &record, 0);
    if (r != 0) {
        lib_log(3, "Failed to do Get Authentication Capabilitties Request / Reponse.\n");
        return r;
    }

    // The checker left the length from the completion code up to, not
    // including, checksum 2, and the offset of the completion code.
    Reader rest(response, sizeof response);
    rest.skip(payload_offset);
    r = Check_GetAuthCapa_v15(rest.here(), response_length, not_supported, &state->kg_status,
                              &state->per_msg_auth_status, &state->user_auth_status);
    if (r != 0) {
        lib_log(3, "Invalid Data in Get Authentication Capabilitties Response.\n");
        return r;
    }
    return 0;
}

}  // extern "C"
