// Checks of received RMCP+ datagrams.
#include <cstdint>
#include <cstdlib>

#include "arguments.h"
#include "rmcpp.h"
#include "session_options.h"
#include "wire.h"

extern "C" {

// Every IPMI datagram opens with RMCP version 6, a reserved zero, sequence
// number 0xFF (no acknowledge) and class 7 (IPMI).
RMCPP_API int Check_RMCPHead(const uint8_t *packet, uint32_t *length, uint32_t *header_length)
{
    if (rmcpp::args::any_null(packet, length, header_length)) return rmcpp::args::null_input();
    if (*length < 4) {
        lib_log(1, "Received Unexpected Packet.(R_H length)\n");
        return 1;
    }
    rmcpp::wire::Reader r(packet, *length);
    if (r.u8() != 0x06) {
        lib_log(1, "Received Unexpected Packet.(R_H Version)\n");
        return 1;
    }
    if (r.u8() != 0x00) {
        lib_log(1, "Received Unexpected Packet.(R_H Reserved)\n");
        return 1;
    }
    if (r.u8() != 0xFF) {
        lib_log(1, "Received Unexpected Packet.(R_H Seq)\n");
        return 1;
    }
    if (r.u8() != 0x07) {
        lib_log(1, "Received Unexpected Packet.(R_H Class)\n");
        return 1;
    }
    *header_length = 4;
    *length -= 4;
    return 0;
}

}  // extern "C"

// ------------------------------------------------------------------ RMCP+ session packets

namespace {

constexpr uint8_t kPayloadAuthenticated = 0x40;
constexpr uint8_t kPayloadEncrypted = 0x80;
constexpr uint32_t kMaxResponseData = 65471;

int reject(const char *message)
{
    lib_log(1, "%s", message);
    return 1;
}

uint8_t security_bits_of(uint8_t payload_type) { return static_cast<uint8_t>((payload_type & 0xC0) >> 2); }

// A receive buffer with room for the session header and trailer around the
// largest payload the caller can take.
uint32_t receive_buffer_size(uint32_t output_size)
{
    return (output_size > kMaxResponseData ? kMaxResponseData : output_size) + 128;
}

// The trailer's pad bytes, pad length and next header. Checked only after
// the window has moved.
int check_trailer(const uint8_t *trailer, uint32_t pad)
{
    rmcpp::wire::Reader r(trailer, pad + 2);
    for (uint32_t i = 0; i < pad; ++i)
        if (r.u8() != 0xFF) return reject("Received Unexpected Packet.(S_T Pad value)\n");
    if (r.u8() != pad) return reject("Received Unexpected Packet.(S_T Pad Length)\n");
    if (r.u8() != 0x07) return reject("Received Unexpected Packet.(S_T Next Header)\n");
    return 0;
}

}  // namespace

