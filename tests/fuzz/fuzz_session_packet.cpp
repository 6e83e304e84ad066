// RMCP+ session packets as the console receives them: RMCP header, session
// header and trailer with the integrity code, the payload with decryption
// and the confidentiality pad, then the IPMI message header of the answer.
// The session's keys are fixed.
//
// Option byte 0:
//   bit 0  the session's integrity algorithm is HMAC-SHA1-96 (else none)
//   bit 1  its confidentiality algorithm is AES-CBC-128 (else none)
//   bit 2  build mode: the rest of the input is the payload, which this
//          target frames into a packet that carries the right session ID
//          and length, and, with bit 3, a trailer and a valid integrity
//          code, so the checks past the code are reached; with bit 4 the
//          payload is a 16-byte IV and clear text that is encrypted here
//          with the session's key, so decryption yields the fuzzer's bytes
//          (pad included). Without bit 2 the rest is the datagram as is.
//   bit 5  the caller's output buffer is small (16 bytes)
//   bit 6  build mode: options 2 and 3 are XORed into the trailer's pad
//          length and next header before the code is made
//   bit 7  the session's receive windows start from options 1 to 6 (the
//          highest number accepted, 32 bits, and the window's bits, 16),
//          and the sequence number in build mode is options 7 to 10
// Option byte 1 (without bit 7): the sequence number in build mode.
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include "fuzz_support.h"

namespace {

constexpr size_t kMaxDatagram = 65471 + 128;

fuzz::Bytes build_packet(fuzz::Bytes payload, uint8_t options, uint32_t sequence, uint8_t pad_length_xor,
                         uint8_t next_header_xor)
{
    const bool authenticated = options & 0x08;
    const bool encrypted = options & 0x10;
    if (encrypted) {
        payload.resize(payload.size() - payload.size() % 16);
        if (payload.size() >= 32)
            ConfidentialityAlgorithm(1, payload.data(), static_cast<uint32_t>(payload.size()), fuzz::kCipherKey,
                                     DIR_ENCRYPT_KEY);
    }
    if (payload.size() > 0xFFFF) payload.resize(0xFFFF);
    const uint8_t type = static_cast<uint8_t>((authenticated ? 0x40 : 0) | (encrypted ? 0x80 : 0));
    const uint32_t id = fuzz::kConsoleSessionId;
    const uint32_t n = payload.size();
    fuzz::Bytes p = {0x06, 0x00, 0xFF, 0x07, 0x06, type,
                     static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8), static_cast<uint8_t>(id >> 16),
                     static_cast<uint8_t>(id >> 24), static_cast<uint8_t>(sequence),
                     static_cast<uint8_t>(sequence >> 8), static_cast<uint8_t>(sequence >> 16),
                     static_cast<uint8_t>(sequence >> 24),
                     static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8)};
    p.insert(p.end(), payload.begin(), payload.end());
    if (!authenticated) return p;

    const uint32_t pad = (4 - (n + 14) % 4) % 4;
    p.insert(p.end(), pad, 0xFF);
    p.push_back(static_cast<uint8_t>(pad ^ pad_length_xor));
    p.push_back(static_cast<uint8_t>(0x07 ^ next_header_xor));
    unsigned char code[EVP_MAX_MD_SIZE];
    unsigned int code_length = 0;
    HMAC(EVP_sha1(), fuzz::kSik, sizeof fuzz::kSik, p.data() + 4, p.size() - 4, code, &code_length);
    p.insert(p.end(), code, code + 12);
    return p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t options = in.u8();
    RMCPp_Session session;
    fuzz::init_session(session, options & 1, (options >> 1) & 1);
    uint32_t sequence = 0;
    if (options & 0x80) {
        session.recv_seq_auth = session.recv_seq_unauth = in.u32le();
        session.recv_window_auth = session.recv_window_unauth = static_cast<uint16_t>(in.u8() | (in.u8() << 8));
        sequence = in.u32le();
    } else {
        sequence = in.u8();
    }
    const uint8_t pad_length_xor = (options & 0x40) ? in.u8() : 0;
    const uint8_t next_header_xor = (options & 0x40) ? in.u8() : 0;

    fuzz::Bytes datagram = in.take(kMaxDatagram);
    if (options & 0x04) datagram = build_packet(datagram, options, sequence, pad_length_xor, next_header_xor);

    uint32_t length = static_cast<uint32_t>(datagram.size());
    uint32_t header_length = 0;
    if (Check_RMCPHead(datagram.data(), &length, &header_length) != 0) return 0;
    uint8_t payload_type = 0;
    if (Check_IPMIHeadTail(&session, datagram.data() + 4, &length, &header_length, &payload_type) != 0) return 0;
    if (16 + static_cast<size_t>(length) > datagram.size()) __builtin_trap();

    fuzz::Bytes output((options & 0x20) ? 16 : 1024);
    uint32_t output_length = 0;
    uint32_t data_offset = 0;
    const int r = Check_IPMIPayload(&session, datagram.data() + 16, length, output.data(), &output_length,
                                    static_cast<uint32_t>(output.size()), &data_offset, payload_type);
    if (r != 0) return 0;
    if (output_length > output.size()) __builtin_trap();

    const fuzz::Bytes message(output.begin(), output.begin() + output_length);
    uint8_t completion_code = 0;
    uint32_t data_length = 0;
    Check_IPMIMessHead(message.data(), static_cast<uint32_t>(message.size()), &fuzz::kGetDeviceId,
                       &completion_code, &data_length);
    return 0;
}
