// RMCP header writer and the library's one HMAC entry point.
#include <openssl/crypto.h>

#include <cstdlib>
#include <cstring>

#include "arguments.h"
#include "hmac.h"
#include "rmcpp.h"
#include "session_options.h"
#include "wire.h"

namespace {

// One keyed HMAC per thread and digest. Each code re-keys it only when the
// key changes: a session computes every integrity code under the same key,
// and keying costs two hash blocks.
class ThreadHmac {
public:
    explicit ThreadHmac(rmcpp::Digest digest) : digest_(digest) {}
    ~ThreadHmac() { OPENSSL_cleanse(key_, sizeof key_); }
    ThreadHmac(const ThreadHmac &) = delete;
    ThreadHmac &operator=(const ThreadHmac &) = delete;

    void compute(const uint8_t *key, uint32_t key_length, const uint8_t *data, uint32_t data_length,
                 uint8_t *output)
    {
        const bool same_key = remembered_ && key_length == key_length_ &&
                              (key_length == 0 || std::memcmp(key, key_, key_length) == 0);
        if (!same_key) {
            hmac_.set(digest_, key, key_length);
            remembered_ = key_length <= sizeof key_;
            if (remembered_) {
                if (key_length != 0) std::memcpy(key_, key, key_length);
                key_length_ = key_length;
            }
        }
        hmac_.code(data, data_length, output);
    }

private:
    rmcpp::Digest digest_;
    rmcpp::HmacKey hmac_;
    uint8_t key_[64] = {};
    uint32_t key_length_ = 0;
    bool remembered_ = false;
};

void hmac_sha1(const uint8_t *key, uint32_t key_length, const uint8_t *data, uint32_t data_length,
               uint8_t *output, uint32_t *output_length)
{
    thread_local ThreadHmac hmac(rmcpp::Digest::Sha1);
    hmac.compute(key, key_length, data, data_length, output);
    *output_length = 20;
}

}  // namespace

namespace rmcpp {

bool hmac_sha256(const uint8_t *key, uint32_t key_length, const uint8_t *data, uint32_t data_length,
                 uint8_t output[32])
{
    thread_local ThreadHmac hmac(Digest::Sha256);
    hmac.compute(key, key_length, data, data_length, output);
    return true;
}

}  // namespace rmcpp

extern "C" {

RMCPP_API int MakeRMCPHeader(uint8_t *buffer, const uint32_t *available, uint32_t *written)
{
    if (rmcpp::args::any_null(buffer, available, written)) return rmcpp::args::null_input();
    if (*available < 4) {
        lib_log(3, "Insufficinet size of Data [Make RMCP Header]\n");
        return 1;
    }
    rmcpp::wire::Writer w(buffer, *available);
    w.u8(0x06).u8(0x00).u8(0xFF).u8(0x07);
    *written = 4;
    return 0;
}

RMCPP_API int CalculateAuthCode(uint8_t algorithm, const uint8_t *data, uint32_t data_length, const uint8_t *key,
                                uint32_t key_length, uint8_t *output, uint32_t *output_length)
{
    if (output == nullptr) return rmcpp::args::null_input();
    switch (algorithm) {
    case 0:
        std::memset(output, 0, 20);
        return 0;
    case 1:
        // Algorithm 0 reads neither the data nor the key.
        if (output_length == nullptr || (data == nullptr && data_length != 0) || (key == nullptr && key_length != 0))
            return rmcpp::args::null_input();
        hmac_sha1(key, key_length, data, data_length, output, output_length);
        return 0;
    default:
        lib_log(3, "Could not calculate Auth Code because of Not-supported-Auth-type.\n");
        return 1;
    }
}

}  // extern "C"

// ------------------------------------------------------------------ outbound RMCP+ packet

