// Table-driven Rijndael (FIPS-197): key expansion for 128-, 192- and
// 256-bit keys, one-block encryption and decryption (the decryption uses
// the equivalent inverse cipher of FIPS-197 section 5.3.5), and the two
// round-limited routines used to print intermediate values.
#include "rmcpp_aes.h"

#include "aes_gf_tables.h"

namespace aes = rmcpp::aes;

extern "C" {

alignas(64) constexpr uint32_t Te0[256] = {RMCPP_AES_ENTRIES_256(aes::te0)};
alignas(64) constexpr uint32_t Te1[256] = {RMCPP_AES_ENTRIES_256(aes::te1)};
alignas(64) constexpr uint32_t Te2[256] = {RMCPP_AES_ENTRIES_256(aes::te2)};
alignas(64) constexpr uint32_t Te3[256] = {RMCPP_AES_ENTRIES_256(aes::te3)};
alignas(64) constexpr uint32_t Te4[256] = {RMCPP_AES_ENTRIES_256(aes::te4)};
alignas(64) constexpr uint32_t Td0[256] = {RMCPP_AES_ENTRIES_256(aes::td0)};
alignas(64) constexpr uint32_t Td1[256] = {RMCPP_AES_ENTRIES_256(aes::td1)};
alignas(64) constexpr uint32_t Td2[256] = {RMCPP_AES_ENTRIES_256(aes::td2)};
alignas(64) constexpr uint32_t Td3[256] = {RMCPP_AES_ENTRIES_256(aes::td3)};
alignas(64) constexpr uint32_t Td4[256] = {RMCPP_AES_ENTRIES_256(aes::td4)};
constexpr uint32_t rcon[10] = {
    aes::round_constant(0), aes::round_constant(1), aes::round_constant(2), aes::round_constant(3),
    aes::round_constant(4), aes::round_constant(5), aes::round_constant(6), aes::round_constant(7),
    aes::round_constant(8), aes::round_constant(9),
};

}  // extern "C"

static_assert(Te0[0] == 0xc66363a5 && Te1[0] == 0xa5c66363 && Te4[0] == 0x63636363);
static_assert(Td0[0] == 0x51f4a750 && Td4[0] == 0x52525252);
static_assert(rcon[8] == 0x1b000000 && rcon[9] == 0x36000000);

