// The simulator's own crypto, straight on OpenSSL: HMAC-SHA1, HMAC-SHA256
// and AES-128-CBC without padding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bmcsim::detail {

// The hash under an HMAC: SHA-1 (RAKP-HMAC-SHA1, HMAC-SHA1-96) or SHA-256
// (RAKP-HMAC-SHA256, HMAC-SHA256-128).
enum class Hash { Sha1, Sha256 };

// 20 for SHA-1, 32 for SHA-256.
size_t digest_length(Hash hash);

std::vector<uint8_t> hmac(Hash hash, const uint8_t *key, size_t key_length, const uint8_t *data, size_t length);
inline std::vector<uint8_t> hmac(Hash hash, const std::vector<uint8_t> &key, const std::vector<uint8_t> &data)
{
    return hmac(hash, key.data(), key.size(), data.data(), data.size());
}

// Transforms `data` (a whole number of 16-byte blocks) in place.
bool aes128_cbc(const uint8_t key[16], const uint8_t iv[16], uint8_t *data, size_t length,
                bool encrypt);

// Fills n bytes from OpenSSL's generator.
void random_bytes(uint8_t *out, size_t n);

}  // namespace bmcsim::detail
