#include "crypto.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <stdexcept>

namespace bmcsim::detail {

size_t digest_length(Hash hash) { return hash == Hash::Sha256 ? 32 : 20; }

std::vector<uint8_t> hmac(Hash hash, const uint8_t *key, size_t key_length, const uint8_t *data, size_t length)
{
    static const uint8_t empty = 0;
    std::vector<uint8_t> out(digest_length(hash));
    unsigned int out_length = 0;
    if (!HMAC(hash == Hash::Sha256 ? EVP_sha256() : EVP_sha1(), key_length ? key : &empty,
              static_cast<int>(key_length), length ? data : &empty, length, out.data(), &out_length) ||
        out_length != out.size())
        throw std::runtime_error(hash == Hash::Sha256 ? "HMAC-SHA256 failed" : "HMAC-SHA1 failed");
    return out;
}

bool aes128_cbc(const uint8_t key[16], const uint8_t iv[16], uint8_t *data, size_t length,
                bool encrypt)
{
    if (length % 16 != 0) return false;
    if (length == 0) return true;
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    if (!ctx) return false;
    int n = 0, m = 0;
    bool ok = EVP_CipherInit_ex(ctx, EVP_aes_128_cbc(), nullptr, key, iv, encrypt ? 1 : 0) == 1 &&
              EVP_CIPHER_CTX_set_padding(ctx, 0) == 1 &&
              EVP_CipherUpdate(ctx, data, &n, data, static_cast<int>(length)) == 1 &&
              EVP_CipherFinal_ex(ctx, data + n, &m) == 1 && static_cast<size_t>(n + m) == length;
    EVP_CIPHER_CTX_free(ctx);
    return ok;
}

void random_bytes(uint8_t *out, size_t n)
{
    if (RAND_bytes(out, static_cast<int>(n)) != 1) throw std::runtime_error("RAND_bytes failed");
}

}  // namespace bmcsim::detail
