/*
 * rmcpp AES (Rijndael) block cipher: core routines, cipher API and the
 * test-vector generator routines. Included by rmcpp.h; plain C (C99).
 *
 * Byte order: a 16-byte block is four 32-bit words loaded big-endian
 * (byte 0 is the most significant byte of word 0), whatever the host.
 */
#ifndef RMCPP_AES_H
#define RMCPP_AES_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef RMCPP_API
#define RMCPP_API __attribute__((visibility("default")))
#endif

/* ------------------------------------------------------------ core */

/* Largest key schedule: 4 * (14 + 1) words for a 256-bit key. */
#define RIJNDAEL_MAX_SCHEDULE_WORDS 60

/* Round tables, 256 words each (FIPS-197 S-box and inverse S-box with
 * MixColumns / InvMixColumns folded in), and the 10 round constants. */
RMCPP_API extern const uint32_t Te0[256];
RMCPP_API extern const uint32_t Te1[256];
RMCPP_API extern const uint32_t Te2[256];
RMCPP_API extern const uint32_t Te3[256];
RMCPP_API extern const uint32_t Te4[256];
RMCPP_API extern const uint32_t Td0[256];
RMCPP_API extern const uint32_t Td1[256];
RMCPP_API extern const uint32_t Td2[256];
RMCPP_API extern const uint32_t Td3[256];
RMCPP_API extern const uint32_t Td4[256];
RMCPP_API extern const uint32_t rcon[10];

/* Key expansion. Returns Nr (10, 12, 14), or 0 when keyBits is not 128,
 * 192 or 256. cipherKey must be readable for 32 bytes in that failing case
 * (up to eight key words are loaded before keyBits is judged). */
RMCPP_API int rijndaelKeySetupEnc(uint32_t rk[], const uint8_t cipherKey[], int keyBits);
/* The equivalent-inverse-cipher schedule for rijndaelDecrypt. */
RMCPP_API int rijndaelKeySetupDec(uint32_t rk[], const uint8_t cipherKey[], int keyBits);
/* One block; output may be the same buffer as input. */
RMCPP_API void rijndaelEncrypt(const uint32_t rk[], int Nr, const uint8_t pt[16], uint8_t ct[16]);
RMCPP_API void rijndaelDecrypt(const uint32_t rk[], int Nr, const uint8_t ct[16], uint8_t pt[16]);
/* Round-limited transforms in place, for printing intermediate values.
 * They are deliberately not mirror images of each other:
 *  - rijndaelEncryptRound: 0 < rounds < Nr leaves the state after that many
 *    full rounds; rounds == Nr the ciphertext; rounds > Nr Nr-1 full rounds.
 *  - rijndaelDecryptRound: rounds-1 full rounds, then InvShiftRows and
 *    InvSubBytes always, the round key only when rounds == Nr. */
RMCPP_API void rijndaelEncryptRound(const uint32_t rk[], int Nr, uint8_t block[16], int rounds);
RMCPP_API void rijndaelDecryptRound(const uint32_t rk[], int Nr, uint8_t block[16], int rounds);

/* ------------------------------------------------------------ cipher API */

#define DIR_ENCRYPT_KEY 0
#define DIR_DECRYPT_KEY 1

#define MODE_ECB_BLOCKS 1
#define MODE_CBC_BLOCKS 2
#define MODE_CFB1_BITS 3

#define ERR_KEY_DIRECTION (-1)
#define ERR_KEY_MATERIAL (-2)
#define ERR_KEY_RECORD (-3)
#define ERR_CIPHER_MODE (-4)
#define ERR_CIPHER_STATE (-5)
#define ERR_CIPHER_IV (-7)
#define ERR_PADDING (-8)

/* 64 hexadecimal digits, a terminating NUL, padding to a word boundary. */
#define KEY_MATERIAL_SIZE 68

