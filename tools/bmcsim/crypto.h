// The simulator's own crypto, straight on OpenSSL: HMAC-SHA1 and
// AES-128-CBC without padding.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace bmcsim::detail {

using Digest = std::array<uint8_t, 20>;

Digest hmac_sha1(const uint8_t *key, size_t key_length, const uint8_t *data, size_t length);
inline Digest hmac_sha1(const std::vector<uint8_t> &key, const std::vector<uint8_t> &data)
{
    return hmac_sha1(key.data(), key.size(), data.data(), data.size());
}

// Transforms `data` (a whole number of 16-byte blocks) in place.
bool aes128_cbc(const uint8_t key[16], const uint8_t iv[16], uint8_t *data, size_t length,
                bool encrypt);

// Fills n bytes from OpenSSL's generator.
void random_bytes(uint8_t *out, size_t n);

}  // namespace bmcsim::detail
