// A deliberately plain, byte-oriented AES written from the FIPS-197
// pseudo-code, for the tests: the S-box from a brute-force search for
// inverses, ShiftRows / MixColumns on a 4x4 byte state, the key expansion
// of FIPS-197 section 5.2 and the equivalent inverse cipher of section
// 5.3.5. Slow and obvious on purpose; the tests check it against OpenSSL
// before they use it for the round-by-round values that OpenSSL does not
// expose.
#pragma once

#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace aesmodel {

using Block = std::array<uint8_t, 16>;
using Bytes = std::vector<uint8_t>;

inline uint8_t mul(uint8_t a, uint8_t b)
{
    uint8_t p = 0;
    for (int i = 0; i < 8; ++i) {
        if (b & 1) p ^= a;
        const bool carry = a & 0x80;
        a = static_cast<uint8_t>(a << 1);
        if (carry) a ^= 0x1b;
        b >>= 1;
    }
    return p;
}

struct Boxes {
    std::array<uint8_t, 256> s{}, si{};
    Boxes()
    {
        for (int x = 0; x < 256; ++x) {
            uint8_t inv = 0;
            for (int y = 1; y < 256 && x; ++y)
                if (mul(static_cast<uint8_t>(x), static_cast<uint8_t>(y)) == 1) inv = static_cast<uint8_t>(y);
            uint8_t out = 0x63;
            for (int bit = 0; bit < 8; ++bit) {
                const int v = ((inv >> bit) ^ (inv >> ((bit + 4) % 8)) ^ (inv >> ((bit + 5) % 8)) ^
                               (inv >> ((bit + 6) % 8)) ^ (inv >> ((bit + 7) % 8))) & 1;
                out ^= static_cast<uint8_t>(v << bit);
            }
            s[x] = out;
        }
        for (int x = 0; x < 256; ++x) si[s[x]] = static_cast<uint8_t>(x);
    }
};

inline const Boxes &boxes()
{
    static const Boxes b;
    return b;
}

inline int rounds_for(size_t keyBytes) { return static_cast<int>(keyBytes / 4) + 6; }

// Round keys as 16-byte blocks, FIPS-197 KeyExpansion.
inline std::vector<Block> expand_key(const Bytes &key)
{
    const int nk = static_cast<int>(key.size() / 4);
    const int nr = nk + 6;
    std::vector<std::array<uint8_t, 4>> w(4 * (nr + 1));
    for (int i = 0; i < nk; ++i) w[i] = {key[4 * i], key[4 * i + 1], key[4 * i + 2], key[4 * i + 3]};
    uint8_t rc = 1;
    for (int i = nk; i < 4 * (nr + 1); ++i) {
        auto t = w[i - 1];
        if (i % nk == 0) {
            t = {boxes().s[t[1]], boxes().s[t[2]], boxes().s[t[3]], boxes().s[t[0]]};
            t[0] ^= rc;
            rc = mul(rc, 2);
        } else if (nk > 6 && i % nk == 4) {
            for (auto &b : t) b = boxes().s[b];
        }
        for (int k = 0; k < 4; ++k) w[i][k] = w[i - nk][k] ^ t[k];
    }
    std::vector<Block> rk(nr + 1);
    for (int r = 0; r <= nr; ++r)
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < 4; ++k) rk[r][4 * c + k] = w[4 * r + c][k];
    return rk;
}

// state[r][c] is byte r + 4c of the block.
inline void add(Block &s, const Block &k)
{
    for (int i = 0; i < 16; ++i) s[i] ^= k[i];
}
inline void sub_bytes(Block &s, bool inverse)
{
    for (auto &b : s) b = inverse ? boxes().si[b] : boxes().s[b];
}
inline void shift_rows(Block &s, bool inverse)
{
    Block t = s;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) {
            const int from = inverse ? (c + 4 - r) % 4 : (c + r) % 4;
            t[r + 4 * c] = s[r + 4 * from];
        }
    s = t;
}
inline void mix_columns(Block &s, bool inverse)
{
    static const uint8_t fwd[4] = {2, 3, 1, 1}, inv[4] = {0x0e, 0x0b, 0x0d, 0x09};
    const uint8_t *m = inverse ? inv : fwd;
    for (int c = 0; c < 4; ++c) {
        uint8_t col[4];
        for (int r = 0; r < 4; ++r) {
            col[r] = 0;
            for (int k = 0; k < 4; ++k) col[r] ^= mul(m[(k - r + 4) % 4], s[k + 4 * c]);
        }
        for (int r = 0; r < 4; ++r) s[r + 4 * c] = col[r];
    }
}

