// Writes the inputs of the tables known-answer test: table.128, table.192
// and table.256, 256 records each, into the directory given as argument.
//
// A record is one line: the key as keyLength/4 upper-case hexadecimal
// digits, one space, the plaintext as 32 digits. Record n (0..255) has key
// byte j = (0x3b * n + 0x61 * j + keyLength / 64) mod 256 and plaintext
// byte j = key byte j XOR n XOR (0x1d * j mod 256), so the first round's
// input byte j is n XOR (0x1d * j mod 256): every byte position meets
// every one of the 256 entries of the round tables.
#include <cstdio>
#include <string>

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s output-directory\n", argv[0]);
        return 2;
    }
    for (int keyLength = 128; keyLength <= 256; keyLength += 64) {
        const std::string path = std::string(argv[1]) + "/table." + std::to_string(keyLength);
        FILE *fp = std::fopen(path.c_str(), "w");
        if (fp == nullptr) {
            std::perror(path.c_str());
            return 1;
        }
        for (int n = 0; n < 256; ++n) {
            unsigned key[32];
            for (int j = 0; j < keyLength / 8; ++j) {
                key[j] = (0x3bu * n + 0x61u * j + keyLength / 64) & 0xff;
                std::fprintf(fp, "%02X", key[j]);
            }
            std::fputc(' ', fp);
            for (int j = 0; j < 16; ++j) std::fprintf(fp, "%02X", (key[j] ^ n ^ (0x1du * j)) & 0xff);
            std::fputc('\n', fp);
        }
        if (std::fclose(fp) != 0) {
            std::perror(path.c_str());
            return 1;
        }
    }
    return 0;
}
