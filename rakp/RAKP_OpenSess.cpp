// Open Session: proposes the remote console session ID, the requested
// maximum privilege and one authentication, integrity and confidentiality
// algorithm; learns the managed system's session ID, the privilege it grants
// and the algorithms it accepts. Also the check of the RMCP+ session header
// of every pre-session response (Open Session Response, RAKP 2, RAKP 4).
#include "arguments.h"
#include "RAKP_common.h"
#include "rmcpp.h"
#include "wire.h"

using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

namespace {

constexpr uint32_t kRequestLength = 48;
constexpr uint16_t kRequestPayloadLength = 32;
constexpr uint16_t kResponsePayloadLength = 36;
constexpr uint8_t kAuthenticationPayload = 0x00;
constexpr uint8_t kIntegrityPayload = 0x01;
constexpr uint8_t kConfidentialityPayload = 0x02;

// One algorithm proposal: payload type, two reserved bytes, length 8, the
// algorithm, three reserved bytes.
void write_algorithm_payload(Writer &w, uint8_t type, uint8_t algorithm)
{
    w.u8(type).u16le(0).u8(8).u8(algorithm).fill(0, 3);
}

// The algorithm byte is stored before the payload is judged, so a faulty
// payload still leaves its algorithm in the state.
bool read_algorithm_payload(Reader &r, uint8_t type, uint8_t *algorithm)
{
    const uint8_t got_type = r.u8();
    const bool reserved1 = r.zeros(2);
    const uint8_t length = r.u8();
    *algorithm = r.u8();
    const bool reserved2 = r.zeros(3);
    return got_type == type && reserved1 && length == 8 && reserved2;
}

}  // namespace

