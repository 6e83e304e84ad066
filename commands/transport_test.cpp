#include "transport.h"

#include <gtest/gtest.h>

#include "completion_code.h"
#include "scripted_transport_testkit.h"

namespace rmcpp::commands {
namespace {

TEST(Call, ReturnsTheDataOfACompletedRequestAndSendsWhatItWasGiven)
{
    testkit::ScriptedTransport t;
    t.queue(0x00, {0x51, 0x02});
    EXPECT_EQ(call(t, "Get SEL Info", 0x0A, 0x40, {0x01}), (Bytes{0x51, 0x02}));
    ASSERT_EQ(t.asked.size(), 1u);
    EXPECT_EQ(t.asked[0], (testkit::Request{0x0A, 0x40, {0x01}}));
}

TEST(Call, ANonZeroCompletionCodeThrowsWithTheCodeAndItsWords)
{
    testkit::ScriptedTransport t;
    t.queue(0xC5);
    try {
        call(t, "Get SDR", 0x0A, 0x23, {});
        FAIL() << "no exception";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::completion_code);
        EXPECT_EQ(e.step, "Get SDR");
        EXPECT_EQ(e.completion_code, 0xC5);
        EXPECT_STREQ(e.what(), "Get SDR failed: completion code 0xC5 (reservation cancelled or invalid)");
    }
}

TEST(Call, AFailedExchangeThrowsWithTheLibraryResult)
{
    testkit::ScriptedTransport t;
    try {
        call(t, "Reserve SEL", 0x0A, 0x42, {});
        FAIL() << "no exception";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::exchange);
        EXPECT_EQ(e.result, -1);
    }
}

TEST(CompletionCodeText, GenericCodesHaveWordsAndOthersAreUnknown)
{
    EXPECT_STREQ(completion_code_text(0xCA), "cannot return number of requested data bytes");
    EXPECT_STREQ(completion_code_text(0xD4), "insufficient privilege level");
    EXPECT_STREQ(completion_code_text(0x80), "unknown completion code");
}

}  // namespace
}  // namespace rmcpp::commands
