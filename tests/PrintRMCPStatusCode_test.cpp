// RMCP+ status codes in words: a prefix and the code's text, both at level 1.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rmcpp.h"
#include "trace_capture.h"

namespace {

std::vector<std::string> print(int code)
{
    testkit::clear_trace();
    PrintRMCPStatusCode(code);
    return testkit::log_lines();
}

TEST(PrintRMCPStatusCode, EveryKnownCodeHasItsText)
{
    const char *texts[] = {
        "No errors.\n",
        "Insufficient resources to create a session.\n",
        "Invalid Session ID.\n",
        "Invalid payload type.\n",
        "Invalid authentication algorithm.\n",
        "Invalid integrity algorithm.\n",
        "No matching authentication payload.\n",
        "No matching integrity payload.\n",
        "Inactive Session ID.\n",
        "Invalid role X.\n",
        "Unauthorized role or privilege level requested.\n",
        "Insufficient resources to create a session at the requested role.\n",
        "Invalid name length.\n",
        "Unauthorized name.\n",
        "Unauthorized GUID.\n",
        "Invalid integrity check value.\n",
        "Invalid confidentiality algorithm.\n",
        "No Cipher Suite match with proposed security algorithms.\n",
        "Illegal or unrecognized parameter.\n",
    };
    for (int code = 0; code <= 0x12; ++code) {
        const std::vector<std::string> expected = {"[ Status Code ] ", texts[code]};
        EXPECT_EQ(print(code), expected) << "code " << code;
    }
}

TEST(PrintRMCPStatusCode, UnknownCodeIsPrintedInHex)
{
    EXPECT_EQ(print(0x13), (std::vector<std::string>{"[ Status Code ] ", "Unexpected Status Code = 13.\n"}));
    EXPECT_EQ(print(0xFF), (std::vector<std::string>{"[ Status Code ] ", "Unexpected Status Code = ff.\n"}));
}

TEST(PrintRMCPStatusCode, OnlyTheLowByteCounts)
{
    EXPECT_EQ(print(0x105), (std::vector<std::string>{"[ Status Code ] ", "Invalid integrity algorithm.\n"}));
    EXPECT_EQ(print(0x213), (std::vector<std::string>{"[ Status Code ] ", "Unexpected Status Code = 13.\n"}));
}

TEST(PrintRMCPStatusCode, BothPiecesGoThroughTheLogGate)
{
    const uint8_t saved = RMCPConnectSA;
    IPMI_SetupConnectSA(0x24);
    EXPECT_TRUE(print(0x12).empty());
    RMCPConnectSA = saved;
}

}  // namespace
