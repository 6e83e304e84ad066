// SHA1_Init and its kin are marked deprecated in OpenSSL 3 in favour of the
// EVP interface, whose first use in a process costs more than a session.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "hmac.h"

#include <openssl/crypto.h>

#include <cstring>

namespace rmcpp {

namespace {

constexpr size_t kBlock = 64;  // SHA-1 and SHA-256 alike

}  // namespace

HmacKey::~HmacKey()
{
    OPENSSL_cleanse(&inner_, sizeof inner_);
    OPENSSL_cleanse(&outer_, sizeof outer_);
}

void HmacKey::set(Digest digest, const uint8_t *key, size_t key_length)
{
    digest_ = digest;
    uint8_t block[kBlock] = {};
    if (key_length > kBlock) {
        if (digest == Digest::Sha1) {
            SHA_CTX h;
            SHA1_Init(&h);
            SHA1_Update(&h, key, key_length);
            SHA1_Final(block, &h);
        } else {
            SHA256_CTX h;
            SHA256_Init(&h);
            SHA256_Update(&h, key, key_length);
            SHA256_Final(block, &h);
        }
    } else if (key_length != 0) {
        std::memcpy(block, key, key_length);
    }
    uint8_t pad[kBlock];
    for (size_t i = 0; i < kBlock; ++i) pad[i] = block[i] ^ 0x36;
    if (digest == Digest::Sha1) {
        SHA1_Init(&inner_.sha1);
        SHA1_Update(&inner_.sha1, pad, kBlock);
    } else {
        SHA256_Init(&inner_.sha256);
        SHA256_Update(&inner_.sha256, pad, kBlock);
    }
    for (size_t i = 0; i < kBlock; ++i) pad[i] = block[i] ^ 0x5C;
    if (digest == Digest::Sha1) {
        SHA1_Init(&outer_.sha1);
        SHA1_Update(&outer_.sha1, pad, kBlock);
    } else {
        SHA256_Init(&outer_.sha256);
        SHA256_Update(&outer_.sha256, pad, kBlock);
    }
    OPENSSL_cleanse(block, sizeof block);
    OPENSSL_cleanse(pad, sizeof pad);
    keyed_ = true;
}

void HmacKey::code(const uint8_t *data, size_t length, uint8_t *out) const
{
    uint8_t inner_hash[SHA256_DIGEST_LENGTH];
    State s;
    if (digest_ == Digest::Sha1) {
        s.sha1 = inner_.sha1;
        SHA1_Update(&s.sha1, data, length);
        SHA1_Final(inner_hash, &s.sha1);
        s.sha1 = outer_.sha1;
        SHA1_Update(&s.sha1, inner_hash, SHA_DIGEST_LENGTH);
        SHA1_Final(out, &s.sha1);
    } else {
        s.sha256 = inner_.sha256;
        SHA256_Update(&s.sha256, data, length);
        SHA256_Final(inner_hash, &s.sha256);
        s.sha256 = outer_.sha256;
        SHA256_Update(&s.sha256, inner_hash, SHA256_DIGEST_LENGTH);
        SHA256_Final(out, &s.sha256);
    }
    OPENSSL_cleanse(inner_hash, sizeof inner_hash);
}

}  // namespace rmcpp