namespace {

inline uint32_t load_be(const uint8_t *p)
{
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | uint32_t{p[3]};
}

inline void store_be(uint8_t *p, uint32_t w)
{
    p[0] = static_cast<uint8_t>(w >> 24);
    p[1] = static_cast<uint8_t>(w >> 16);
    p[2] = static_cast<uint8_t>(w >> 8);
    p[3] = static_cast<uint8_t>(w);
}

// The largest schedule holds 4 * (14 + 1) words: a longer round count
// would read past it.
inline bool schedule_fits(int Nr) { return Nr >= 0 && Nr <= 14; }

inline uint32_t b0(uint32_t w) { return w >> 24; }
inline uint32_t b1(uint32_t w) { return (w >> 16) & 0xff; }
inline uint32_t b2(uint32_t w) { return (w >> 8) & 0xff; }
inline uint32_t b3(uint32_t w) { return w & 0xff; }

// SubWord(RotWord(t)) through the S-box bytes of Te4.
inline uint32_t sub_rot_word(uint32_t t)
{
    return (Te4[b1(t)] & 0xff000000) ^ (Te4[b2(t)] & 0x00ff0000) ^ (Te4[b3(t)] & 0x0000ff00) ^
           (Te4[b0(t)] & 0x000000ff);
}

inline uint32_t sub_word(uint32_t t)
{
    return (Te4[b0(t)] & 0xff000000) ^ (Te4[b1(t)] & 0x00ff0000) ^ (Te4[b2(t)] & 0x0000ff00) ^
           (Te4[b3(t)] & 0x000000ff);
}

inline uint32_t inv_mix_column(uint32_t w)
{
    return Td0[Te4[b0(w)] & 0xff] ^ Td1[Te4[b1(w)] & 0xff] ^ Td2[Te4[b2(w)] & 0xff] ^ Td3[Te4[b3(w)] & 0xff];
}

struct State {
    uint32_t s0, s1, s2, s3;
};

inline State load_state(const uint8_t *block, const uint32_t *rk)
{
    return {load_be(block) ^ rk[0], load_be(block + 4) ^ rk[1], load_be(block + 8) ^ rk[2],
            load_be(block + 12) ^ rk[3]};
}

inline void store_state(uint8_t *block, const State &s)
{
    store_be(block, s.s0);
    store_be(block + 4, s.s1);
    store_be(block + 8, s.s2);
    store_be(block + 12, s.s3);
}

// SubBytes, ShiftRows, MixColumns and AddRoundKey in 16 look-ups.
inline State encrypt_round(const State &s, const uint32_t *k)
{
    return {Te0[b0(s.s0)] ^ Te1[b1(s.s1)] ^ Te2[b2(s.s2)] ^ Te3[b3(s.s3)] ^ k[0],
            Te0[b0(s.s1)] ^ Te1[b1(s.s2)] ^ Te2[b2(s.s3)] ^ Te3[b3(s.s0)] ^ k[1],
            Te0[b0(s.s2)] ^ Te1[b1(s.s3)] ^ Te2[b2(s.s0)] ^ Te3[b3(s.s1)] ^ k[2],
            Te0[b0(s.s3)] ^ Te1[b1(s.s0)] ^ Te2[b2(s.s1)] ^ Te3[b3(s.s2)] ^ k[3]};
}

inline uint32_t encrypt_final_word(uint32_t a, uint32_t b, uint32_t c, uint32_t d, uint32_t k)
{
    return (Te4[b0(a)] & 0xff000000) ^ (Te4[b1(b)] & 0x00ff0000) ^ (Te4[b2(c)] & 0x0000ff00) ^
           (Te4[b3(d)] & 0x000000ff) ^ k;
}

// SubBytes and ShiftRows, no MixColumns.
inline State encrypt_final(const State &s, const uint32_t *k)
{
    return {encrypt_final_word(s.s0, s.s1, s.s2, s.s3, k[0]), encrypt_final_word(s.s1, s.s2, s.s3, s.s0, k[1]),
            encrypt_final_word(s.s2, s.s3, s.s0, s.s1, k[2]), encrypt_final_word(s.s3, s.s0, s.s1, s.s2, k[3])};
}

inline State decrypt_round(const State &s, const uint32_t *k)
{
    return {Td0[b0(s.s0)] ^ Td1[b1(s.s3)] ^ Td2[b2(s.s2)] ^ Td3[b3(s.s1)] ^ k[0],
            Td0[b0(s.s1)] ^ Td1[b1(s.s0)] ^ Td2[b2(s.s3)] ^ Td3[b3(s.s2)] ^ k[1],
            Td0[b0(s.s2)] ^ Td1[b1(s.s1)] ^ Td2[b2(s.s0)] ^ Td3[b3(s.s3)] ^ k[2],
            Td0[b0(s.s3)] ^ Td1[b1(s.s2)] ^ Td2[b2(s.s1)] ^ Td3[b3(s.s0)] ^ k[3]};
}

inline uint32_t decrypt_final_word(uint32_t a, uint32_t b, uint32_t c, uint32_t d, uint32_t k)
{
    return (Td4[b0(a)] & 0xff000000) ^ (Td4[b1(b)] & 0x00ff0000) ^ (Td4[b2(c)] & 0x0000ff00) ^
           (Td4[b3(d)] & 0x000000ff) ^ k;
}

// InvShiftRows and InvSubBytes, then the given key (0 for none).
inline State decrypt_final(const State &s, uint32_t k0, uint32_t k1, uint32_t k2, uint32_t k3)
{
    return {decrypt_final_word(s.s0, s.s3, s.s2, s.s1, k0), decrypt_final_word(s.s1, s.s0, s.s3, s.s2, k1),
            decrypt_final_word(s.s2, s.s1, s.s0, s.s3, k2), decrypt_final_word(s.s3, s.s2, s.s1, s.s0, k3)};
}

// Nr - 1 full rounds unrolled for each key size; Nr is 10, 12 or 14.
template <int Nr>
inline void encrypt_block(const uint32_t *rk, const uint8_t *in, uint8_t *out)
{
    State s = load_state(in, rk);
#pragma GCC unroll 16
    for (int r = 1; r < Nr; ++r) s = encrypt_round(s, rk + 4 * r);
    store_state(out, encrypt_final(s, rk + 4 * Nr));
}

template <int Nr>
inline void decrypt_block(const uint32_t *rk, const uint8_t *in, uint8_t *out)
{
    State s = load_state(in, rk);
#pragma GCC unroll 16
    for (int r = 1; r < Nr; ++r) s = decrypt_round(s, rk + 4 * r);
    const uint32_t *k = rk + 4 * Nr;
    store_state(out, decrypt_final(s, k[0], k[1], k[2], k[3]));
}

}  // namespace

