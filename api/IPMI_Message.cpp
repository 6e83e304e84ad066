// Message exchange on an open session: send a request, receive a response
// (waiting or not), a whole exchange with retries, a bridged response that
// arrives later, and Close Session. Every call that sends or receives ends
// by releasing a session that the packet layer found exhausted.
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "arguments.h"
#include "process_settings.h"
#include "rmcpp.h"
#include "session_options.h"
#include "wire.h"

namespace {

constexpr int kCompletionCodeMessage = 20020;
constexpr uint32_t kFirstTraceBytes = 40;
constexpr uint32_t kFurtherTraceBytes = 56;

int null_input()
{
    lib_log(3, "Null input data.\n");
    return 1;
}

// A caller's record without a session, or with a session record that the
// library never opened: either way there is no session to use or release.
bool no_session(const IPMI_SessionParam *param)
{
    return param->session == nullptr || rmcpp::args::never_opened(param->session);
}

void release_session(IPMI_SessionParam *param)
{
    rmcpp::ext::detach(param->session);
    close(param->session->socket_fd);
    std::free(param->session);
    param->session = nullptr;
}

// Releases the session if the packet layer has marked it exhausted.
void release_if_closed(IPMI_SessionParam *param, uint32_t *released)
{
    if (param->session != nullptr && param->session->closed) {
        release_session(param);
        *released = 1;
    }
}

bool valid_auth_option(int option)
{
    return option == 0 || option == 1 || option == 0x10 || option == 0x20 || option == 0x30;
}

// A response is considered only when its protection equals what the session
// negotiated; with per-message authentication on and an explicit option,
// only unprotected responses are expected.
uint8_t expected_payload_flags(const RMCPp_Session *s, int auth_option)
{
    uint8_t flags = 0;
    if (auth_option == 0 || s->per_msg_auth_status == 0) {
        if (s->integrity_alg != 0) flags |= RMCPP_SECURITY_AUTHENTICATED;
        if (s->confidentiality_alg != 0) flags |= RMCPP_SECURITY_ENCRYPTED;
    }
    return flags;
}

IPMI_MsgHeader expected_header(const uint8_t *request)
{
    rmcpp::wire::Reader r(request, 6);
    const uint8_t rs_addr = r.u8();
    const uint8_t netfn_lun = r.u8();
    r.skip(1);
    const uint8_t rq_addr = r.u8();
    const uint8_t seq_lun = r.u8();
    const uint8_t cmd = r.u8();
    IPMI_MsgHeader h;
    h.req_netfn = static_cast<uint8_t>(netfn_lun >> 2);
    h.rq_addr = rq_addr;
    h.cmd = cmd;
    h.rq_lun = static_cast<uint8_t>(seq_lun & 3);
    h.rq_seq = static_cast<uint8_t>(seq_lun >> 2);
    h.resp_netfn = static_cast<uint8_t>(h.req_netfn + 1);
    h.rs_addr = rs_addr;
    h.rs_lun = static_cast<uint8_t>(netfn_lun & 3);
    return h;
}

void append_hex(char *&p, const uint8_t *bytes, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i) p += std::sprintf(p, "%02x", bytes[i]);
}

// The completion code and the request go to the host trace: the first line
// (40 request bytes) through the host message catalogue, further lines of
// 56 bytes each straight to the trace sink.
void trace_completion_code(uint8_t code, const uint8_t *request, uint32_t request_length)
{
    const KivTraceRecord record = {2, 1, 0, 0};
    char line[2 * kFurtherTraceBytes + 16];
    char *p = line;
    p += std::sprintf(p, "CC=0x%02X:", code);
    const uint32_t first = request_length < kFirstTraceBytes ? request_length : kFirstTraceBytes;
    append_hex(p, request, first);
    char text[RMCPP_LMSG_TEXT_SIZE] = {};
    putKivTrace(0, &record, lmsg_getmsg(kCompletionCodeMessage, text, line));

    for (uint32_t done = first; done < request_length; done += kFurtherTraceBytes) {
        const uint32_t left = request_length - done;
        p = line;
        append_hex(p, request + done, left < kFurtherTraceBytes ? left : kFurtherTraceBytes);
        putKivTrace(0, &record, line);
    }
}

}  // namespace

