// The Rijndael core: tables, key expansion, one-block transforms and the
// round-limited routines, against FIPS-197 and against OpenSSL.
#include <gtest/gtest.h>

#include <random>

#include "aes_reference_model.h"
#include "rmcpp_aes.h"

using aesmodel::Block;
using aesmodel::Bytes;
using aesmodel::block_from_hex;
using aesmodel::from_hex;

namespace {

Bytes counting_key(int bits)
{
    Bytes key(bits / 8);
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(i);
    return key;
}

const Block kAppendixCPlaintext = block_from_hex("00112233445566778899aabbccddeeff");

struct AppendixC {
    int bits;
    const char *ciphertext;
};
const AppendixC kAppendixC[] = {
    {128, "69c4e0d86a7b0430d8cdb78070b4c55a"},
    {192, "dda97ca4864cdfe06eaf70a0ec0d7191"},
    {256, "8ea2b7ca516745bfeafc49904b496089"},
};

uint8_t byte_of(uint32_t w, int i) { return static_cast<uint8_t>(w >> (24 - 8 * i)); }
uint32_t rotr(uint32_t w, int n) { return (w >> n) | (w << (32 - n)); }

}  // namespace

TEST(AesTables, StatedEntries)
{
    EXPECT_EQ(Te0[0], 0xc66363a5u);
    EXPECT_EQ(Te1[0], 0xa5c66363u);
    EXPECT_EQ(Te4[0], 0x63636363u);
    EXPECT_EQ(Td0[0], 0x51f4a750u);
    EXPECT_EQ(Td4[0], 0x52525252u);
    const uint32_t expected_rcon[10] = {0x01000000, 0x02000000, 0x04000000, 0x08000000, 0x10000000,
                                        0x20000000, 0x40000000, 0x80000000, 0x1b000000, 0x36000000};
    for (int i = 0; i < 10; ++i) EXPECT_EQ(rcon[i], expected_rcon[i]) << i;
}

TEST(AesTables, SboxEntriesOfFips197)
{
    // FIPS-197 section 5.1.1 example and Figures 7 and 14.
    EXPECT_EQ(Te4[0x53], 0xededededu);
    EXPECT_EQ(Te4[0x01], 0x7c7c7c7cu);
    EXPECT_EQ(Te4[0x10], 0xcacacacau);
    EXPECT_EQ(Te4[0xff], 0x16161616u);
    EXPECT_EQ(Td4[0xff], 0x7d7d7d7du);
    EXPECT_EQ(Td4[0x63], 0x00000000u);
}

TEST(AesTables, EveryEntryMatchesTheSboxAndMixColumns)
{
    const auto &b = aesmodel::boxes();
    for (int x = 0; x < 256; ++x) {
        const uint8_t s = b.s[x], si = b.si[x];
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(byte_of(Te4[x], i), s) << x;
            EXPECT_EQ(byte_of(Td4[x], i), si) << x;
        }
        EXPECT_EQ(byte_of(Te0[x], 0), aesmodel::mul(2, s)) << x;
        EXPECT_EQ(byte_of(Te0[x], 1), s) << x;
        EXPECT_EQ(byte_of(Te0[x], 2), s) << x;
        EXPECT_EQ(byte_of(Te0[x], 3), aesmodel::mul(3, s)) << x;
        EXPECT_EQ(byte_of(Td0[x], 0), aesmodel::mul(0x0e, si)) << x;
        EXPECT_EQ(byte_of(Td0[x], 1), aesmodel::mul(0x09, si)) << x;
        EXPECT_EQ(byte_of(Td0[x], 2), aesmodel::mul(0x0d, si)) << x;
        EXPECT_EQ(byte_of(Td0[x], 3), aesmodel::mul(0x0b, si)) << x;
        EXPECT_EQ(Te1[x], rotr(Te0[x], 8)) << x;
        EXPECT_EQ(Te2[x], rotr(Te0[x], 16)) << x;
        EXPECT_EQ(Te3[x], rotr(Te0[x], 24)) << x;
        EXPECT_EQ(Td1[x], rotr(Td0[x], 8)) << x;
        EXPECT_EQ(Td2[x], rotr(Td0[x], 16)) << x;
        EXPECT_EQ(Td3[x], rotr(Td0[x], 24)) << x;
    }
}

