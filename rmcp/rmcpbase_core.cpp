// RMCP header writer and the library's one HMAC entry point.
#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <cstring>

#include "rmcpp.h"
#include "wire.h"

namespace {

// The HMAC implementation is fetched once per process; fetching is costly
// next to one HMAC-SHA1 over a packet.
EVP_MAC *hmac_algorithm()
{
    static EVP_MAC *mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    return mac;
}

void hmac_sha1(const uint8_t *key, uint32_t key_length, const uint8_t *data, uint32_t data_length,
               uint8_t *output, uint32_t *output_length)
{
    // HMAC pads its key with zeros to the block size, so an empty key and a
    // single zero byte are the same key; the latter keeps OpenSSL from
    // refusing a zero-length key.
    static const uint8_t zero_key[1] = {0};
    if (key_length == 0) {
        key = zero_key;
        key_length = 1;
    }
    char digest[] = "SHA1";
    OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                           OSSL_PARAM_construct_end()};
    EVP_MAC_CTX *ctx = EVP_MAC_CTX_new(hmac_algorithm());
    size_t written = 0;
    if (ctx && EVP_MAC_init(ctx, key, key_length, params) && EVP_MAC_update(ctx, data, data_length) &&
        EVP_MAC_final(ctx, output, &written, 20))
        *output_length = static_cast<uint32_t>(written);
    EVP_MAC_CTX_free(ctx);
}

}  // namespace

extern "C" {

RMCPP_API int MakeRMCPHeader(uint8_t *buffer, const uint32_t *available, uint32_t *written)
{
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
    switch (algorithm) {
    case 0:
        std::memset(output, 0, 20);
        return 0;
    case 1:
        hmac_sha1(key, key_length, data, data_length, output, output_length);
        return 0;
    default:
        lib_log(3, "Could not calculate Auth Code because of Not-supported-Auth-type.\n");
        return 1;
    }
}

}  // extern "C"
