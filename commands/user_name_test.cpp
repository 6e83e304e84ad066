#include "user_name.h"

#include <gtest/gtest.h>

#include <vector>

using namespace rmcpp::commands;

TEST(GetUserName, BuildsUserId)
{
    EXPECT_EQ(build_get_user_name(2)[0], 2);
    EXPECT_EQ(build_get_user_name(0xC3)[0], 0x03);
}

TEST(GetUserName, NameEndsAtFirstZero)
{
    std::vector<uint8_t> d(16, 0);
    d[0] = 'a', d[1] = 'd', d[2] = 'm', d[3] = 'i', d[4] = 'n';
    d[6] = 'x';
    EXPECT_EQ(decode_get_user_name(d.data(), d.size()), std::optional<std::string>("admin"));
    std::vector<uint8_t> full(16, 'z');
    EXPECT_EQ(decode_get_user_name(full.data(), full.size()), std::optional<std::string>(std::string(16, 'z')));
    std::vector<uint8_t> empty(16, 0);
    EXPECT_EQ(decode_get_user_name(empty.data(), empty.size()), std::optional<std::string>(""));
}

TEST(GetUserName, RefusesAnyLengthButSixteen)
{
    std::vector<uint8_t> d(17, 'a');
    for (size_t n = 0; n <= d.size(); ++n)
        if (n != 16) {
            EXPECT_FALSE(decode_get_user_name(d.data(), n)) << n;
        }
    EXPECT_FALSE(decode_get_user_name(nullptr, 16));
}
