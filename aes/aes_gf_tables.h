// Compile-time construction of the AES S-box, its inverse and the word
// tables of the table-driven cipher, from GF(2^8) arithmetic modulo
// x^8 + x^4 + x^3 + x + 1 (FIPS-197 sections 4.2 and 5.1.1).
#pragma once

#include <array>
#include <cstdint>

namespace rmcpp::aes {

constexpr uint8_t xtime(uint8_t a)
{
    return static_cast<uint8_t>((a << 1) ^ ((a & 0x80) ? 0x1b : 0x00));
}

constexpr uint8_t gf_mul(uint8_t a, uint8_t b)
{
    uint8_t product = 0;
    while (b) {
        if (b & 1) product ^= a;
        a = xtime(a);
        b >>= 1;
    }
    return product;
}

// a^254 = a^-1 for a != 0; 0 maps to 0 as FIPS-197 asks.
constexpr uint8_t gf_inverse(uint8_t a)
{
    uint8_t result = 1;
    uint8_t base = a;
    for (unsigned e = 254; e; e >>= 1) {
        if (e & 1) result = gf_mul(result, base);
        base = gf_mul(base, base);
    }
    return a ? result : 0;
}

constexpr uint8_t rotl8(uint8_t b, int n)
{
    return static_cast<uint8_t>((b << n) | (b >> (8 - n)));
}

// b'_i = b_i ^ b_(i+4) ^ b_(i+5) ^ b_(i+6) ^ b_(i+7) ^ c_i with c = 0x63.
constexpr uint8_t affine(uint8_t b)
{
    return static_cast<uint8_t>(b ^ rotl8(b, 1) ^ rotl8(b, 2) ^ rotl8(b, 3) ^ rotl8(b, 4) ^ 0x63);
}

constexpr std::array<uint8_t, 256> make_sbox()
{
    std::array<uint8_t, 256> s{};
    for (int x = 0; x < 256; ++x) s[x] = affine(gf_inverse(static_cast<uint8_t>(x)));
    return s;
}

constexpr std::array<uint8_t, 256> make_inverse_sbox(const std::array<uint8_t, 256> &s)
{
    std::array<uint8_t, 256> si{};
    for (int x = 0; x < 256; ++x) si[s[x]] = static_cast<uint8_t>(x);
    return si;
}

inline constexpr std::array<uint8_t, 256> sbox = make_sbox();
inline constexpr std::array<uint8_t, 256> inverse_sbox = make_inverse_sbox(sbox);

constexpr uint32_t pack(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3)
{
    return uint32_t{b0} << 24 | uint32_t{b1} << 16 | uint32_t{b2} << 8 | uint32_t{b3};
}

constexpr uint32_t rotr32(uint32_t w, int n)
{
    return n ? (w >> n) | (w << (32 - n)) : w;
}

// MixColumns column of S[x]: (02, 01, 01, 03) * S[x].
constexpr uint32_t te_column(int x)
{
    const uint8_t s = sbox[x];
    return pack(gf_mul(2, s), s, s, gf_mul(3, s));
}

// InvMixColumns column of Si[x]: (0e, 09, 0d, 0b) * Si[x].
constexpr uint32_t td_column(int x)
{
    const uint8_t s = inverse_sbox[x];
    return pack(gf_mul(0x0e, s), gf_mul(0x09, s), gf_mul(0x0d, s), gf_mul(0x0b, s));
}

constexpr uint32_t te0(int x) { return te_column(x); }
constexpr uint32_t te1(int x) { return rotr32(te_column(x), 8); }
constexpr uint32_t te2(int x) { return rotr32(te_column(x), 16); }
constexpr uint32_t te3(int x) { return rotr32(te_column(x), 24); }
constexpr uint32_t te4(int x) { return pack(sbox[x], sbox[x], sbox[x], sbox[x]); }
constexpr uint32_t td0(int x) { return td_column(x); }
constexpr uint32_t td1(int x) { return rotr32(td_column(x), 8); }
constexpr uint32_t td2(int x) { return rotr32(td_column(x), 16); }
constexpr uint32_t td3(int x) { return rotr32(td_column(x), 24); }
constexpr uint32_t td4(int x) { return pack(inverse_sbox[x], inverse_sbox[x], inverse_sbox[x], inverse_sbox[x]); }

// x^(i) in GF(2^8), in the most significant byte.
constexpr uint32_t round_constant(int i)
{
    uint8_t c = 1;
    for (int k = 0; k < i; ++k) c = xtime(c);
    return uint32_t{c} << 24;
}

}  // namespace rmcpp::aes

// Brace-initialiser lists of 256 entries f(0) .. f(255): the exported tables
// are plain C arrays, which cannot be initialised from a std::array.
#define RMCPP_AES_ENTRIES_4(f, i) f(i), f(i + 1), f(i + 2), f(i + 3)
#define RMCPP_AES_ENTRIES_16(f, i) \
    RMCPP_AES_ENTRIES_4(f, i), RMCPP_AES_ENTRIES_4(f, i + 4), RMCPP_AES_ENTRIES_4(f, i + 8), RMCPP_AES_ENTRIES_4(f, i + 12)
#define RMCPP_AES_ENTRIES_64(f, i)                                                         \
    RMCPP_AES_ENTRIES_16(f, i), RMCPP_AES_ENTRIES_16(f, i + 16), RMCPP_AES_ENTRIES_16(f, i + 32), \
        RMCPP_AES_ENTRIES_16(f, i + 48)
#define RMCPP_AES_ENTRIES_256(f)                                                            \
    RMCPP_AES_ENTRIES_64(f, 0), RMCPP_AES_ENTRIES_64(f, 64), RMCPP_AES_ENTRIES_64(f, 128), \
        RMCPP_AES_ENTRIES_64(f, 192)
