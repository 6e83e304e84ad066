// HMAC (RFC 2104) over libcrypto's SHA-1 and SHA-256 hash functions. A key
// is turned once into the two hash states that have absorbed the inner and
// outer padded key; each code then starts from copies of them. No provider
// is fetched and nothing is allocated, at start-up or per packet.
#pragma once

#include <openssl/sha.h>

#include <cstddef>
#include <cstdint>

namespace rmcpp {

enum class Digest : uint8_t { Sha1, Sha256 };

class HmacKey {
public:
    HmacKey() = default;
    ~HmacKey();
    HmacKey(const HmacKey &) = delete;
    HmacKey &operator=(const HmacKey &) = delete;

    // Keys with `key`; a key longer than the hash block is hashed first.
    void set(Digest digest, const uint8_t *key, size_t key_length);
    // The whole code (20 or 32 bytes) over `data` into `out`.
    void code(const uint8_t *data, size_t length, uint8_t *out) const;
    size_t size() const { return digest_ == Digest::Sha1 ? SHA_DIGEST_LENGTH : SHA256_DIGEST_LENGTH; }
    bool keyed() const { return keyed_; }

private:
    Digest digest_ = Digest::Sha1;
    bool keyed_ = false;
    union State {
        SHA_CTX sha1;
        SHA256_CTX sha256;
    };
    State inner_{};
    State outer_{};
};

}  // namespace rmcpp