namespace {

constexpr uint8_t kPayloadAuthenticated = 0x40;
constexpr uint8_t kPayloadEncrypted = 0x80;
constexpr uint32_t kMaxRequestData = 65471;

// Every packet repeats the protection of the one sent before it; the first
// of a session takes it from the negotiated algorithms. auth_option holds
// the security bits of the last packet sent (or those asked for the next).
bool sends_authenticated(const RMCPp_Session *s)
{
    const uint8_t last = s->auth_option;
    return (last == 0 && s->integrity_alg != 0) || (last & RMCPP_SECURITY_AUTHENTICATED) != 0;
}

bool sends_encrypted(const RMCPp_Session *s)
{
    const uint8_t last = s->auth_option;
    return s->confidentiality_alg != 0 && (last == 0 || (last & RMCPP_SECURITY_ENCRYPTED) != 0);
}

int insufficient()
{
    lib_log(3, "Insufficient Data Size.\n");
    return 1;
}

}  // namespace

extern "C" {

RMCPP_API int MakeRMCP_pluse_Packet(RMCPp_Session *session, const uint8_t *data, uint32_t data_length,
                                    uint8_t *buffer, uint32_t buffer_size, uint32_t *packet_length)
{
    if (rmcpp::args::any_null(session, buffer, packet_length) || (data == nullptr && data_length != 0))
        return rmcpp::args::null_input();
    uint32_t room = buffer_size;
    uint32_t written = 0;
    const int header = MakeRMCPHeader(buffer, &room, &written);
    if (header != 0) {
        lib_log(3, "Failed to Make RMCP Header.\n");
        return header;
    }
    room -= 4;
    if (room < 12) return insufficient();

    const bool authenticated = sends_authenticated(session);
    const bool encrypted = sends_encrypted(session);
    const rmcpp::ext::Attached attached = rmcpp::ext::attached(session);
    uint8_t payload_type = 0x00;
    if (authenticated) payload_type |= kPayloadAuthenticated;
    if (encrypted) payload_type |= kPayloadEncrypted;

    // Offsets of this writer count from the authentication type byte.
    rmcpp::wire::Writer w(buffer + 4, room);
    w.u8(0x06).u8(payload_type).u32le(session->bmc_session_id);
    w.u32le(authenticated ? session->send_seq_auth : session->send_seq_unauth);
    w.u16le(0);
    room -= 12;

    if (encrypted) {
        if (session->confidentiality_alg != 1) {
            lib_log(3, "Type %02x is Not supported Confidentiality algorithm.\n", session->confidentiality_alg);
            return 1;
        }
        if (room < 16) return insufficient();
        uint8_t iv[16];
        if (rmcpp::ext::packet_random(attached.extras, iv) != 0) {
            lib_log(3, "Failed to make Confidentiality Header.\n");
            return 1;
        }
        w.bytes(iv, sizeof iv);
        room -= 16;
    }

    if (room < data_length) return insufficient();
    w.bytes(data, data_length);
    room -= data_length;

    uint32_t payload_length = data_length;
    if (encrypted) {
        if (session->confidentiality_alg != 1) {
            lib_log(3, "Type %02x is Not supported Confidentiality algorithm.\n", session->confidentiality_alg);
            return 1;
        }
        const uint32_t pad = (16 - (16 + data_length + 1) % 16) % 16;
        if (pad + 1 > room) return insufficient();
        for (uint32_t i = 1; i <= pad; ++i) w.u8(static_cast<uint8_t>(i));
        w.u8(static_cast<uint8_t>(pad));
        room -= pad + 1;
        payload_length = 16 + data_length + pad + 1;
        const int sealed =
            attached.keys != nullptr
                ? attached.keys->confidentiality(buffer + 16, payload_length, 0)
                : ConfidentialityAlgorithm(session->confidentiality_alg, buffer + 16, payload_length,
                                           session->cipher_key, 0);
        if (sealed != 0) {
            lib_log(3, "Failed to encrypt data.\n");
            return 1;
        }
    }
    w.patch_u16le(10, static_cast<uint16_t>(payload_length));

    const uint8_t last = session->auth_option;
    if (last != 0 && (last & RMCPP_SECURITY_AUTHENTICATED) == 0) {
        *packet_length = static_cast<uint32_t>(4 + w.size());
        return 0;
    }

    if (session->integrity_alg == 1) {
        const uint32_t pad = (4 - (12 + payload_length + 2) % 4) % 4;
        if (pad + 14 > room) return insufficient();
        w.fill(0xFF, pad).u8(static_cast<uint8_t>(pad)).u8(0x07);
        uint8_t code[32];
        uint32_t code_length = 0;
        if (attached.keys != nullptr) {
            if (attached.keys->integrity_code(buffer + 4, static_cast<uint32_t>(w.size()), code)) code_length = 20;
        } else if (CalculateAuthCode(1, buffer + 4, static_cast<uint32_t>(w.size()), session->sik, 20, code,
                                     &code_length) != 0) {
            lib_log(3, "Failed to generate Integrity value.\n");
            return 1;
        }
        if (code_length != 20) {
            lib_log(3, "Invalid length of generated Integrity value.\n");
            return 1;
        }
        w.bytes(code, 12);
    }
    // HMAC-SHA256-128 under K1, for sessions of suites 16 and 17.
    const rmcpp::ext::SessionExtras *extras =
        session->integrity_alg == rmcpp::ext::kHmacSha256_128 ? attached.extras : nullptr;
    if (extras != nullptr) {
        const uint32_t pad = (4 - (12 + payload_length + 2) % 4) % 4;
        if (pad + 18 > room) return insufficient();
        w.fill(0xFF, pad).u8(static_cast<uint8_t>(pad)).u8(0x07);
        uint8_t code[32];
        const bool made = attached.keys != nullptr
                              ? attached.keys->integrity_code(buffer + 4, static_cast<uint32_t>(w.size()), code)
                              : rmcpp::hmac_sha256(extras->integrity_key, sizeof extras->integrity_key, buffer + 4,
                                                   static_cast<uint32_t>(w.size()), code);
        if (!made) {
            lib_log(3, "Failed to generate Integrity value.\n");
            return 1;
        }
        w.bytes(code, 16);
    } else if (session->integrity_alg > 1) {
        lib_log(3, "This program not support Integrity algorithm.\n");
        return 1;
    }
    *packet_length = static_cast<uint32_t>(4 + w.size());
    return 0;
}

RMCPP_API int RMCPp_Send_Message(RMCPp_Session *session, const uint8_t *data, uint32_t data_length)
{
    if (session == nullptr || (data == nullptr && data_length != 0) || rmcpp::args::never_opened(session))
        return rmcpp::args::null_input();
    if (session->closed) return 5;
    if (data_length > kMaxRequestData) {
        lib_log(3, "Request data size is over lmitation(%d).\n", static_cast<int>(kMaxRequestData));
        return 2;
    }
    const uint32_t size = data_length + 128;
    auto *packet = static_cast<uint8_t *>(std::malloc(size));
    if (packet == nullptr) {
        lib_log(3, "Failed to allocate memory for request packet.\n");
        return 2;
    }
    uint32_t length = 0;
    if (MakeRMCP_pluse_Packet(session, data, data_length, packet, size, &length) != 0) {
        lib_log(3, "Failed to make RMCP+ packet.\n");
        std::free(packet);
        return 3;
    }
    if (Send_RMCP(session->socket_fd, packet, length, 0) != 0) {
        std::free(packet);
        return 8;
    }

    if (sends_authenticated(session))
        ++session->send_seq_auth;
    else
        ++session->send_seq_unauth;
    // The packet that wrapped a counter has gone out; the session is spent.
    if (session->send_seq_auth == 0 || session->send_seq_unauth == 0) session->closed = 1;

    rmcpp::wire::Reader r(packet, length);
    r.skip(5);
    session->auth_option = static_cast<uint8_t>((r.u8() & 0xC0) >> 2);
    std::free(packet);
    return 0;
}

}  // extern "C"