extern "C" {

// Up to 15 numbers ahead of the highest accepted one and up to 16 behind it
// are accepted, each once. Authenticated and unauthenticated packets keep
// separate windows.
RMCPP_API int CheckSessSeqNum(RMCPp_Session *session, uint32_t sequence_number, uint8_t payload_type)
{
    if (session == nullptr) return rmcpp::args::null_input();
    const bool authenticated = (payload_type & kPayloadAuthenticated) != 0;
    uint32_t &highest = authenticated ? session->recv_seq_auth : session->recv_seq_unauth;
    uint16_t &window = authenticated ? session->recv_window_auth : session->recv_window_unauth;
    const uint32_t s = sequence_number;

    if (s > highest) {
        if (highest <= UINT32_MAX - 15 && s > highest + 15) return 1;
        uint32_t bits = (static_cast<uint32_t>(window) >> 1) | 0x8000u;
        const uint32_t ahead = s - highest;
        if (ahead > 1) bits = ahead - 1 >= 32 ? 0 : bits >> (ahead - 1);
        window = static_cast<uint16_t>(bits);
        highest = s;
        if (s == UINT32_MAX) session->closed = 1;
        return 0;
    }
    if (s == highest) return 1;
    if (s <= UINT32_MAX - 16 && highest > s + 16) return 1;
    const uint32_t bit = 16 - (highest - s);
    if (window & (1u << bit)) return 1;
    window = static_cast<uint16_t>(window | (1u << bit));
    return 0;
}

// The integrity code is verified before the session ID and the sequence
// number are looked at, so a forged packet cannot move the window.
RMCPP_API int Check_IPMIHeadTail(RMCPp_Session *session, const uint8_t *packet, uint32_t *length,
                                 uint32_t *header_length, uint8_t *payload_type)
{
    if (rmcpp::args::any_null(session, packet, length, header_length, payload_type)) return rmcpp::args::null_input();
    const uint32_t total = *length;
    if (total < 12) return reject("Received Unexpected Packet.(S_H length)\n");

    rmcpp::wire::Reader header(packet, 12);
    const uint8_t auth_format = header.u8();
    const uint8_t type = header.u8();
    const uint32_t session_id = header.u32le();
    const uint32_t sequence = header.u32le();
    const uint32_t payload_length = header.u16le();

    if (payload_length + 12 > total) return reject("Received Invalid Packet.(S_H Payload length)\n");
    *payload_type = type;

    const bool authenticated = (type & kPayloadAuthenticated) != 0;
    uint32_t pad = 0;
    if (authenticated) {
        // HMAC-SHA256-128 (16 bytes under K1) for sessions of suites 16 and 17.
        const rmcpp::ext::Attached attached = rmcpp::ext::attached(session);
        const rmcpp::ext::SessionExtras *extras =
            session->integrity_alg == rmcpp::ext::kHmacSha256_128 ? attached.extras : nullptr;
        if (session->integrity_alg != 1 && extras == nullptr) return reject("Unsupported Integrity Algorithm.\n");
        const uint32_t code_size = extras != nullptr ? 16 : 12;
        pad = (4 - (payload_length + 14) % 4) % 4;
        const uint32_t covered = payload_length + 14 + pad;
        if (total != covered + code_size) return reject("Received Unexpected Packet.(S_T Payload length)\n");
        uint8_t code[32];
        uint32_t code_length = 0;
        bool computed;
        if (attached.keys != nullptr)
            computed = attached.keys->integrity_code(packet, covered, code);
        else if (extras != nullptr)
            computed = rmcpp::hmac_sha256(extras->integrity_key, sizeof extras->integrity_key, packet, covered, code);
        else
            computed = CalculateAuthCode(session->integrity_alg, packet, covered, session->sik, 20, code,
                                         &code_length) == 0 &&
                       code_length == 20;
        if (!computed) {
            lib_log(3, "Failed to calculate Integrity code.\n");
            return 1;
        }
        rmcpp::wire::Reader trailer_code(packet + covered, code_size);
        for (uint32_t i = 0; i < code_size; ++i)
            if (trailer_code.u8() != code[i]) return reject("Invalid Integrity Code in received packet.\n");
    } else if (total != payload_length + 12) {
        lib_log(3, "Received Invalid Packet.(S_H Payload length)\n");
        return 1;
    }

    if (auth_format != 0x06) return reject("Received Unexpected Packet.(S_H Auth Format)\n");
    // Only the protection bits are judged; the payload type proper is not.
    if ((type & kPayloadEncrypted) != 0 && session->confidentiality_alg != 1)
        return reject("Received Unexpected Packet.(S_H Payload Type)\n");
    if (session_id != session->console_session_id) return reject("Received Unexpected Packet.(S_H SessID)\n");
    if (CheckSessSeqNum(session, sequence, type) != 0)
        return reject("Received Unexpected Packet.(S_H SessSeqNum)\n");

    *header_length = 12;
    *length = payload_length;
    if (authenticated) return check_trailer(packet + 12 + payload_length, pad);
    return 0;
}

RMCPP_API int Check_IPMIPayload(RMCPp_Session *session, uint8_t *payload, uint32_t length, uint8_t *output,
                                uint32_t *output_length, uint32_t output_size, uint32_t *data_offset,
                                uint8_t payload_type)
{
    if (rmcpp::args::any_null(session, payload, output, output_length, data_offset)) return rmcpp::args::null_input();
    *data_offset = 0;
    uint32_t data_length = length;
    if ((payload_type & kPayloadEncrypted) != 0) {
        if (session->confidentiality_alg != 1) {
            lib_log(1, "Type %02x is Not supported Confidentiality Algorithm.\n", session->confidentiality_alg);
            return 1;
        }
        if (length < 32) {
            lib_log(1, "Invalid Payload Data Length = %d (expected > 32).\n", static_cast<int>(length));
            return 1;
        }
        if (length % 16 != 0) {
            lib_log(1, "Invalid Payload Data Length = %d (expected multiple 16 Bytes).\n", static_cast<int>(length));
            return 1;
        }
        rmcpp::keys::PacketKeys *keys = rmcpp::ext::attached(session).keys;
        const int opened = keys != nullptr
                               ? keys->confidentiality(payload, length, 1)
                               : ConfidentialityAlgorithm(session->confidentiality_alg, payload, length,
                                                          session->cipher_key, 1);
        if (opened != 0) {
            lib_log(3, "Failed to decrypt data.\n");
            return 1;
        }
        *data_offset = 16;

        rmcpp::wire::Reader last(payload + length - 1, 1);
        const uint8_t pad = last.u8();
        if (pad >= 16) {
            lib_log(1, "Invalid value = %02x (expected < 0F) in [Confidentiality Pad Length Field].\n", pad);
            return 1;
        }
        data_length = length - pad - 17;
        rmcpp::wire::Reader pad_bytes(payload + 16 + data_length, pad);
        for (uint8_t expected = 1; expected <= pad; ++expected) {
            const uint8_t found = pad_bytes.u8();
            if (found != expected) {
                lib_log(1, "Invalid confidentiality padding data %02xh (expexted %02xh).\n", found, expected);
                return 1;
            }
        }
    }

    *output_length = data_length;
    if (data_length > output_size) {
        lib_log(3, "Insufficient output buffer size.\n");
        return 6;
    }
    rmcpp::wire::Reader data(payload + *data_offset, data_length);
    if (data_length != 0) data.bytes(output, data_length);
    return 0;
}

}  // extern "C"