extern "C" {

int rijndaelKeySetupEnc(uint32_t rk[], const uint8_t cipherKey[], int keyBits)
{
    if (rk == nullptr || cipherKey == nullptr) return 0;
    rk[0] = load_be(cipherKey);
    rk[1] = load_be(cipherKey + 4);
    rk[2] = load_be(cipherKey + 8);
    rk[3] = load_be(cipherKey + 12);
    if (keyBits != 128) {
        rk[4] = load_be(cipherKey + 16);
        rk[5] = load_be(cipherKey + 20);
        if (keyBits != 192) {
            rk[6] = load_be(cipherKey + 24);
            rk[7] = load_be(cipherKey + 28);
            if (keyBits != 256) return 0;
        }
    }
    if (keyBits == 128) {
        for (int step = 0; step < 10; ++step, rk += 4) {
            rk[4] = rk[0] ^ sub_rot_word(rk[3]) ^ rcon[step];
            rk[5] = rk[1] ^ rk[4];
            rk[6] = rk[2] ^ rk[5];
            rk[7] = rk[3] ^ rk[6];
        }
        return 10;
    }
    if (keyBits == 192) {
        for (int step = 0;; ++step, rk += 6) {
            rk[6] = rk[0] ^ sub_rot_word(rk[5]) ^ rcon[step];
            rk[7] = rk[1] ^ rk[6];
            rk[8] = rk[2] ^ rk[7];
            rk[9] = rk[3] ^ rk[8];
            if (step == 7) return 12;
            rk[10] = rk[4] ^ rk[9];
            rk[11] = rk[5] ^ rk[10];
        }
    }
    for (int step = 0;; ++step, rk += 8) {
        rk[8] = rk[0] ^ sub_rot_word(rk[7]) ^ rcon[step];
        rk[9] = rk[1] ^ rk[8];
        rk[10] = rk[2] ^ rk[9];
        rk[11] = rk[3] ^ rk[10];
        if (step == 6) return 14;
        rk[12] = rk[4] ^ sub_word(rk[11]);
        rk[13] = rk[5] ^ rk[12];
        rk[14] = rk[6] ^ rk[13];
        rk[15] = rk[7] ^ rk[14];
    }
}

int rijndaelKeySetupDec(uint32_t rk[], const uint8_t cipherKey[], int keyBits)
{
    if (rk == nullptr || cipherKey == nullptr) return 0;
    const int Nr = rijndaelKeySetupEnc(rk, cipherKey, keyBits);
    for (int i = 0, j = 4 * Nr; i < j; i += 4, j -= 4) {
        for (int w = 0; w < 4; ++w) {
            const uint32_t t = rk[i + w];
            rk[i + w] = rk[j + w];
            rk[j + w] = t;
        }
    }
    for (int i = 4; i < 4 * Nr; ++i) rk[i] = inv_mix_column(rk[i]);
    return Nr;
}

void rijndaelEncrypt(const uint32_t rk[], int Nr, const uint8_t pt[16], uint8_t ct[16])
{
    if (rk == nullptr || pt == nullptr || ct == nullptr || !schedule_fits(Nr)) return;
    switch (Nr) {
    case 10: encrypt_block<10>(rk, pt, ct); return;
    case 12: encrypt_block<12>(rk, pt, ct); return;
    case 14: encrypt_block<14>(rk, pt, ct); return;
    }
    State s = load_state(pt, rk);
    for (int r = 1; r < Nr; ++r) s = encrypt_round(s, rk + 4 * r);
    store_state(ct, encrypt_final(s, rk + 4 * Nr));
}

void rijndaelDecrypt(const uint32_t rk[], int Nr, const uint8_t ct[16], uint8_t pt[16])
{
    if (rk == nullptr || ct == nullptr || pt == nullptr || !schedule_fits(Nr)) return;
    switch (Nr) {
    case 10: decrypt_block<10>(rk, ct, pt); return;
    case 12: decrypt_block<12>(rk, ct, pt); return;
    case 14: decrypt_block<14>(rk, ct, pt); return;
    }
    State s = load_state(ct, rk);
    for (int r = 1; r < Nr; ++r) s = decrypt_round(s, rk + 4 * r);
    const uint32_t *k = rk + 4 * Nr;
    store_state(pt, decrypt_final(s, k[0], k[1], k[2], k[3]));
}

void rijndaelEncryptRound(const uint32_t rk[], int Nr, uint8_t block[16], int rounds)
{
    if (rk == nullptr || block == nullptr || !schedule_fits(Nr)) return;
    State s = load_state(block, rk);
    const int full = rounds < Nr ? rounds : Nr - 1;
    for (int r = 1; r <= full; ++r) s = encrypt_round(s, rk + 4 * r);
    if (rounds == Nr) s = encrypt_final(s, rk + 4 * Nr);
    store_state(block, s);
}

// Not the mirror of rijndaelEncryptRound: the last step is always the
// InvShiftRows/InvSubBytes substitution, keyed only when rounds == Nr.
void rijndaelDecryptRound(const uint32_t rk[], int Nr, uint8_t block[16], int rounds)
{
    if (rk == nullptr || block == nullptr || !schedule_fits(Nr)) return;
    State s = load_state(block, rk);
    // No full round for rounds <= 1; tested first so rounds - 1 cannot wrap.
    const int full = rounds <= 1 ? 0 : (rounds < Nr ? rounds : Nr) - 1;
    for (int r = 1; r <= full; ++r) s = decrypt_round(s, rk + 4 * r);
    if (rounds == Nr) {
        const uint32_t *k = rk + 4 * Nr;
        s = decrypt_final(s, k[0], k[1], k[2], k[3]);
    } else {
        s = decrypt_final(s, 0, 0, 0, 0);
    }
    store_state(block, s);
}

}  // extern "C"
