// What the Get Channel Cipher Suites tests share: suites as text, and the
// suites ipmitool (run as a black box) prints for a BMC.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "rmcpp.h"
#include "run_program.h"

namespace ciphertest {

struct Suite {
    int id, auth, integrity, confidentiality;
    bool operator==(const Suite &) const = default;
};

inline std::ostream &operator<<(std::ostream &o, const Suite &s)
{
    return o << "{" << s.id << ": " << s.auth << "/" << s.integrity << "/" << s.confidentiality << "}";
}

inline std::vector<Suite> suites_of(const RMCPP_ChannelCipherSuites &out)
{
    std::vector<Suite> v;
    for (uint32_t i = 0; i < out.count && i < RMCPP_MAX_CIPHER_SUITES; ++i)
        v.push_back({out.suites[i].id, out.suites[i].auth_alg, out.suites[i].integrity_alg,
                     out.suites[i].confidentiality_alg});
    return v;
}

inline RMCPP_ChannelCipherSuites empty_list()
{
    RMCPP_ChannelCipherSuites out{};
    out.size = sizeof out;
    out.count = 0xFFFF;  // never a real count: shows whether it was written
    return out;
}

// The algorithm numbers behind the names ipmitool prints.
inline int algorithm_number(const std::string &name)
{
    static const std::map<std::string, int> numbers = {
        {"none", 0},           {"hmac_sha1", 1},    {"hmac_md5", 2},   {"hmac_sha256", 3},
        {"hmac_sha1_96", 1},   {"hmac_md5_128", 2}, {"md5_128", 3},    {"sha256_128", 4},
        {"aes_cbc_128", 1},    {"xrc4_128", 2},     {"xrc4_40", 3},
    };
    auto it = numbers.find(name);
    return it == numbers.end() ? -1 : it->second;
}

// Runs `ipmitool -I lanplus ... channel getciphers ipmi` and reads its
// table: "ID IANA Auth Alg Integrity Alg Confidentiality Alg" rows. The
// three columns name kinds of algorithms in that order, so one name (none)
// maps to a number by its column.
inline std::vector<Suite> ipmitool_getciphers(const std::string &host, const std::string &user,
                                              const std::string &password, std::string &printed)
{
    const testkit::ProgramResult r =
        testkit::run_program({"ipmitool", "-I", "lanplus", "-H", host, "-U", user, "-P", password, "-N", "1", "-R",
                              "2", "channel", "getciphers", "ipmi"});
    printed = r.out + r.err;
    EXPECT_EQ(r.exit_code, 0) << printed;
    std::vector<Suite> suites;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream f(line);
        std::string id, iana, auth, integrity, confidentiality;
        if (!(f >> id >> iana >> auth >> integrity >> confidentiality)) continue;
        if (id == "ID") continue;
        suites.push_back({std::stoi(id), algorithm_number(auth), algorithm_number(integrity),
                          algorithm_number(confidentiality)});
    }
    return suites;
}

// Rows of a cipher suite table as printed, each as its words, the header
// left out; ipmitool's IANA column (N/A for the standard suites) dropped.
inline std::vector<std::vector<std::string>> table_rows(const std::string &table, bool has_iana_column)
{
    std::vector<std::vector<std::string>> out;
    std::istringstream lines(table);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::vector<std::string> w;
        std::string word;
        while (words >> word) w.push_back(word);
        if (w.empty() || w[0] == "ID") continue;
        if (has_iana_column && w.size() > 1) w.erase(w.begin() + 1);
        out.push_back(w);
    }
    return out;
}

}  // namespace ciphertest