TEST(AesCore, AppendixCVectorsAndDecryptionSchedule)
{
    for (const auto &v : kAppendixC) {
        SCOPED_TRACE(v.bits);
        const Bytes key = counting_key(v.bits);
        uint32_t ek[RIJNDAEL_MAX_SCHEDULE_WORDS], dk[RIJNDAEL_MAX_SCHEDULE_WORDS];
        const int nr = rijndaelKeySetupEnc(ek, key.data(), v.bits);
        EXPECT_EQ(nr, v.bits / 32 + 6);
        EXPECT_EQ(rijndaelKeySetupDec(dk, key.data(), v.bits), nr);
        Block ct, pt;
        rijndaelEncrypt(ek, nr, kAppendixCPlaintext.data(), ct.data());
        EXPECT_EQ(ct, block_from_hex(v.ciphertext));
        rijndaelDecrypt(dk, nr, ct.data(), pt.data());
        EXPECT_EQ(pt, kAppendixCPlaintext);
    }
}

TEST(AesCore, AppendixAKeyExpansion)
{
    struct Case {
        const char *key;
        int bits;
        int index;
        uint32_t word;
    };
    const Case cases[] = {
        {"2b7e151628aed2a6abf7158809cf4f3c", 128, 4, 0xa0fafe17},
        {"2b7e151628aed2a6abf7158809cf4f3c", 128, 43, 0xb6630ca6},
        {"8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b", 192, 6, 0xfe0c91f7},
        {"8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b", 192, 51, 0x01002202},
        {"603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", 256, 8, 0x9ba35411},
        {"603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", 256, 59, 0x706c631e},
    };
    for (const auto &c : cases) {
        uint32_t rk[RIJNDAEL_MAX_SCHEDULE_WORDS];
        rijndaelKeySetupEnc(rk, from_hex(c.key).data(), c.bits);
        EXPECT_EQ(rk[c.index], c.word) << c.bits << " w[" << c.index << "]";
    }
}

TEST(AesCore, ScheduleMatchesModelForEveryKeySize)
{
    std::mt19937 rng(7);
    for (int bits = 128; bits <= 256; bits += 64) {
        Bytes key(bits / 8);
        for (auto &b : key) b = static_cast<uint8_t>(rng());
        uint32_t ek[RIJNDAEL_MAX_SCHEDULE_WORDS], dk[RIJNDAEL_MAX_SCHEDULE_WORDS];
        const int nr = rijndaelKeySetupEnc(ek, key.data(), bits);
        rijndaelKeySetupDec(dk, key.data(), bits);
        const auto model_ek = aesmodel::expand_key(key);
        const auto model_dk = aesmodel::inverse_key_schedule(key);
        for (int r = 0; r <= nr; ++r)
            for (int w = 0; w < 4; ++w)
                for (int i = 0; i < 4; ++i) {
                    EXPECT_EQ(byte_of(ek[4 * r + w], i), model_ek[r][4 * w + i]) << bits << " round " << r;
                    EXPECT_EQ(byte_of(dk[4 * r + w], i), model_dk[r][4 * w + i]) << bits << " round " << r;
                }
    }
}

TEST(AesCore, KeySetupRejectsOtherKeySizes)
{
    const uint8_t key[32] = {};
    uint32_t rk[RIJNDAEL_MAX_SCHEDULE_WORDS];
    EXPECT_EQ(rijndaelKeySetupEnc(rk, key, 64), 0);
    EXPECT_EQ(rijndaelKeySetupEnc(rk, key, 512), 0);
    EXPECT_EQ(rijndaelKeySetupEnc(rk, key, 160), 0);
    EXPECT_EQ(rijndaelKeySetupDec(rk, key, 64), 0);
}

