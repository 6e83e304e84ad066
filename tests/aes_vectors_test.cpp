// rmcpp-aes-vectors, run in a scratch directory: every file it writes is
// rebuilt here independently (OpenSSL's EVP AES for every block, a plain
// byte-oriented model for round keys and round-by-round states) and
// compared byte for byte, and the layout lines are checked one by one.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "aes_reference_model.h"
#include "rmcpp_aes.h"

#ifndef RMCPP_AES_VECTORS_PROGRAM
#error "RMCPP_AES_VECTORS_PROGRAM must name the rmcpp-aes-vectors program"
#endif
#ifndef RMCPP_AES_TABLE_DIR
#error "RMCPP_AES_TABLE_DIR must name the directory holding table.128, table.192 and table.256"
#endif

namespace fs = std::filesystem;
using aesmodel::Block;
using aesmodel::Bytes;
using aesmodel::to_hex;

namespace {

class ScratchDir {
public:
    ScratchDir()
    {
        std::string pattern = (fs::temp_directory_path() / "rmcpp-aes-vectors-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
        path_ = pattern;
    }
    ~ScratchDir()
    {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    const fs::path &path() const { return path_; }

private:
    fs::path path_;
};

struct ProgramRun {
    int status = -1;
    std::string out;
};

std::string read_file(const fs::path &p)
{
    std::ifstream in(p, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// Runs the program with `dir` as its current directory; standard output
// goes to a file beside the directory.
ProgramRun run_in(const fs::path &dir)
{
    const fs::path outPath = dir.string() + ".stdout";
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd < 0 || dup2(fd, 1) < 0 || chdir(dir.c_str()) != 0) _exit(126);
        execl(RMCPP_AES_VECTORS_PROGRAM, RMCPP_AES_VECTORS_PROGRAM, static_cast<char *>(nullptr));
        _exit(127);
    }
    ProgramRun run;
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) run.status = WEXITSTATUS(status);
    run.out = read_file(outPath);
    fs::remove(outPath);
    return run;
}

void copy_tables(const fs::path &dir, std::initializer_list<int> sizes)
{
    for (int bits : sizes) {
        const std::string name = "table." + std::to_string(bits);
        fs::copy_file(fs::path(RMCPP_AES_TABLE_DIR) / name, dir / name);
    }
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::string line;
    std::istringstream in(text);
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

// Equal, or a failure naming the first differing line.
::testing::AssertionResult same_text(const std::string &actual, const std::string &expected)
{
    if (actual == expected) return ::testing::AssertionSuccess();
    const auto a = lines_of(actual), e = lines_of(expected);
    for (size_t i = 0; i < std::max(a.size(), e.size()); ++i) {
        const std::string al = i < a.size() ? a[i] : "<end of file>";
        const std::string el = i < e.size() ? e[i] : "<end of file>";
        if (al != el)
            return ::testing::AssertionFailure() << "line " << i + 1 << ": got [" << al << "], expected [" << el << "]";
    }
    return ::testing::AssertionFailure() << "files differ in their final bytes (" << actual.size() << " vs "
                                         << expected.size() << " bytes)";
}

// ------------------------------------------------------------ expected text

std::string header(const std::string &file, const std::string &mode, const std::string &test)
{
    return "\n=========================\n\nFILENAME:  \"" + file + "\"\n\n" + mode + "\n" + test +
           "\n\nAlgorithm Name: Rijndael\nPrincipal Submitter: " SUBMITTER_NAME "\n";
}

const char kKatFooter[] = "\n==========";
const char kMctFooter[] = "\n===========";

std::string keysize(int bits) { return "KEYSIZE=" + std::to_string(bits) + "\n"; }

template <typename C>
std::string line(const std::string &label, const C &bytes)
{
    return label + "=" + to_hex(bytes) + "\n";
}

Bytes counting_bytes(int n)
{
    Bytes b(n);
    for (int i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(i);
    return b;
}

std::string round_key_lines(const std::vector<Block> &keys)
{
    std::string s;
    for (size_t r = 0; r < keys.size(); ++r) s += line("RK" + std::to_string(r), keys[r]);
    return s;
}

std::string intermediate_values(const Bytes &key, const Block &pt)
{
    const int nr = aesmodel::rounds_for(key.size());
    const Block ct = aesmodel::evp_encrypt(key, pt);
    std::string s = "\nIntermediate Ciphertext Values (Encryption)\n\n" + line("PT", pt);
    for (int r = 1; r < nr; ++r) s += line("CT" + std::to_string(r), aesmodel::encrypt_rounds(key, pt, r));
    s += line("CT", ct);
    return s;
}

std::string inverse_intermediate_values(const Bytes &key, const Block &pt)
{
    const int nr = aesmodel::rounds_for(key.size());
    const Block ct = aesmodel::evp_encrypt(key, pt);
    std::string s = "\nIntermediate Ciphertext Values (Decryption)\n\n" + line("CT", ct);
    for (int r = 1; r < nr; ++r) s += line("PT" + std::to_string(r), aesmodel::decrypt_rounds(key, ct, r));
    s += line("PT", aesmodel::evp_decrypt(key, ct));
    return s;
}

std::string expected_fips()
{
    std::string s = "\n================================\n\nFILENAME:  \"fips-test-vectors.txt\"\n\nFIPS Test Vectors\n";
    for (int bits = 128; bits <= 256; bits += 64) {
        const Bytes key = counting_bytes(bits / 8);
        Block pt;
        for (int i = 0; i < 16; ++i) pt[i] = static_cast<uint8_t>(17 * i);
        s += "\n================================\n\n" + keysize(bits) + "\n" + line("KEY", key) + "\n";
        s += bits == 128 ? "Round Subkey Values (Encryption)\n\n" : "\nRound Subkey Values (Encryption)\n\n";
        s += round_key_lines(aesmodel::expand_key(key));
        s += intermediate_values(key, pt);
        s += "\nRound Subkey Values (Decryption)\n\n" + round_key_lines(aesmodel::inverse_key_schedule(key));
        s += inverse_intermediate_values(key, pt);
    }
    return s;
}

std::string expected_vk()
{
    std::string s = header("ecb_vk.txt", "Electronic Codebook (ECB) Mode", "Variable Key Known Answer Tests");
    const Block pt{};
    for (int bits = 128; bits <= 256; bits += 64) {
        s += "\n==========\n\n" + keysize(bits) + "\n" + line("PT", pt);
        for (int i = 0; i < bits; ++i) {
            Bytes key(bits / 8, 0);
            key[i / 8] = static_cast<uint8_t>(0x80 >> (i % 8));
            s += "\nI=" + std::to_string(i + 1) + "\n" + line("KEY", key) + line("CT", aesmodel::evp_encrypt(key, pt));
        }
    }
    return s + kKatFooter;
}

std::string expected_vt()
{
    std::string s = header("ecb_vt.txt", "Electronic Codebook (ECB) Mode", "Variable Text Known Answer Tests");
    for (int bits = 128; bits <= 256; bits += 64) {
        const Bytes key(bits / 8, 0);
        s += "\n==========\n\n" + keysize(bits) + "\n" + line("KEY", key);
        aesmodel::Oracle encrypt(key, true);
        for (int i = 0; i < 128; ++i) {
            Block pt{};
            pt[i / 8] = static_cast<uint8_t>(0x80 >> (i % 8));
            s += "\nI=" + std::to_string(i + 1) + "\n" + line("PT", pt) + line("CT", encrypt(pt));
        }
    }
    return s + kKatFooter;
}

const char kTablesDescription[] =
    "/* Description of what tables are tested:\n"
    "   The provided implementations each use a different set of tables\n"
    "    - a bit-serial implementation uses no tables\n"
    "    - a byte-oriented implementation uses Logtable, Alogtable, S, Si, rcon\n"
    "    - the table-driven implementation of this library uses rcon and additionally\n"
    "        Te0, Te1, Te2, Te3, Te4, Td0, Td1, Td2, Td3, Td4.\n"
    "   All these tables are tested.\n\n";

// Records of a table file: "<key hex> <plaintext hex>" per line.
std::vector<std::pair<std::string, std::string>> table_records(int bits)
{
    std::ifstream in(fs::path(RMCPP_AES_TABLE_DIR) / ("table." + std::to_string(bits)));
    std::vector<std::pair<std::string, std::string>> records;
    std::string key, pt;
    while (in >> key >> pt) records.emplace_back(key, pt);
    return records;
}

std::string expected_tbl()
{
    std::string s = kTablesDescription;
    s += header("ecb_tbl.txt", "Electronic Codebook (ECB) Mode", "Tables Known Answer Tests");
    for (int bits = 128; bits <= 256; bits += 64) {
        s += "\n==========\n\n" + keysize(bits) + "\n";
        int i = 0;
        for (const auto &[keyText, ptText] : table_records(bits)) {
            const Block pt = aesmodel::block_from_hex(ptText);
            s += "\nI=" + std::to_string(++i) + "\nKEY=" + keyText + "\n" + line("PT", pt) +
                 line("CT", aesmodel::evp_encrypt(aesmodel::from_hex(keyText), pt));
        }
    }
    return s + kKatFooter;
}

std::string expected_iv()
{
    std::string s = header("ecb_iv.txt", "Electronic Codebook (ECB) Mode", "Intermediate Value Known Answer Tests");
    for (int bits = 128; bits <= 256; bits += 64) {
        const Bytes key = counting_bytes(bits / 8);
        Block pt;
        for (int i = 0; i < 16; ++i) pt[i] = static_cast<uint8_t>(i);
        s += "\n==========\n\n" + keysize(bits) + line("KEY", key);
        s += intermediate_values(key, pt) + inverse_intermediate_values(key, pt);
    }
    return s + kKatFooter;
}

void next_key(Bytes &key, const uint8_t *earlier, const Block &last)
{
    const size_t n = key.size();
    if (n == 24)
        for (int i = 0; i < 8; ++i) key[i] ^= earlier[8 + i];
    if (n == 32)
        for (int i = 0; i < 16; ++i) key[i] ^= earlier[i];
    for (int i = 0; i < 16; ++i) key[n - 16 + i] ^= last[i];
}

std::string expected_ecb_mct(bool encrypt)
{
    const std::string file = encrypt ? "ecb_e_m.txt" : "ecb_d_m.txt";
    std::string s = header(file, std::string("Electronic Codebook (ECB) Mode - ") + (encrypt ? "ENCRYPTION" : "DECRYPTION"),
                           "Monte Carlo Test");
    const char *inLabel = encrypt ? "PT" : "CT";
    const char *outLabel = encrypt ? "CT" : "PT";
    for (int bits = 128; bits <= 256; bits += 64) {
        s += "\n=========================\n\n" + keysize(bits);
        Bytes key(bits / 8, 0);
        Block block{}, previous{};
        for (int i = 0; i < 400; ++i) {
            s += "\nI=" + std::to_string(i) + "\n" + line("KEY", key) + line(inLabel, block);
            aesmodel::Oracle oracle(key, encrypt);
            for (int j = 0; j < 10000; ++j) {
                previous = block;
                oracle.run(previous.data(), block.data());
            }
            s += line(outLabel, block);
            next_key(key, previous.data(), block);
        }
    }
    return s + kMctFooter;
}

std::string expected_cbc_mct(bool encrypt)
{
    const std::string file = encrypt ? "cbc_e_m.txt" : "cbc_d_m.txt";
    std::string s = header(file, std::string("Cipher Block Chaining (CBC) Mode - ") + (encrypt ? "ENCRYPTION" : "DECRYPTION"),
                           "Monte Carlo Test");
    for (int bits = 128; bits <= 256; bits += 64) {
        s += "\n==========\n\n" + keysize(bits);
        Bytes key(bits / 8, 0);
        Block in{}, out{}, cv{};
        for (int i = 0; i < 400; ++i) {
            s += "\nI=" + std::to_string(i) + "\n" + line("KEY", key) + line("IV", cv) + line(encrypt ? "PT" : "CT", in);
            aesmodel::Oracle oracle(key, encrypt);
            for (int j = 0; j < 10000; ++j) {
                if (encrypt) {
                    for (int k = 0; k < 16; ++k) in[k] ^= cv[k];
                    oracle.run(in.data(), out.data());
                    in = cv;
                    cv = out;
                } else {
                    oracle.run(in.data(), out.data());
                    for (int k = 0; k < 16; ++k) out[k] ^= cv[k];
                    cv = in;
                    in = out;
                }
            }
            s += line(encrypt ? "CT" : "PT", out);
            next_key(key, encrypt ? in.data() : cv.data(), out);
        }
    }
    return s + kMctFooter;
}

int count_of(const std::string &text, const std::string &needle)
{
    int n = 0;
    for (size_t pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + 1)) ++n;
    return n;
}

// Text of the section from "KEYSIZE=<bits>" up to the next '=' rule.
std::string section(const std::string &text, int bits)
{
    const size_t start = text.find("KEYSIZE=" + std::to_string(bits) + "\n");
    if (start == std::string::npos) return {};
    const size_t end = text.find("\n==========", start);
    return text.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

// ------------------------------------------------------------ the full run

class AesVectorFiles : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        dir_ = new ScratchDir;
        copy_tables(dir_->path(), {128, 192, 256});
        run_ = new ProgramRun(run_in(dir_->path()));
    }
    static void TearDownTestSuite()
    {
        delete run_;
        delete dir_;
    }
    static std::string file(const std::string &name) { return read_file(dir_->path() / name); }
    static const ProgramRun &run() { return *run_; }
    static const fs::path &dir() { return dir_->path(); }

private:
    static ScratchDir *dir_;
    static ProgramRun *run_;
};
ScratchDir *AesVectorFiles::dir_ = nullptr;
ProgramRun *AesVectorFiles::run_ = nullptr;

}  // namespace

TEST_F(AesVectorFiles, ProgramSucceedsAndWritesExactlyItsFiles)
{
    EXPECT_EQ(run().status, 0);
    const std::set<std::string> expected = {"fips-test-vectors.txt", "ecb_vk.txt", "ecb_vt.txt", "ecb_tbl.txt",
                                            "ecb_iv.txt", "ecb_e_m.txt", "ecb_d_m.txt", "cbc_e_m.txt",
                                            "cbc_d_m.txt", "table.128", "table.192", "table.256"};
    std::set<std::string> present;
    for (const auto &entry : fs::directory_iterator(dir())) present.insert(entry.path().filename().string());
    EXPECT_EQ(present, expected);
}

TEST_F(AesVectorFiles, ProgressOnStandardOutput)
{
    const std::string &out = run().out;
    EXPECT_EQ(out.rfind("Generating FIPS test vectors... done.\n", 0), 0u) << out.substr(0, 80);
    for (int bits = 128; bits <= 256; bits += 64) {
        const std::string k = std::to_string(bits);
        EXPECT_NE(out.find("Executing Variable-Key KAT (key " + k + "):  done.\n"), std::string::npos) << k;
        EXPECT_NE(out.find("Executing Variable-Text KAT (key " + k + "):  done.\n"), std::string::npos) << k;
        EXPECT_NE(out.find("Executing Tables KAT (key " + k + "):  done.\n"), std::string::npos) << k;
        EXPECT_NE(out.find("Executing Intermediate value KAT (key " + k + "):  done.\n"), std::string::npos) << k;
        for (const char *mode : {"ECB", "CBC"})
            for (const char *dir : {"ENCRYPT", "DECRYPT"}) {
                // The count erased with backspaces before each new number.
                const std::string start = std::string("Executing ") + mode + " MCT (" + dir + ", key " + k +
                                          "): 0\b1\b2\b3\b4\b5\b6\b7\b8\b9\b10\b\b11";
                const size_t at = out.find(start);
                ASSERT_NE(at, std::string::npos) << mode << " " << dir << " " << k;
                const std::string doneText = "\b\b\b400 done (";
                const size_t done = out.find(doneText, at);
                ASSERT_NE(done, std::string::npos) << mode << " " << dir << " " << k;
                EXPECT_NE(out.find("\b\b\b399\b\b\b400 done (", at), std::string::npos);
                const size_t end = out.find(" s).\n", done);
                ASSERT_NE(end, std::string::npos);
                const size_t from = done + doneText.size();
                const std::string seconds = out.substr(from, end - from);
                EXPECT_TRUE(seconds.size() >= 3 && seconds[seconds.size() - 2] == '.' &&
                            seconds.find_first_not_of("0123456789.") == std::string::npos)
                    << seconds;
            }
    }
}

TEST_F(AesVectorFiles, FipsFileMatchesIndependentComputation)
{
    EXPECT_TRUE(same_text(file("fips-test-vectors.txt"), expected_fips()));
}

TEST_F(AesVectorFiles, FipsFileHoldsTheAppendixCExample)
{
    const std::string text = file("fips-test-vectors.txt");
    const std::string s128 = section(text, 128);
    EXPECT_NE(s128.find("\nKEY=000102030405060708090A0B0C0D0E0F\n"), std::string::npos);
    EXPECT_NE(s128.find("\nCT=69C4E0D86A7B0430D8CDB78070B4C55A\n"), std::string::npos);
    // FIPS-197 key expansion of 000102..0f, as listed round by round in
    // Appendix C.1.
    const char *rk[] = {"000102030405060708090A0B0C0D0E0F", "D6AA74FDD2AF72FADAA678F1D6AB76FE",
                        "B692CF0B643DBDF1BE9BC5006830B3FE", "B6FF744ED2C2C9BF6C590CBF0469BF41",
                        "47F7F7BC95353E03F96C32BCFD058DFD", "3CAAA3E8A99F9DEB50F3AF57ADF622AA",
                        "5E390F7DF7A69296A7553DC10AA31F6B", "14F9701AE35FE28C440ADF4D4EA9C026",
                        "47438735A41C65B9E016BAF4AEBF7AD2", "549932D1F08557681093ED9CBE2C974E",
                        "13111D7FE3944A17F307A78B4D2B30C5"};
    std::string expected = "Round Subkey Values (Encryption)\n\n";
    for (int r = 0; r <= 10; ++r) expected += "RK" + std::to_string(r) + "=" + rk[r] + "\n";
    EXPECT_NE(s128.find(expected), std::string::npos);
    EXPECT_EQ(s128.find("Round Subkey Values (Encryption)"), s128.find(expected));
    // Every key size: the decryption section ends with the plaintext.
    const char *ct[] = {"69C4E0D86A7B0430D8CDB78070B4C55A", "DDA97CA4864CDFE06EAF70A0EC0D7191",
                        "8EA2B7CA516745BFEAFC49904B496089"};
    for (int i = 0; i < 3; ++i) {
        const std::string s = section(text, 128 + 64 * i);
        EXPECT_NE(s.find("\n\nCT=" + std::string(ct[i]) + "\n"), std::string::npos);
        const std::string tail = "PT=00112233445566778899AABBCCDDEEFF\n";
        ASSERT_GE(s.size(), tail.size());
        EXPECT_EQ(s.substr(s.size() - tail.size()), tail) << 128 + 64 * i;
    }
}

TEST_F(AesVectorFiles, VariableKeyFileMatchesOpenSsl) { EXPECT_TRUE(same_text(file("ecb_vk.txt"), expected_vk())); }
TEST_F(AesVectorFiles, VariableTextFileMatchesOpenSsl) { EXPECT_TRUE(same_text(file("ecb_vt.txt"), expected_vt())); }
TEST_F(AesVectorFiles, TablesFileMatchesOpenSsl) { EXPECT_TRUE(same_text(file("ecb_tbl.txt"), expected_tbl())); }
TEST_F(AesVectorFiles, IntermediateValueFileMatchesModel) { EXPECT_TRUE(same_text(file("ecb_iv.txt"), expected_iv())); }
TEST_F(AesVectorFiles, EcbEncryptMonteCarloMatchesOpenSsl)
{
    EXPECT_TRUE(same_text(file("ecb_e_m.txt"), expected_ecb_mct(true)));
}
TEST_F(AesVectorFiles, EcbDecryptMonteCarloMatchesOpenSsl)
{
    EXPECT_TRUE(same_text(file("ecb_d_m.txt"), expected_ecb_mct(false)));
}
TEST_F(AesVectorFiles, CbcEncryptMonteCarloMatchesOpenSsl)
{
    EXPECT_TRUE(same_text(file("cbc_e_m.txt"), expected_cbc_mct(true)));
}
TEST_F(AesVectorFiles, CbcDecryptMonteCarloMatchesOpenSsl)
{
    EXPECT_TRUE(same_text(file("cbc_d_m.txt"), expected_cbc_mct(false)));
}

TEST_F(AesVectorFiles, HeadersOfEveryFile)
{
    const std::map<std::string, std::pair<std::string, std::string>> files = {
        {"ecb_vk.txt", {"Electronic Codebook (ECB) Mode", "Variable Key Known Answer Tests"}},
        {"ecb_vt.txt", {"Electronic Codebook (ECB) Mode", "Variable Text Known Answer Tests"}},
        {"ecb_tbl.txt", {"Electronic Codebook (ECB) Mode", "Tables Known Answer Tests"}},
        {"ecb_iv.txt", {"Electronic Codebook (ECB) Mode", "Intermediate Value Known Answer Tests"}},
        {"ecb_e_m.txt", {"Electronic Codebook (ECB) Mode - ENCRYPTION", "Monte Carlo Test"}},
        {"ecb_d_m.txt", {"Electronic Codebook (ECB) Mode - DECRYPTION", "Monte Carlo Test"}},
        {"cbc_e_m.txt", {"Cipher Block Chaining (CBC) Mode - ENCRYPTION", "Monte Carlo Test"}},
        {"cbc_d_m.txt", {"Cipher Block Chaining (CBC) Mode - DECRYPTION", "Monte Carlo Test"}},
    };
    for (const auto &[name, lines] : files) {
        const std::string text = file(name);
        const std::string h = "\n=========================\n\nFILENAME:  \"" + name + "\"\n\n" + lines.first + "\n" +
                              lines.second + "\n\nAlgorithm Name: Rijndael\nPrincipal Submitter: " SUBMITTER_NAME "\n";
        if (name == "ecb_tbl.txt") {
            EXPECT_EQ(text.rfind("/* Description of what tables are tested:\n"
                                 "   The provided implementations each use a different set of tables\n",
                                 0),
                      0u);
            EXPECT_NE(text.find("uses no tables"), std::string::npos);
            EXPECT_NE(text.find("uses Logtable, Alogtable, S, Si, rcon"), std::string::npos);
            EXPECT_NE(text.find("uses rcon and additionally\n        Te0, Te1, Te2, Te3, Te4, Td0, Td1, Td2, Td3, Td4."),
                      std::string::npos);
            EXPECT_NE(text.find("All these tables are tested.\n\n" + h), std::string::npos);
        } else {
            EXPECT_EQ(text.rfind(h, 0), 0u) << name;
        }
    }
    EXPECT_EQ(file("fips-test-vectors.txt").rfind("\n================================\n\nFILENAME:  "
                                                  "\"fips-test-vectors.txt\"\n\nFIPS Test Vectors\n",
                                                  0),
              0u);
}

TEST_F(AesVectorFiles, SectionOpenersAndFooters)
{
    for (const char *name : {"ecb_vk.txt", "ecb_vt.txt", "ecb_tbl.txt", "ecb_iv.txt"}) {
        const std::string text = file(name);
        const bool iv = std::string(name) == "ecb_iv.txt";
        for (int bits = 128; bits <= 256; bits += 64) {
            const std::string opener = "\n==========\n\nKEYSIZE=" + std::to_string(bits) + (iv ? "\nKEY=" : "\n\n");
            EXPECT_EQ(count_of(text, opener), 1) << name << " " << bits;
        }
        // Ten '=' after the last record's newline, and nothing more.
        ASSERT_GE(text.size(), 12u);
        EXPECT_EQ(text.substr(text.size() - 12), "\n\n==========") << name;
    }
    for (const char *name : {"ecb_e_m.txt", "ecb_d_m.txt", "cbc_e_m.txt", "cbc_d_m.txt"}) {
        const std::string text = file(name);
        const bool ecb = name[0] == 'e';
        for (int bits = 128; bits <= 256; bits += 64) {
            const std::string opener = std::string(ecb ? "\n=========================\n\n" : "\n==========\n\n") +
                                       "KEYSIZE=" + std::to_string(bits) + "\n\nI=0\n";
            EXPECT_EQ(count_of(text, opener), 1) << name << " " << bits;
        }
        // Eleven '=' for the Monte Carlo files.
        ASSERT_GE(text.size(), 13u);
        EXPECT_EQ(text.substr(text.size() - 13), "\n\n===========") << name;
    }
}

TEST_F(AesVectorFiles, MonteCarloFilesHold400RecordsPerKeySize)
{
    for (const char *name : {"ecb_e_m.txt", "ecb_d_m.txt", "cbc_e_m.txt", "cbc_d_m.txt"}) {
        const std::string text = file(name);
        EXPECT_EQ(count_of(text, "KEYSIZE="), 3) << name;
        for (int bits = 128; bits <= 256; bits += 64) {
            const std::string s = section(text, bits);
            EXPECT_EQ(count_of(s, "\nI="), 400) << name << " " << bits;
            EXPECT_EQ(count_of(s, "\nKEY="), 400) << name << " " << bits;
            EXPECT_NE(s.find("\nI=399\n"), std::string::npos) << name << " " << bits;
            EXPECT_EQ(s.find("\nI=400\n"), std::string::npos) << name << " " << bits;
        }
    }
}

TEST_F(AesVectorFiles, KnownAnswerRecordCounts)
{
    for (int bits = 128; bits <= 256; bits += 64) {
        EXPECT_EQ(count_of(section(file("ecb_vk.txt"), bits), "\nI="), bits);
        EXPECT_EQ(count_of(section(file("ecb_vt.txt"), bits), "\nI="), 128);
        EXPECT_EQ(count_of(section(file("ecb_tbl.txt"), bits), "\nI="), static_cast<int>(table_records(bits).size()));
        EXPECT_FALSE(table_records(bits).empty());
    }
}

// ------------------------------------------------------------ missing tables

TEST(AesVectorTables, MissingTableFilesStopTheProgram)
{
    const std::vector<std::pair<std::vector<int>, std::string>> cases = {
        {{}, "Table Known Answer test expects file table.128\n"},
        {{128}, "Table Known Answer test expects file table.192\n"},
        {{192, 256}, "Table Known Answer test expects file table.128\n"},
        // table.256 missing: the message still names table.192.
        {{128, 192}, "Table Known Answer test expects file table.192\n"},
    };
    for (const auto &[present, message] : cases) {
        ScratchDir dir;
        for (int bits : present) copy_tables(dir.path(), {bits});
        const ProgramRun r = run_in(dir.path());
        SCOPED_TRACE(present.size());
        EXPECT_EQ(r.status, 1);
        ASSERT_GE(r.out.size(), message.size());
        EXPECT_EQ(r.out.substr(r.out.size() - message.size()), message);
        // Files before the tables test are complete, the tables file is
        // closed where it stopped, later files are not written.
        EXPECT_TRUE(fs::exists(dir.path() / "ecb_vt.txt"));
        const std::string tbl = read_file(dir.path() / "ecb_tbl.txt");
        EXPECT_NE(tbl.find("Tables Known Answer Tests"), std::string::npos);
        ASSERT_GE(tbl.size(), 11u);
        EXPECT_NE(tbl.substr(tbl.size() - 11), "\n==========") << "no footer";
        EXPECT_EQ(tbl.find("KEYSIZE=192") != std::string::npos, present.size() == 2 && present[0] == 128);
        EXPECT_FALSE(fs::exists(dir.path() / "ecb_iv.txt"));
        EXPECT_FALSE(fs::exists(dir.path() / "ecb_e_m.txt"));
    }
}

TEST(AesVectorTables, MalformedTableRecordStopsTheProgram)
{
    ScratchDir dir;
    copy_tables(dir.path(), {192, 256});
    std::ofstream(dir.path() / "table.128") << "000102 00112233445566778899AABBCCDDEEFF\n";
    const ProgramRun r = run_in(dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(fs::exists(dir.path() / "ecb_iv.txt"));
}