extern "C" {

RMCPP_API int Make_OpenSessRequest(RMCPp_SetupState *state, uint8_t role, uint8_t tag, uint8_t *buffer,
                                   uint32_t buffer_size, uint32_t *length_out)
{
    if (rmcpp::args::any_null(state, buffer, length_out)) return rmcpp::args::null_input();
    uint32_t header_length = 0;
    if (rmcpp::rakp::start_request(buffer, buffer_size, kRequestLength, header_length) != 0) return 3;
    *length_out = kRequestLength;

    Writer w(buffer + header_length, buffer_size - header_length);
    // Session header: format RMCP+, payload type Open Session Request (not
    // encrypted, not authenticated), session ID 0, sequence number 0.
    w.u8(0x06).u8(0x10).u32le(0).u32le(0).u16le(kRequestPayloadLength);
    w.u8(tag).u8(role).u16le(0).u32le(state->console_session_id);
    write_algorithm_payload(w, kAuthenticationPayload, state->req_auth_alg);
    write_algorithm_payload(w, kIntegrityPayload, state->req_integrity_alg);
    write_algorithm_payload(w, kConfidentialityPayload, state->req_confidentiality_alg);
    return 0;
}

// Every failure is 69: a datagram whose session header does not fit is not
// the awaited response, and the wait goes on.
RMCPP_API int Check_IPMISessHead_RAKP(const uint8_t *data, uint32_t length, uint32_t *header_length,
                                      uint8_t payload_type, uint16_t *payload_length)
{
    if (rmcpp::args::any_null(data, header_length, payload_length)) return rmcpp::args::null_input();
    if (length < 12) {
        lib_log(1, "Received unexpected Packet.(S_H length)\n");
        return 69;
    }
    Reader r(data, length);
    if (r.u8() != 0x06) {
        lib_log(1, "Received unexpected Packet.(S_H Auth Format)\n");
        return 69;
    }
    // The whole byte: a set encrypted or authenticated bit is a mismatch.
    if (r.u8() != payload_type) {
        lib_log(1, "Received unexpected Packet.(S_H Payload Type)\n");
        return 69;
    }
    if (!r.zeros(4)) {
        lib_log(1, "Received unexpected Packet.(S_H SessID)\n");
        return 69;
    }
    if (!r.zeros(4)) {
        lib_log(1, "Received unexpected Packet.(S_H SessSeqNum)\n");
        return 69;
    }
    *payload_length = r.u16le();
    *header_length = 12;
    if (12u + *payload_length != length) {
        lib_log(1, "Received Packet with Invalid Data Length.\n");
        return 69;
    }
    return 0;
}

// Once the session header and lengths have passed, every fault ends the
// phase; only a session header that does not fit lets the wait go on.
RMCPP_API int Check_OpenSessResponse(RMCPp_SetupState *state, const uint8_t *data, uint32_t length, uint8_t tag,
                                     uint32_t *used)
{
    if (rmcpp::args::any_null(state, data, used)) return rmcpp::args::null_input();
    uint32_t header_length = 0;
    uint16_t payload_length = 0;
    const int r = Check_IPMISessHead_RAKP(data, length, &header_length, 0x11, &payload_length);
    if (r != 0) {
        lib_log(3, "Check at IPMI Session Header & Tailer.\n");
        return r;
    }
    if (payload_length <= 7) {
        lib_log(3, "Received Packet with number of Invalid Payload Length.\n");
        return 66;
    }
    if (payload_length + 12u > length) {
        lib_log(3, "Received Packet with Invalid Payload Length.\n");
        return 66;
    }
    *used = 12;

    Reader p(data, length);
    p.skip(12);
    if (p.u8() != tag) {
        lib_log(3, "Received Packet with Invalid Message Tag.\n");
        return 66;
    }
    const uint8_t status = p.u8();
    if (status != 0) {
        PrintRMCPStatusCode(status);
        lib_log(3, "Received Packet with Error Status Code.\n");
        return 65;
    }
    p.skip(1);  // maximum privilege granted, read by OpenSession_Req_Resp
    if (p.u8() != 0) {
        lib_log(3, "Received Packet with Invalid value in Reserved field.\n");
        return 66;
    }
    if (p.u32le() != state->console_session_id) {
        lib_log(3, "Received Packet with Invalid RC Session ID.\n");
        return 66;
    }
    if (payload_length != kResponsePayloadLength) {
        lib_log(3, "Received Packet with number of Invalid Payload Length.\n");
        return 66;
    }
    state->bmc_session_id = p.u32le();
    if (!read_algorithm_payload(p, kAuthenticationPayload, &state->auth_alg)) {
        lib_log(3, "Received Packet with Invalid data in Authentication Payload.\n");
        return 66;
    }
    if (!read_algorithm_payload(p, kIntegrityPayload, &state->integrity_alg)) {
        lib_log(3, "Received Packet with Invalid data in Integrity Payload.\n");
        return 66;
    }
    if (!read_algorithm_payload(p, kConfidentialityPayload, &state->confidentiality_alg)) {
        lib_log(3, "Received Packet with Invalid data in Confidentialiry Payload.\n");
        return 66;
    }
    return 0;
}

RMCPP_API int OpenSession_Req_Resp(RMCPp_SetupState *state, uint8_t role, uint8_t *granted, uint8_t tag,
                                   uint8_t *rakp_status)
{
    // The Open Session checker does not write the RMCP+ status: it may be null.
    if (rmcpp::args::any_null(state, granted)) return rmcpp::args::null_input();
    uint8_t request[400];
    uint32_t request_length = 0;
    if (Make_OpenSessRequest(state, role, tag, request, sizeof request, &request_length) != 0) {
        lib_log(3, "Failed to make request Data.\n");
        return 3;
    }

    uint8_t response[400];
    uint32_t response_length = 0;
    uint32_t payload_offset = 0;
    const int r = RetryRoutine_RAKP(state, request, kRequestLength, response, sizeof response, &response_length,
                                    0x10, &payload_offset, rakp_status, 0, nullptr, tag);
    if (r != 0) {
        lib_log(3, "Failed to do Open Session Request / Response.\n");
        return r;
    }

    Reader p(response, sizeof response);
    p.skip(payload_offset + 2);
    *granted = p.u8();
    return 0;
}

}  // extern "C"
