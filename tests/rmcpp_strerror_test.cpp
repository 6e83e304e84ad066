// Words for every result code, and the library's version.
#include <climits>
#include <cstring>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "rmcpp.h"

namespace {

// Every result code the header names.
constexpr int kCodes[] = {
    RMCPP_OK,           RMCPP_ERR_INVALID,      RMCPP_ERR_RESOURCE,  RMCPP_ERR_INTERNAL,    RMCPP_ERR_RETRY_OVER,
    RMCPP_ERR_SESSION,  RMCPP_ERR_BUFFER,       RMCPP_ERR_TIMEOUT,   RMCPP_ERR_SEND,        RMCPP_ERR_RECEIVE,
    RMCPP_ERR_RAKP_KEY, RMCPP_ERR_SOCKET,       RMCPP_ERR_PING,      RMCPP_ERR_NO_RMCPP,    RMCPP_ERR_AUTH_ALG,
    RMCPP_ERR_INTEGRITY_ALG, RMCPP_ERR_CONF_ALG, RMCPP_ERR_ROLE,     RMCPP_ERR_BIND,        RMCPP_ERR_RESOLVE,  RMCPP_ERR_STATUS,
    RMCPP_ERR_HEADER,   RMCPP_ERR_COMPLETION,   RMCPP_ERR_DATA_LENGTH, RMCPP_ERR_UNEXPECTED, RMCPP_ERR_TIMER,
};

constexpr const char *kUnknown = "unknown result code";

TEST(RmcppStrerror, EveryNamedCodeHasWordsOfItsOwn)
{
    std::set<std::string> seen;
    for (const int code : kCodes) {
        const char *text = rmcpp_strerror(code);
        ASSERT_NE(text, nullptr) << code;
        EXPECT_GT(std::strlen(text), 5u) << code;
        EXPECT_STRNE(text, kUnknown) << code;
        EXPECT_TRUE(seen.insert(text).second) << code << " shares its words: " << text;
    }
}

TEST(RmcppStrerror, WordsSayWhatTheCodeMeans)
{
    EXPECT_STREQ(rmcpp_strerror(RMCPP_OK), "success");
    EXPECT_STREQ(rmcpp_strerror(RMCPP_ERR_TIMEOUT), "no response within the wait");
    EXPECT_STREQ(rmcpp_strerror(RMCPP_ERR_PING), "the BMC did not answer the ASF presence ping");
    EXPECT_STREQ(rmcpp_strerror(RMCPP_ERR_TIMER), "clock failure");
}

TEST(RmcppStrerror, AnyOtherValueIsAnUnknownCode)
{
    for (const int code : {10, 14, 16, 32, 42, 64, 70, 255, -2, INT_MIN, INT_MAX})
        EXPECT_STREQ(rmcpp_strerror(code), kUnknown) << code;
}

TEST(RmcppVersion, IsTheProjectVersion)
{
    const char *version = rmcpp_version();
    ASSERT_NE(version, nullptr);
    EXPECT_TRUE(std::regex_match(version, std::regex("[0-9]+\\.[0-9]+\\.[0-9]+"))) << version;
    EXPECT_STREQ(version, RMCPP_PROJECT_VERSION);
}

}  // namespace