// ------------------------------------------------------------------ receiving

namespace {

enum class Step { Accepted, BadRmcpHeader, BadSessionHeader, BadPayload, OutputTooSmall };

// Runs one received datagram through every check in order.
Step check_datagram(RMCPp_Session *session, uint8_t *datagram, uint32_t length, uint8_t *output,
                    uint32_t *output_length, uint32_t output_size, uint8_t *security_bits)
{
    uint32_t header_length = 0;
    if (Check_RMCPHead(datagram, &length, &header_length) != 0) {
        lib_log(1, "Invalid RMCP Header.\n");
        return Step::BadRmcpHeader;
    }
    uint8_t payload_type = 0;
    if (Check_IPMIHeadTail(session, datagram + 4, &length, &header_length, &payload_type) != 0) {
        lib_log(1, "Invalid IPMI Session Header or Trailer.\n");
        return Step::BadSessionHeader;
    }
    uint32_t data_offset = 0;
    const int payload = Check_IPMIPayload(session, datagram + 16, length, output, output_length, output_size,
                                          &data_offset, payload_type);
    if (payload == 6) return Step::OutputTooSmall;
    if (payload != 0) {
        lib_log(1, "Invalid Payload data.\n");
        return Step::BadPayload;
    }
    *security_bits = security_bits_of(payload_type);
    return Step::Accepted;
}

// A datagram longer than the receive buffer has been dropped whole by
// Receive_RMCP; it counts as a rejected packet.
void oversize(uint32_t length, uint32_t size)
{
    lib_log(1, "Received packet of %u bytes is longer than the receive buffer (%u bytes).\n", length, size);
}

}  // namespace

extern "C" {

// Rejected datagrams are skipped until the time is up; only the timer, a
// socket error, a spent session or a too-small output end the wait early.
RMCPP_API int RMCPp_Get_Message(RMCPp_Session *session, uint8_t *output, uint32_t *output_length,
                                uint32_t output_size, const struct timeval *start, const struct timeval *timeout,
                                uint8_t *security_bits)
{
    if (rmcpp::args::any_null(session, output, output_length, start, timeout, security_bits) ||
        rmcpp::args::never_opened(session))
        return rmcpp::args::null_input();
    const uint32_t size = receive_buffer_size(output_size);
    auto *datagram = static_cast<uint8_t *>(std::malloc(size));
    if (datagram == nullptr) {
        lib_log(3, "Failed to allocate memory for response packet.\n");
        return 2;
    }
    struct timeval remaining = *timeout;
    int result = 0;
    for (;;) {
        if (ReadTimer(start, timeout, &remaining) != 0) {
            result = 7;
            break;
        }
        uint32_t length = size;
        const int received = Receive_RMCP(session->socket_fd, datagram, &length, 0, &remaining);
        if (received == 2 && length > size) {
            oversize(length, size);
            continue;
        }
        if (received != 0) {
            result = received == 1 ? 7 : 9;
            break;
        }
        const Step step =
            check_datagram(session, datagram, length, output, output_length, output_size, security_bits);
        if (step == Step::Accepted) {
            result = 0;
            break;
        }
        if (step == Step::OutputTooSmall) {
            result = 6;
            break;
        }
        if (step != Step::BadRmcpHeader && session->closed) {
            result = 5;
            break;
        }
    }
    std::free(datagram);
    return result;
}

RMCPP_API int RMCPp_Get_Message_Nowait(RMCPp_Session *session, uint8_t *output, uint32_t *output_length,
                                       uint32_t output_size, uint8_t *security_bits)
{
    if (rmcpp::args::any_null(session, output, output_length, security_bits) || rmcpp::args::never_opened(session))
        return rmcpp::args::null_input();
    const uint32_t size = receive_buffer_size(output_size);
    auto *datagram = static_cast<uint8_t *>(std::malloc(size));
    if (datagram == nullptr) {
        lib_log(3, "Failed to allocate memory for response packet.\n");
        return 2;
    }
    int result = 0;
    uint32_t length = size;
    const struct timeval no_wait = {0, 0};
    const int received = Receive_RMCP(session->socket_fd, datagram, &length, 0, &no_wait);
    if (received == 2 && length > size) {
        oversize(length, size);
        result = 1;
    } else if (received != 0) {
        result = received == 1 ? 7 : 9;
    } else {
        switch (check_datagram(session, datagram, length, output, output_length, output_size, security_bits)) {
        case Step::Accepted: result = 0; break;
        case Step::BadRmcpHeader: result = 1; break;
        case Step::BadSessionHeader:
        case Step::BadPayload: result = 5; break;
        case Step::OutputTooSmall: result = 6; break;
        }
    }
    std::free(datagram);
    return result;
}

}  // extern "C"