typedef struct KeyRecord {
    uint8_t direction;                   /* DIR_ENCRYPT_KEY or DIR_DECRYPT_KEY */
    int32_t keyLen;                      /* bits: 128, 192 or 256 */
    char keyMaterial[KEY_MATERIAL_SIZE]; /* the key as hexadecimal text */
    int32_t Nr;                          /* 10, 12 or 14 */
    uint32_t rk[RIJNDAEL_MAX_SCHEDULE_WORDS]; /* schedule of the key's direction */
    uint32_t ek[RIJNDAEL_MAX_SCHEDULE_WORDS]; /* encryption schedule, for CFB-1 */
} KeyRecord;

typedef struct CipherRecord {
    uint8_t mode;   /* MODE_ECB_BLOCKS, MODE_CBC_BLOCKS or MODE_CFB1_BITS */
    uint8_t IV[16]; /* binary */
} CipherRecord;

/* Returns 1 or an ERR_* code. keyMaterial: keyLen/4 hexadecimal digits, or
 * null to reuse the text already in the record. */
RMCPP_API int32_t makeKey(KeyRecord *key, uint8_t direction, int32_t keyLen, const char *keyMaterial);
/* Returns 1 or an ERR_* code. IV: 32 hexadecimal digits, or null for zeros. */
RMCPP_API int32_t cipherInit(CipherRecord *cipher, uint8_t mode, const char *IV);
/* Lengths in bits; whole 128-bit blocks only. Returns the bits processed.
 * CBC encryption never advances the record's IV; CBC decryption does. */
RMCPP_API int32_t blockEncrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputLen,
                               uint8_t *outBuffer);
RMCPP_API int32_t blockDecrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputLen,
                               uint8_t *outBuffer);
/* Lengths in bytes (ECB and CBC). padEncrypt returns the bytes written,
 * padDecrypt the plaintext length. */
RMCPP_API int32_t padEncrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputOctets,
                             uint8_t *outBuffer);
RMCPP_API int32_t padDecrypt(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputOctets,
                             uint8_t *outBuffer);
/* One block through the round-limited core routine of the key's direction. */
RMCPP_API int32_t cipherUpdateRounds(CipherRecord *cipher, KeyRecord *key, const uint8_t *input, int32_t inputLen,
                                     uint8_t *outBuffer, int32_t rounds);

/* ------------------------------------------------------------ test vectors */

/* The "Principal Submitter" of every generated file. */
#define SUBMITTER_NAME "rmcpp AES test-vector generator"

/* "label=" and 16 bytes as upper-case hexadecimal, a newline, flushed. */
RMCPP_API void blockPrint(FILE *fp, const uint8_t *block, const char *tag);

/* Known-answer files. makeKATs reads table.128, table.192 and table.256
 * from the current directory and ends the process with status 1 when one
 * is missing. */
RMCPP_API int makeKATs(const char *vkFile, const char *vtFile, const char *tblFile, const char *ivFile);
RMCPP_API int rijndaelVKKAT(FILE *fp, int keyLength);
RMCPP_API int rijndaelVTKAT(FILE *fp, int keyLength);
RMCPP_API int rijndaelTKAT(FILE *fp, int keyLength, FILE *in);
RMCPP_API int rijndaelIVKAT(FILE *fp, int keyLength);

/* Monte Carlo files; direction DIR_ENCRYPT_KEY or DIR_DECRYPT_KEY. */
RMCPP_API int makeMCTs(const char *ecbEncryptionFile, const char *ecbDecryptionFile,
                       const char *cbcEncryptionFile, const char *cbcDecryptionFile);
RMCPP_API int rijndaelECB_MCT(FILE *fp, int keyLength, uint8_t direction);
RMCPP_API int rijndaelCBC_MCT(FILE *fp, int keyLength, uint8_t direction);

/* Key schedules and intermediate values of the FIPS-197 Appendix C example. */
RMCPP_API int makeFIPSTestVectors(const char *fipsFile);

/* Times 10,000,000 calls each of the four core routines; prints Mbit/s. */
RMCPP_API void rijndaelSpeed(int keyBits);

#ifdef __cplusplus
}
#endif

#endif /* RMCPP_AES_H */