TEST(AesCore, AgreesWithOpenSslOnRandomKeysAndBlocks)
{
    std::mt19937 rng(2024);
    for (int bits = 128; bits <= 256; bits += 64) {
        for (int n = 0; n < 50; ++n) {
            Bytes key(bits / 8);
            for (auto &b : key) b = static_cast<uint8_t>(rng());
            Block pt;
            for (auto &b : pt) b = static_cast<uint8_t>(rng());
            uint32_t ek[RIJNDAEL_MAX_SCHEDULE_WORDS], dk[RIJNDAEL_MAX_SCHEDULE_WORDS];
            const int nr = rijndaelKeySetupEnc(ek, key.data(), bits);
            rijndaelKeySetupDec(dk, key.data(), bits);
            Block ct, back;
            rijndaelEncrypt(ek, nr, pt.data(), ct.data());
            ASSERT_EQ(ct, aesmodel::evp_encrypt(key, pt)) << bits;
            rijndaelDecrypt(dk, nr, ct.data(), back.data());
            ASSERT_EQ(back, pt) << bits;
            ASSERT_EQ(aesmodel::evp_decrypt(key, pt), [&] {
                Block out;
                rijndaelDecrypt(dk, nr, pt.data(), out.data());
                return out;
            }()) << bits;
        }
    }
}

TEST(AesCore, ModelAgreesWithOpenSsl)
{
    std::mt19937 rng(99);
    for (int bits = 128; bits <= 256; bits += 64) {
        Bytes key(bits / 8);
        for (auto &b : key) b = static_cast<uint8_t>(rng());
        Block pt;
        for (auto &b : pt) b = static_cast<uint8_t>(rng());
        const int nr = bits / 32 + 6;
        const Block ct = aesmodel::encrypt_rounds(key, pt, nr);
        EXPECT_EQ(ct, aesmodel::evp_encrypt(key, pt));
        EXPECT_EQ(aesmodel::decrypt_rounds(key, ct, nr), pt);
    }
}

TEST(AesCore, OutputMayAliasInput)
{
    const Bytes key = counting_key(128);
    uint32_t ek[RIJNDAEL_MAX_SCHEDULE_WORDS], dk[RIJNDAEL_MAX_SCHEDULE_WORDS];
    const int nr = rijndaelKeySetupEnc(ek, key.data(), 128);
    rijndaelKeySetupDec(dk, key.data(), 128);
    Block buf = kAppendixCPlaintext;
    rijndaelEncrypt(ek, nr, buf.data(), buf.data());
    EXPECT_EQ(buf, block_from_hex(kAppendixC[0].ciphertext));
    rijndaelDecrypt(dk, nr, buf.data(), buf.data());
    EXPECT_EQ(buf, kAppendixCPlaintext);
}

TEST(AesCore, EncryptRoundLimits)
{
    for (int bits = 128; bits <= 256; bits += 64) {
        SCOPED_TRACE(bits);
        const Bytes key = counting_key(bits);
        uint32_t ek[RIJNDAEL_MAX_SCHEDULE_WORDS];
        const int nr = rijndaelKeySetupEnc(ek, key.data(), bits);

        Block full;
        rijndaelEncrypt(ek, nr, kAppendixCPlaintext.data(), full.data());
        Block b = kAppendixCPlaintext;
        rijndaelEncryptRound(ek, nr, b.data(), nr);
        EXPECT_EQ(b, full);

        // rounds = 0: only the first AddRoundKey.
        b = kAppendixCPlaintext;
        rijndaelEncryptRound(ek, nr, b.data(), 0);
        Block expected = kAppendixCPlaintext;
        aesmodel::add(expected, aesmodel::expand_key(key)[0]);
        EXPECT_EQ(b, expected);

        for (int r = 1; r < nr; ++r) {
            b = kAppendixCPlaintext;
            rijndaelEncryptRound(ek, nr, b.data(), r);
            EXPECT_EQ(b, aesmodel::encrypt_rounds(key, kAppendixCPlaintext, r)) << "rounds " << r;
        }

        // Beyond Nr: Nr-1 full rounds and no final round.
        b = kAppendixCPlaintext;
        rijndaelEncryptRound(ek, nr, b.data(), nr + 1);
        EXPECT_EQ(b, aesmodel::encrypt_rounds(key, kAppendixCPlaintext, nr - 1));
    }
}