extern "C" {

RMCPP_API int Send_IPMI_Message(IPMI_SessionParam *param, const uint8_t *request, uint32_t request_length,
                                int auth_option, uint32_t *released)
{
    if (released != nullptr) *released = 0;
    if (param == nullptr || request == nullptr || released == nullptr || no_session(param))
        return null_input();
    if (request_length <= 6) {
        lib_log(3, "Invalid Request Data Length.\n");
        return 1;
    }
    if (!valid_auth_option(auth_option)) {
        lib_log(3, "No specified auth_option.\n");
        return 1;
    }
    RMCPp_Session *s = param->session;
    s->auth_option = (s->per_msg_auth_status == 0 && (auth_option & 0xF0) == 0) ? 0 : static_cast<uint8_t>(auth_option);
    const int result = RMCPp_Send_Message(s, request, request_length);
    release_if_closed(param, released);
    if (result != 0) {
        lib_log(3, "Failed to do IPMI Message.\n");
        return result;
    }
    return 0;
}

RMCPP_API int Get_IPMI_Message(IPMI_SessionParam *param, uint8_t *response, uint32_t response_size,
                               uint32_t *response_length, uint16_t wait_sec, uint8_t *payload_flags,
                               uint32_t *released)
{
    if (released != nullptr) *released = 0;
    if (param == nullptr || response == nullptr || response_length == nullptr || payload_flags == nullptr ||
        released == nullptr || no_session(param))
        return null_input();
    struct timeval start;
    if (gettimeofday(&start, nullptr) != 0) {
        lib_log(3, "Failed to get start time.\n");
        return 3;
    }
    const struct timeval limit = {wait_sec, 0};
    const int result =
        RMCPp_Get_Message(param->session, response, response_length, response_size, &start, &limit, payload_flags);
    release_if_closed(param, released);
    if (result != 0) {
        lib_log(3, "Failed to do IPMI Message.\n");
        return result;
    }
    return 0;
}

RMCPP_API int Get_IPMI_Message_Nowait(IPMI_SessionParam *param, uint8_t *response, uint32_t response_size,
                                      uint32_t *response_length, uint32_t *released)
{
    if (released != nullptr) *released = 0;
    if (param == nullptr || response == nullptr || response_length == nullptr || released == nullptr ||
        no_session(param))
        return null_input();
    RMCPp_Session *s = param->session;
    // The next send repeats the protection of what was received; when
    // nothing was accepted the option stays as it was.
    uint8_t flags = s->auth_option;
    const int result = RMCPp_Get_Message_Nowait(s, response, response_length, response_size, &flags);
    s->auth_option = flags;
    release_if_closed(param, released);
    return result;
}

RMCPP_API int ipmi_recv(RMCPp_Session *session, const uint8_t *request, const struct timeval *start,
                        uint8_t wait_sec, uint8_t *response, uint16_t response_size, uint32_t *response_length,
                        uint8_t expected_flags)
{
    if (rmcpp::args::any_null(session, request, start, response, response_length)) return null_input();
    if (rmcpp::args::never_opened(session)) return null_input();
    const IPMI_MsgHeader expected = expected_header(request);
    const struct timeval limit = {wait_sec, 0};
    for (;;) {
        struct timeval left;
        if (ReadTimer(start, &limit, &left) != 0) return 7;
        // The packet layer measures the time left from the same start.
        uint8_t flags = 0;
        const int result =
            RMCPp_Get_Message(session, response, response_length, response_size, start, &limit, &flags);
        if (result != 0) return result;
        if (flags == expected_flags) {
            uint8_t completion_code = 0;
            uint32_t data_length = 0;
            if (Check_IPMIMessHead(response, *response_length, &expected, &completion_code, &data_length) == 0)
                return 0;
        }
        if (session->closed) return 5;
    }
}

RMCPP_API int IPMI_Message_IF_core(IPMI_SessionParam *param, const uint8_t *request, uint32_t request_length,
                                   uint8_t *response, uint32_t response_size, uint32_t *response_length,
                                   int auth_option, uint32_t *released, uint8_t attempts, uint8_t wait_sec)
{
    if (param == nullptr || request == nullptr || response == nullptr || response_length == nullptr ||
        released == nullptr || no_session(param))
        return null_input();
    const uint8_t expected_flags = expected_payload_flags(param->session, auth_option);
    for (uint8_t attempt = 0; attempt < attempts; ++attempt) {
        const int sent = Send_IPMI_Message(param, request, request_length, auth_option, released);
        if (sent != 0) return sent;
        if (*released) return 5;

        struct timeval start;
        if (gettimeofday(&start, nullptr) != 0) {
            lib_log(2, "Failed to get starting time.\n");
            continue;
        }
        const int result = ipmi_recv(param->session, request, &start, wait_sec, response,
                                     static_cast<uint16_t>(response_size), response_length, expected_flags);
        // Only an accepted response has been written to the buffer, and it
        // always holds its completion code (byte 6).
        if (result == 0) {
            rmcpp::wire::Reader r(response, *response_length);
            r.skip(6);
            const uint8_t completion_code = r.u8();
            if (r.ok() && completion_code != 0) trace_completion_code(completion_code, request, request_length);
        }
        if (param->session->closed) {
            release_session(param);
            *released = 1;
            return result;
        }
        *released = 0;
        if (result != 7) return result;
    }
    return 4;
}

RMCPP_API int IPMI_Message_IF(IPMI_SessionParam *param, const uint8_t *request, uint32_t request_length,
                              uint8_t *response, uint32_t response_size, uint32_t *response_length,
                              int auth_option, uint32_t *released, int attempts, int wait_sec)
{
    if (param == nullptr || request == nullptr || response == nullptr || response_length == nullptr ||
        released == nullptr || no_session(param))
        return null_input();
    return IPMI_Message_IF_core(param, request, request_length, response, response_size, response_length,
                                auth_option, released, static_cast<uint8_t>(attempts),
                                static_cast<uint8_t>(wait_sec));
}

// The request is the one whose answer comes back bridged, so the expected
// header describes the embedded message.
RMCPP_API int Get_IPMB_Response(IPMI_SessionParam *param, const uint8_t *request, uint32_t request_length,
                                uint8_t *response, uint32_t response_size, uint32_t *response_length,
                                uint32_t *released, uint8_t expected_flags, uint8_t wait_sec)
{
    if (released != nullptr) *released = 0;
    if (param == nullptr || request == nullptr || response == nullptr || response_length == nullptr ||
        released == nullptr || no_session(param))
        return null_input();
    if (request_length < 6) {
        lib_log(3, "Header size is small.\n");
        return 1;
    }
    struct timeval start;
    if (gettimeofday(&start, nullptr) != 0) {
        lib_log(3, "Failed to get starting time @get-ipmb.\n");
        return 3;
    }
    const int result = ipmi_recv(param->session, request, &start, wait_sec, response,
                                 static_cast<uint16_t>(response_size), response_length, expected_flags);
    release_if_closed(param, released);
    return result;
}

RMCPP_API int IPMI_CloseSession(IPMI_SessionParam *param)
{
    if (param == nullptr || no_session(param)) return null_input();

    uint8_t session_id[4];
    rmcpp::wire::Writer(session_id, sizeof session_id).u32le(param->session->bmc_session_id);
    const uint8_t rq_addr = rmcpp::load_setting(RMCPConnectSA);
    const IPMI_MsgHeader header = {6, rq_addr, 0x3C, 0, 1, 7, param->slave_address, param->lun};
    uint8_t request[20];
    int request_length = 0;
    MakeIPMIRequest(&header, session_id, sizeof session_id, request, sizeof request, &request_length);

    uint8_t response[20] = {};
    uint32_t response_length = 0;
    uint32_t released = 0;
    int result = IPMI_Message_IF(param, request, static_cast<uint32_t>(request_length), response, sizeof response,
                                 &response_length, 0, &released, 1, 1);
    if (result == 0 && response[6] != 0) {
        lib_log(3, "Error CompCode for Close Session.\n");
        result = 67;
    }
    // A session exhausted inside the exchange has been released there.
    if (!released && param->session != nullptr) release_session(param);
    return result;
}

}  // extern "C"
