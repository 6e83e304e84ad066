// The exporter's modules file: what it accepts, and for each fault the line
// it names. No message ever carries the password.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "config.h"

namespace {

using exporter::Config;
using exporter::ConfigError;

constexpr const char *kSecret = "s3cr3t-Pa55";

struct Fault {
    int line;
    std::string message;
};

Fault fault_of(const std::string &text, const std::string &base_dir = "")
{
    try {
        exporter::parse_config(text, base_dir);
    } catch (const ConfigError &e) {
        return {e.line, e.what()};
    }
    ADD_FAILURE() << "accepted:\n" << text;
    return {-1, ""};
}

// A scratch directory removed at the end of the test.
class TempDir {
public:
    TempDir()
    {
        char name[] = "/tmp/rmcpp-exporter-config-XXXXXX";
        path = mkdtemp(name);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    std::string write(const std::string &file, const std::string &text) const
    {
        std::string full = path + "/" + file;
        std::ofstream(full, std::ios::binary) << text;
        return full;
    }
    std::string path;
};

TEST(ExporterConfig, TheFullShapeIsRead)
{
    Config c = exporter::parse_config("modules:\n"
                                      "  default:\n"
                                      "    user: admin\n"
                                      "    password: secret\n"
                                      "    privilege: ADMINISTRATOR\n"
                                      "    cipher_suite: 17\n"
                                      "    standard_keys: true\n"
                                      "    ping: true\n"
                                      "    timeout_ms: 2500\n"
                                      "    collectors: [sensors, chassis, sel, device]\n"
                                      "  readonly:\n"
                                      "    user: ''\n"
                                      "    password: ''\n"
                                      "    privilege: user\n"
                                      "    collectors: [sensors]\n",
                                      "");
    ASSERT_EQ(c.modules.size(), 2u);
    const exporter::Module &d = c.modules.at("default");
    EXPECT_EQ(d.name, "default");
    EXPECT_EQ(d.user, "admin");
    EXPECT_EQ(d.password, "secret");
    EXPECT_EQ(d.privilege, 4);
    EXPECT_EQ(d.cipher_suite, 17);
    EXPECT_TRUE(d.standard_keys);
    EXPECT_TRUE(d.ping);
    EXPECT_EQ(d.timeout_ms, 2500);
    EXPECT_EQ(d.collectors, (std::vector<std::string>{"sensors", "chassis", "sel", "device"}));
    const exporter::Module &r = c.modules.at("readonly");
    EXPECT_EQ(r.name, "readonly");
    EXPECT_EQ(r.user, "");
    EXPECT_EQ(r.password, "");
    EXPECT_EQ(r.privilege, 2);
    EXPECT_EQ(r.cipher_suite, 3);
    EXPECT_FALSE(r.standard_keys);
    EXPECT_FALSE(r.ping);
    EXPECT_EQ(r.timeout_ms, 5000);
    EXPECT_EQ(r.collectors, (std::vector<std::string>{"sensors"}));
}

TEST(ExporterConfig, PrivilegeNamesInAnyCase)
{
    const std::pair<const char *, int> names[] = {
        {"CALLBACK", 1}, {"user", 2}, {"Operator", 3}, {"administrator", 4}, {"oem", 5}};
    for (auto [word, level] : names) {
        Config c = exporter::parse_config(
            std::string("modules:\n  m:\n    user: u\n    password: p\n    privilege: ") + word + "\n", "");
        EXPECT_EQ(c.modules.at("m").privilege, level) << word;
    }
    Fault f = fault_of("modules:\n  m:\n    user: u\n    password: p\n    privilege: ROOT\n");
    EXPECT_EQ(f.line, 5);
    EXPECT_EQ(f.message, "privilege must be one of CALLBACK, USER, OPERATOR, ADMINISTRATOR, OEM");
}

TEST(ExporterConfig, CipherSuitesAllowedAndRefused)
{
    for (int id : {0, 1, 2, 3, 15, 16, 17}) {
        Config c = exporter::parse_config(
            "modules:\n  m:\n    user: u\n    password: p\n    cipher_suite: " + std::to_string(id) + "\n", "");
        EXPECT_EQ(c.modules.at("m").cipher_suite, id);
    }
    for (const char *bad : {"4", "14", "18", "-1", "3.0", "three", "[3]"}) {
        Fault f = fault_of(std::string("modules:\n  m:\n    user: u\n    password: p\n\n    cipher_suite: ") + bad +
                           "\n");
        EXPECT_EQ(f.line, 6) << bad;
        EXPECT_EQ(f.message, "cipher_suite must be one of 0-3, 15-17") << bad;
    }
}

TEST(ExporterConfig, LoadConfigPrefixesFileAndLine)
{
    TempDir dir;
    std::string path = dir.write("config.yml", "modules:\n"
                                               "  default:\n"
                                               "    user: admin\n"
                                               "    password: secret\n"
                                               "    privilege: ADMINISTRATOR\n"
                                               "    # the strongest\n"
                                               "    cipher_suite: 5\n");
    try {
        exporter::load_config(path);
        FAIL() << "accepted";
    } catch (const ConfigError &e) {
        EXPECT_EQ(e.line, 7);
        EXPECT_EQ(std::string(e.what()), path + ":7: cipher_suite must be one of 0-3, 15-17");
    }
}

TEST(ExporterConfig, AFileThatCannotBeReadIsAnError)
{
    try {
        exporter::load_config("/nonexistent/rmcpp-exporter.yml");
        FAIL() << "accepted";
    } catch (const ConfigError &e) {
        EXPECT_EQ(e.line, 0);
        EXPECT_NE(std::string(e.what()).find("/nonexistent/rmcpp-exporter.yml"), std::string::npos);
    }
}

TEST(ExporterConfig, ModulesMustBeThereAndNotEmpty)
{
    EXPECT_EQ(fault_of("").message, "the file must be a map with a modules key");
    EXPECT_EQ(fault_of("").line, 1);
    EXPECT_EQ(fault_of("- a\n- b\n").message, "the file must be a map with a modules key");
    Fault f = fault_of("# nothing\nother: 1\n");
    EXPECT_EQ(f.line, 2);
    EXPECT_EQ(f.message, "unknown key other (the file has one key, modules)");
    f = fault_of("modules: {}\n");
    EXPECT_EQ(f.line, 1);
    EXPECT_EQ(f.message, "modules must be a map of at least one named module");
    f = fault_of("\nmodules:\n");
    EXPECT_EQ(f.message, "modules must be a map of at least one named module");
    f = fault_of("modules: [a, b]\n");
    EXPECT_EQ(f.message, "modules must be a map of at least one named module");
    f = fault_of("modules:\n  m:\n    user: u\n    password: p\nmodule:\n  x: 1\n");
    EXPECT_EQ(f.line, 5);
    EXPECT_EQ(f.message, "unknown key module (the file has one key, modules)");
}

TEST(ExporterConfig, UnknownSettingsAreRefused)
{
    Fault f = fault_of("modules:\n  default:\n    user: admin\n    password: p\n    cipher_suit: 3\n");
    EXPECT_EQ(f.line, 5);
    EXPECT_EQ(f.message.rfind("module default: unknown setting cipher_suit (known: user,", 0), 0u) << f.message;
}

TEST(ExporterConfig, ASettingGivenTwiceIsRefused)
{
    Fault f = fault_of("modules:\n  m:\n    user: a\n    password: p\n    user: b\n");
    EXPECT_EQ(f.line, 5);
    EXPECT_EQ(f.message, "module m: user is given twice");
    f = fault_of("modules:\n  m:\n    user: a\n    password: p\n  m:\n    user: b\n    password: p\n");
    EXPECT_EQ(f.line, 5);
    EXPECT_EQ(f.message, "module m is given twice");
}

TEST(ExporterConfig, AModuleMustBeAMap)
{
    Fault f = fault_of("modules:\n  m: admin\n");
    EXPECT_EQ(f.line, 2);
    EXPECT_EQ(f.message, "module m must be a map of settings");
}

TEST(ExporterConfig, UserIsRequired)
{
    Fault f = fault_of("modules:\n  m:\n    password: p\n    ping: true\n");
    EXPECT_EQ(f.line, 3);
    EXPECT_EQ(f.message, "module m: user is missing");
    f = fault_of("modules:\n  m:\n    user: [a]\n    password: p\n");
    EXPECT_EQ(f.line, 3);
    EXPECT_EQ(f.message, "user must be a string");
    f = fault_of("modules:\n  m:\n    user: abcdefghijklmnopq\n    password: p\n");
    EXPECT_EQ(f.message, "user is longer than 16 bytes");
}

TEST(ExporterConfig, ExactlyOneOfPasswordAndPasswordFile)
{
    Fault f = fault_of("modules:\n  m:\n    user: u\n");
    EXPECT_EQ(f.line, 3);
    EXPECT_EQ(f.message, "module m: password or password_file is missing");
    f = fault_of(std::string("modules:\n  m:\n    user: u\n    password: ") + kSecret +
                 "\n    password_file: /etc/pw\n");
    EXPECT_EQ(f.line, 5);
    EXPECT_EQ(f.message, "module m: give password or password_file, not both");
}

TEST(ExporterConfig, PasswordFileIsReadWithoutItsTrailingNewline)
{
    TempDir dir;
    dir.write("pw", std::string(kSecret) + "\n");
    dir.write("pw-crlf", std::string(kSecret) + "\r\n");
    std::string absolute = dir.write("pw-bare", kSecret);
    Config c = exporter::parse_config("modules:\n"
                                      "  a: {user: u, password_file: pw}\n"
                                      "  b: {user: u, password_file: pw-crlf}\n"
                                      "  c: {user: u, password_file: " +
                                          absolute + "}\n",
                                      dir.path);
    EXPECT_EQ(c.modules.at("a").password, kSecret);
    EXPECT_EQ(c.modules.at("b").password, kSecret);
    EXPECT_EQ(c.modules.at("c").password, kSecret);
}

TEST(ExporterConfig, PasswordFileRelativeToTheConfigFile)
{
    TempDir dir;
    dir.write("pw", std::string(kSecret) + "\n");
    std::string path = dir.write("config.yml", "modules:\n  m:\n    user: u\n    password_file: pw\n");
    EXPECT_EQ(exporter::load_config(path).modules.at("m").password, kSecret);
}

TEST(ExporterConfig, AnUnreadablePasswordFileNamesItsLine)
{
    TempDir dir;
    Fault f = fault_of("modules:\n  m:\n    user: u\n\n    password_file: missing-file\n", dir.path);
    EXPECT_EQ(f.line, 5);
    EXPECT_EQ(f.message, "password_file " + dir.path + "/missing-file cannot be read: No such file or directory");
}

TEST(ExporterConfig, TimeoutBounds)
{
    for (const char *good : {"1", "600000", "5000"}) {
        Config c =
            exporter::parse_config(std::string("modules:\n  m:\n    user: u\n    password: p\n    timeout_ms: ") +
                                       good + "\n",
                                   "");
        EXPECT_EQ(c.modules.at("m").timeout_ms, std::stoi(good));
    }
    for (const char *bad : {"0", "600001", "-5", "1.5", "5s", "99999999999"}) {
        Fault f =
            fault_of(std::string("modules:\n  m:\n    user: u\n    password: p\n    timeout_ms: ") + bad + "\n");
        EXPECT_EQ(f.line, 5) << bad;
        EXPECT_EQ(f.message, "timeout_ms must be a whole number of milliseconds from 1 to 600000") << bad;
    }
}

TEST(ExporterConfig, Booleans)
{
    Fault f = fault_of("modules:\n  m:\n    user: u\n    password: p\n    ping: maybe\n");
    EXPECT_EQ(f.line, 5);
    EXPECT_EQ(f.message, "ping must be true or false");
    f = fault_of("modules:\n  m:\n    user: u\n    password: p\n    standard_keys: 2\n");
    EXPECT_EQ(f.message, "standard_keys must be true or false");
}

TEST(ExporterConfig, CollectorsAreASubsetWithoutRepeats)
{
    Config c = exporter::parse_config("modules:\n  m:\n    user: u\n    password: p\n    collectors: []\n", "");
    EXPECT_TRUE(c.modules.at("m").collectors.empty());
    Fault f =
        fault_of("modules:\n  m:\n    user: u\n    password: p\n    collectors:\n      - sensors\n      - fans\n");
    EXPECT_EQ(f.line, 7);
    EXPECT_EQ(f.message, "collectors may only name sensors, chassis, sel, device");
    f = fault_of("modules:\n  m:\n    user: u\n    password: p\n    collectors:\n      - sel\n      - sel\n");
    EXPECT_EQ(f.line, 7);
    EXPECT_EQ(f.message, "collector sel is listed twice");
    f = fault_of("modules:\n  m:\n    user: u\n    password: p\n    collectors: sensors\n");
    EXPECT_EQ(f.line, 5);
    EXPECT_EQ(f.message, "collectors must be a list of sensors, chassis, sel, device");
}

TEST(ExporterConfig, SyntaxErrorsNameTheirLine)
{
    Fault f = fault_of("modules:\n  m:\n    user: u\n    password: p\n   bad indent: [\n");
    EXPECT_GT(f.line, 0);
    EXPECT_EQ(f.message.rfind("not valid YAML: ", 0), 0u) << f.message;
    f = fault_of("modules:\n  m:\n    user: u\n    collectors: [sel\n    password: p\n");
    EXPECT_EQ(f.message.rfind("not valid YAML: ", 0), 0u) << f.message;
    f = fault_of("modules:\n  m: {user: u\n\n\n");
    EXPECT_GT(f.line, 1);
}

TEST(ExporterConfig, NoMessageCarriesThePassword)
{
    const std::string s = kSecret;
    const std::string bad_files[] = {
        // every fault of a module that has the password in it
        "modules:\n  m:\n    user: u\n    password: " + s + "\n    privilege: god\n",
        "modules:\n  m:\n    user: u\n    password: " + s + "\n    cipher_suite: 9\n",
        "modules:\n  m:\n    user: u\n    password: " + s + "\n    password_file: x\n",
        "modules:\n  m:\n    password: " + s + "\n",
        "modules:\n  m:\n    user: u\n    password: [" + s + "]\n",
        "modules:\n  m:\n    user: u\n    password: " + s + s + s + "\n",
        "modules:\n  m:\n    user: u\n    password: \"" + s + "\"\"\n",
        "modules:\n  m:\n    user: u\n    password: " + s + "\n    collectors: [sel\n",
        "modules:\n  m:\n    user: u\n    password: [" + s + "\n",
        "modules:\n  m:\n    user: u\n    password: " + s + "\n  : x\n",
        "modules:\n  m:\n    user: u\n    password: {" + s + "\n",
        "modules:\n  m: {user: u, password: " + s + ", ping: 7}\n",
        "modules:\n  m:\n    user: u\n    password: " + s + "\n    password: " + s + "\n",
    };
    for (const std::string &text : bad_files) {
        Fault f = fault_of(text);
        EXPECT_EQ(f.message.find(s), std::string::npos) << f.message;
    }
    TempDir dir;
    dir.write("pw", s + s + s + "\n");
    Fault f = fault_of("modules:\n  m:\n    user: u\n    password_file: pw\n", dir.path);
    EXPECT_EQ(f.line, 4);
    EXPECT_EQ(f.message, "module m: the password is longer than 20 bytes");
}

}  // namespace