TEST(AesCore, AppendixCRoundStartValues)
{
    // FIPS-197 C.1: round[2].start and round[10].start.
    const Bytes key = counting_key(128);
    uint32_t ek[RIJNDAEL_MAX_SCHEDULE_WORDS], dk[RIJNDAEL_MAX_SCHEDULE_WORDS];
    rijndaelKeySetupEnc(ek, key.data(), 128);
    rijndaelKeySetupDec(dk, key.data(), 128);
    Block b = kAppendixCPlaintext;
    rijndaelEncryptRound(ek, 10, b.data(), 1);
    EXPECT_EQ(b, block_from_hex("89d810e8855ace682d1843d8cb128fe4"));
    b = kAppendixCPlaintext;
    rijndaelEncryptRound(ek, 10, b.data(), 9);
    EXPECT_EQ(b, block_from_hex("bd6e7c3df2b5779e0b61216e8b10b689"));
    // Equivalent inverse cipher round[1].is_box.
    b = block_from_hex(kAppendixC[0].ciphertext);
    rijndaelDecryptRound(dk, 10, b.data(), 1);
    EXPECT_EQ(b, block_from_hex("bd6e7c3df2b5779e0b61216e8b10b689"));
}

TEST(AesCore, DecryptRoundLimitsAreNotTheMirrorOfEncryption)
{
    for (int bits = 128; bits <= 256; bits += 64) {
        SCOPED_TRACE(bits);
        const Bytes key = counting_key(bits);
        uint32_t ek[RIJNDAEL_MAX_SCHEDULE_WORDS], dk[RIJNDAEL_MAX_SCHEDULE_WORDS];
        const int nr = rijndaelKeySetupEnc(ek, key.data(), bits);
        rijndaelKeySetupDec(dk, key.data(), bits);
        Block ct;
        rijndaelEncrypt(ek, nr, kAppendixCPlaintext.data(), ct.data());

        Block b = ct;
        rijndaelDecryptRound(dk, nr, b.data(), nr);
        EXPECT_EQ(b, kAppendixCPlaintext);

        for (int r = 0; r <= nr + 1; ++r) {
            b = ct;
            rijndaelDecryptRound(dk, nr, b.data(), r);
            EXPECT_EQ(b, aesmodel::decrypt_rounds(key, ct, r)) << "rounds " << r;
        }

        // 1 <= rounds < Nr: rounds-1 full rounds and an unkeyed
        // InvShiftRows/InvSubBytes land on the encryption state after
        // Nr-rounds full rounds, with its round key.
        for (int r = 1; r < nr; ++r) {
            b = ct;
            rijndaelDecryptRound(dk, nr, b.data(), r);
            Block e = kAppendixCPlaintext;
            rijndaelEncryptRound(ek, nr, e.data(), nr - r);
            EXPECT_EQ(b, e) << "rounds " << r;
        }

        // rounds 0 and 1 give the same block: the substitution is applied
        // even when no full round ran.
        Block zero = ct, one = ct;
        rijndaelDecryptRound(dk, nr, zero.data(), 0);
        rijndaelDecryptRound(dk, nr, one.data(), 1);
        EXPECT_EQ(zero, one);
    }
}
