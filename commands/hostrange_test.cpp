// Host lists and hostranges: expansion, the errors in words, host files and
// the range form that groups hosts back together.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "hostrange.h"

namespace {

using rmcpp::commands::compress_hosts;
using rmcpp::commands::expand_hosts;
using rmcpp::commands::HostrangeError;
using Hosts = std::vector<std::string>;

// The message of the error `list` is refused with; empty when it expands.
std::string refusal(const std::string &list, size_t limit = rmcpp::commands::kMaxHosts)
{
    try {
        expand_hosts(list, limit);
    } catch (const HostrangeError &e) {
        return e.what();
    }
    return "";
}

TEST(Hostrange, PlainHostsAndListsStayAsWritten)
{
    EXPECT_EQ(expand_hosts("bmc1"), Hosts({"bmc1"}));
    EXPECT_EQ(expand_hosts("10.0.0.1,bmc.example.com,::1"), Hosts({"10.0.0.1", "bmc.example.com", "::1"}));
    EXPECT_EQ(expand_hosts(" a , b "), Hosts({"a", "b"})) << "blanks around the commas are not part of a host";
}

TEST(Hostrange, ARangeCountsFromLowToHigh)
{
    EXPECT_EQ(expand_hosts("node[1-3]"), Hosts({"node1", "node2", "node3"}));
    EXPECT_EQ(expand_hosts("node[1-3,7,10-12]"),
              Hosts({"node1", "node2", "node3", "node7", "node10", "node11", "node12"}));
    EXPECT_EQ(expand_hosts("n[4]"), Hosts({"n4"}));
    EXPECT_EQ(expand_hosts("n[3-3]"), Hosts({"n3"}));
}

TEST(Hostrange, ZeroPaddingFollowsTheBoundAsWritten)
{
    const Hosts h = expand_hosts("bmc[01-64].dc1");
    ASSERT_EQ(h.size(), 64u);
    EXPECT_EQ(h.front(), "bmc01.dc1");
    EXPECT_EQ(h[8], "bmc09.dc1");
    EXPECT_EQ(h[9], "bmc10.dc1");
    EXPECT_EQ(h.back(), "bmc64.dc1");
    EXPECT_EQ(expand_hosts("r[008-011]"), Hosts({"r008", "r009", "r010", "r011"}));
    EXPECT_EQ(expand_hosts("r[07]"), Hosts({"r07"}));
    EXPECT_EQ(expand_hosts("r[0-2]"), Hosts({"r0", "r1", "r2"})) << "a lone 0 is no padding";
    EXPECT_EQ(expand_hosts("r[9-10]"), Hosts({"r9", "r10"}));
}

TEST(Hostrange, SeveralBracketsExpandAsACrossProductLeftToRight)
{
    EXPECT_EQ(expand_hosts("10.0.[0-1].[1-3]"),
              Hosts({"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.1.1", "10.0.1.2", "10.0.1.3"}));
    const Hosts big = expand_hosts("10.0.[0-3].[1-250]");
    ASSERT_EQ(big.size(), 1000u);
    EXPECT_EQ(big[249], "10.0.0.250");
    EXPECT_EQ(big[250], "10.0.1.1");
    EXPECT_EQ(big.back(), "10.0.3.250");
    EXPECT_EQ(expand_hosts("r[1-2]c[1-2],x"), Hosts({"r1c1", "r1c2", "r2c1", "r2c2", "x"}));
}

TEST(Hostrange, BracketsHoldingAColonAreIPv6Literals)
{
    EXPECT_EQ(expand_hosts("[::1]"), Hosts({"[::1]"}));
    EXPECT_EQ(expand_hosts("[::1],[fe80::1%lo],127.0.0.[1-2]"),
              Hosts({"[::1]", "[fe80::1%lo]", "127.0.0.1", "127.0.0.2"}));
    EXPECT_EQ(expand_hosts("fd00::[1-2]"), Hosts({"fd00::1", "fd00::2"}));
}

TEST(Hostrange, AHostNamedTwiceIsKeptOnceWhereItFirstAppears)
{
    EXPECT_EQ(expand_hosts("b,a,n[1-2],b,n[2-3]"), Hosts({"b", "a", "n1", "n2", "n3"}));
}

TEST(Hostrange, BadRangesAreRefusedInWords)
{
    EXPECT_EQ(refusal("bmc[5-1]"), "bad hostrange bmc[5-1]: 5-1 counts down; write 1-5");
    EXPECT_EQ(refusal("bmc[a-3]"), "bad hostrange bmc[a-3]: 'a' is not a number");
    EXPECT_EQ(refusal("bmc[1-x]"), "bad hostrange bmc[1-x]: 'x' is not a number");
    EXPECT_EQ(refusal("bmc[1-3"), "bad hostrange bmc[1-3: '[' is not closed");
    EXPECT_EQ(refusal("bmc1-3]"), "bad hostrange bmc1-3]: ']' without '['");
    EXPECT_EQ(refusal("bmc[]"), "bad hostrange bmc[]: empty brackets");
    EXPECT_EQ(refusal("bmc[1,,3]"), "bad hostrange bmc[1,,3]: an empty element between commas in [1,,3]");
    EXPECT_EQ(refusal("bmc[1-]"), "bad hostrange bmc[1-]: a range needs a number on each side of '-'");
    EXPECT_EQ(refusal("bmc[-1]"), "bad hostrange bmc[-1]: a range needs a number on each side of '-'");
    EXPECT_EQ(refusal("bmc[1-2-3]"), "bad hostrange bmc[1-2-3]: '2-3' is not a number");
    EXPECT_EQ(refusal("bmc[1[2]]"), "bad hostrange bmc[1[2]]: '[' inside brackets");
    EXPECT_EQ(refusal("b[1234567890123456789]"),
              "bad hostrange b[1234567890123456789]: '1234567890123456789' has more than 18 digits");
}

TEST(Hostrange, EmptyHostsAreRefused)
{
    EXPECT_EQ(refusal(""), "empty host in the list ");
    EXPECT_EQ(refusal("a,,b"), "empty host in the list a,,b");
    EXPECT_EQ(refusal("a,"), "empty host in the list a,");
}

TEST(Hostrange, MoreHostsThanTheLimitAreRefusedBeforeExpanding)
{
    EXPECT_EQ(refusal("h[1-10]", 10), "");
    EXPECT_EQ(refusal("h[1-11]", 10), "the hosts expand to more than 10, the most one run takes");
    EXPECT_EQ(refusal("h[1-5],g[1-6]", 10), "the hosts expand to more than 10, the most one run takes");
    EXPECT_EQ(refusal("h[1-4].[1-3]", 10), "the hosts expand to more than 10, the most one run takes");
    // Far more than memory would hold, refused at once by the default limit.
    EXPECT_EQ(refusal("h[0-999999999999999999].[0-999999999999999999]"),
              "the hosts expand to more than 1000000, the most one run takes");
    EXPECT_EQ(expand_hosts("h[1-1000000]").size(), 1000000u);
    EXPECT_NE(refusal("h[0-1000000]"), "");
}

TEST(Hostrange, AHostFileTakesOneHostOrRangePerLine)
{
    const std::string text = "# rack 1\n"
                             "bmc[01-03]\n"
                             "\n"
                             "   \n"
                             "  10.0.0.9  \n"
                             "\t# spare\n"
                             "a,b\r\n"
                             "bmc02";
    EXPECT_EQ(rmcpp::commands::hosts_of_file_text(text), Hosts({"bmc01", "bmc02", "bmc03", "10.0.0.9", "a", "b"}));
    EXPECT_EQ(rmcpp::commands::hosts_of_file_text("# nothing\n\n"), Hosts());
    try {
        rmcpp::commands::hosts_of_file_text("a\n\nbmc[3-1]\n");
        FAIL() << "a bad range in a host file is refused";
    } catch (const HostrangeError &e) {
        EXPECT_STREQ(e.what(), "line 3: bad hostrange bmc[3-1]: 3-1 counts down; write 1-3");
    }
}

TEST(Hostrange, OneHostWithoutRangeOrCommaIsASingleHost)
{
    for (const char *one : {"bmc1", "10.0.0.1", "::1", "[::1]", "[fe80::1%eth0]", "bmc.example.com"})
        EXPECT_TRUE(rmcpp::commands::single_host(one)) << one;
    // Mistyped IPv6 literals too: they are refused as one bad address.
    for (const char *one : {"[::1", "::1]", "[::1]x"}) EXPECT_TRUE(rmcpp::commands::single_host(one)) << one;
    for (const char *many : {"a,b", "bmc[1-2]", "bmc[1]", "[::1],[::2]", "[1-2]", "a]", "bmc[1-3", "fd00::[1-2]"})
        EXPECT_FALSE(rmcpp::commands::single_host(many)) << many;
}

TEST(Hostrange, HostsDifferingInOneNumberAreWrittenAsOneRange)
{
    EXPECT_EQ(compress_hosts({"bmc01", "bmc02", "bmc03", "bmc07"}), "bmc[01-03,07]");
    EXPECT_EQ(compress_hosts({"bmc07", "bmc03", "bmc01", "bmc02"}), "bmc[01-03,07]");
    EXPECT_EQ(compress_hosts({"10.0.0.3", "10.0.0.1", "10.0.1.1", "10.0.0.2"}), "10.0.0.[1-3],10.0.1.1");
    EXPECT_EQ(compress_hosts({"n9", "n10", "n11", "n1"}), "n[1,9-11]");
    EXPECT_EQ(compress_hosts({"bmc01.dc1", "bmc02.dc1", "bmc03.dc1", "bmc01.dc2"}), "bmc[01-03].dc1,bmc01.dc2");
    EXPECT_EQ(compress_hosts(expand_hosts("bmc[01-64].dc1")), "bmc[01-64].dc1") << "not always the last number";
    EXPECT_EQ(compress_hosts({"alpha", "bmc1", "beta"}), "alpha,bmc1,beta");
    EXPECT_EQ(compress_hosts({"[::1]", "::2", "::3"}), "[::1],::2,::3") << "IPv6 addresses are left alone";
    EXPECT_EQ(compress_hosts({"r01", "r1", "r2", "r3"}), "r01,r[1-3]") << "padded and unpadded numbers differ";
    EXPECT_EQ(compress_hosts({}), "");
}

TEST(Hostrange, TheRangeFormExpandsToTheSameHosts)
{
    const std::vector<Hosts> samples = {
        {"bmc01", "bmc02", "bmc03", "bmc07", "bmc10", "bmc100"},
        {"n1", "n2", "n9", "n10", "n11", "x", "n001", "n002"},
        expand_hosts("10.0.[0-3].[1-250],bmc[008-012].dc[1-2]"),
        {"a0", "a00", "a000", "a1", "a01", "a001"},
    };
    for (const Hosts &hosts : samples) {
        const std::string form = compress_hosts(hosts);
        const Hosts back = expand_hosts(form);
        EXPECT_EQ(std::set<std::string>(back.begin(), back.end()), std::set<std::string>(hosts.begin(), hosts.end()))
            << form;
        EXPECT_EQ(back.size(), hosts.size()) << form;
    }
}

}  // namespace