// The state after the initial AddRoundKey and `rounds` full rounds
// (0 <= rounds < Nr), or the ciphertext for rounds == Nr.
inline Block encrypt_rounds(const Bytes &key, const Block &in, int rounds)
{
    const auto rk = expand_key(key);
    const int nr = static_cast<int>(rk.size()) - 1;
    Block s = in;
    add(s, rk[0]);
    for (int r = 1; r <= rounds && r < nr; ++r) {
        sub_bytes(s, false);
        shift_rows(s, false);
        mix_columns(s, false);
        add(s, rk[r]);
    }
    if (rounds == nr) {
        sub_bytes(s, false);
        shift_rows(s, false);
        add(s, rk[nr]);
    }
    return s;
}

// Round keys of the equivalent inverse cipher in the order they are used:
// dk[0] = last encryption round key, InvMixColumns on dk[1..Nr-1].
inline std::vector<Block> inverse_key_schedule(const Bytes &key)
{
    auto rk = expand_key(key);
    const int nr = static_cast<int>(rk.size()) - 1;
    std::vector<Block> dk(nr + 1);
    for (int r = 0; r <= nr; ++r) {
        dk[r] = rk[nr - r];
        if (r > 0 && r < nr) mix_columns(dk[r], true);
    }
    return dk;
}

// Equivalent inverse cipher limited to `rounds`: AddRoundKey(dk[0]),
// rounds-1 full rounds, then InvShiftRows + InvSubBytes, with dk[Nr] only
// when rounds == Nr.
inline Block decrypt_rounds(const Bytes &key, const Block &in, int rounds)
{
    const auto dk = inverse_key_schedule(key);
    const int nr = static_cast<int>(dk.size()) - 1;
    Block s = in;
    add(s, dk[0]);
    for (int r = 1; r < rounds && r < nr; ++r) {
        sub_bytes(s, true);
        shift_rows(s, true);
        mix_columns(s, true);
        add(s, dk[r]);
    }
    sub_bytes(s, true);
    shift_rows(s, true);
    if (rounds == nr) add(s, dk[nr]);
    return s;
}

// ------------------------------------------------------------ OpenSSL oracle

inline const EVP_CIPHER *ecb_cipher(size_t keyBytes)
{
    switch (keyBytes) {
    case 16: return EVP_aes_128_ecb();
    case 24: return EVP_aes_192_ecb();
    case 32: return EVP_aes_256_ecb();
    }
    throw std::invalid_argument("key length");
}

// One AES key in one direction through EVP, block by block.
class Oracle {
public:
    Oracle(const Bytes &key, bool encrypt) : ctx_(EVP_CIPHER_CTX_new())
    {
        if (!ctx_ || EVP_CipherInit_ex(ctx_, ecb_cipher(key.size()), nullptr, key.data(), nullptr, encrypt) != 1)
            throw std::runtime_error("EVP_CipherInit_ex");
        EVP_CIPHER_CTX_set_padding(ctx_, 0);
    }
    ~Oracle() { EVP_CIPHER_CTX_free(ctx_); }
    Oracle(const Oracle &) = delete;
    Oracle &operator=(const Oracle &) = delete;

    void run(const uint8_t *in, uint8_t *out)
    {
        if (EVP_Cipher(ctx_, out, in, 16) <= 0) throw std::runtime_error("EVP_Cipher");
    }
    Block operator()(const Block &in)
    {
        Block out;
        run(in.data(), out.data());
        return out;
    }

private:
    EVP_CIPHER_CTX *ctx_;
};

inline Block evp_encrypt(const Bytes &key, const Block &in) { return Oracle(key, true)(in); }
inline Block evp_decrypt(const Bytes &key, const Block &in) { return Oracle(key, false)(in); }

// ------------------------------------------------------------ hex helpers

inline Bytes from_hex(const std::string &hex)
{
    Bytes out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) out.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return out;
}

inline Block block_from_hex(const std::string &hex)
{
    const Bytes b = from_hex(hex);
    if (b.size() != 16) throw std::invalid_argument("block hex");
    Block out;
    std::copy(b.begin(), b.end(), out.begin());
    return out;
}

template <typename Container>
std::string to_hex(const Container &bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string s;
    for (uint8_t b : bytes) {
        s += digits[b >> 4];
        s += digits[b & 15];
    }
    return s;
}

}  // namespace aesmodel
