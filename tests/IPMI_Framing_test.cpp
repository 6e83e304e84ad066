// IPMI message framing: builders and checkers with both checksums.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Get Device ID from the remote console (0x81) to the BMC (0x20), rqSeq 5.
const IPMI_MsgHeader kHeader = {0x06, 0x81, 0x01, 0x00, 0x05, 0x07, 0x20, 0x00};

uint8_t sum(const Bytes &b, size_t from, size_t to)
{
    uint8_t s = 0;
    for (size_t i = from; i < to; ++i) s = static_cast<uint8_t>(s + b[i]);
    return s;
}

Bytes request(const IPMI_MsgHeader &h, const Bytes &data = {})
{
    Bytes out(data.size() + 7);
    int length = 0;
    EXPECT_EQ(MakeIPMIRequest(&h, data.data(), static_cast<int>(data.size()), out.data(),
                              static_cast<int>(out.size()), &length),
              0);
    out.resize(static_cast<size_t>(length));
    return out;
}

Bytes response(const IPMI_MsgHeader &h, const Bytes &data)
{
    Bytes out(data.size() + 7);
    int length = 0;
    EXPECT_EQ(MakeIPMIResponse(&h, data.data(), static_cast<int>(data.size()), out.data(),
                               static_cast<int>(out.size()), &length),
              0);
    out.resize(static_cast<size_t>(length));
    return out;
}

TEST(MakeIPMIRequest, LaysOutHeaderDataAndChecksums)
{
    const Bytes m = request(kHeader, {0xAA, 0xBB});
    ASSERT_EQ(m.size(), 9u);
    EXPECT_EQ(m[0], 0x20);
    EXPECT_EQ(m[1], 0x18);  // netFn 6 << 2 | rsLUN 0
    EXPECT_EQ(m[2], static_cast<uint8_t>(-(0x20 + 0x18)));
    EXPECT_EQ(m[3], 0x81);
    EXPECT_EQ(m[4], 0x14);  // rqSeq 5 << 2 | rqLUN 0
    EXPECT_EQ(m[5], 0x01);
    EXPECT_EQ(m[6], 0xAA);
    EXPECT_EQ(m[7], 0xBB);
    EXPECT_EQ(sum(m, 0, 3), 0);
    EXPECT_EQ(sum(m, 3, 9), 0);
}

TEST(MakeIPMIRequest, LunsAreMaskedToTwoBits)
{
    IPMI_MsgHeader h = kHeader;
    h.rs_lun = 0x07;
    h.rq_lun = 0x06;
    const Bytes m = request(h);
    EXPECT_EQ(m[1], 0x18 | 0x03);
    EXPECT_EQ(m[4], 0x14 | 0x02);
}

TEST(MakeIPMIRequest, NoDataIsSevenBytesWithChecksumOverBytes3To5)
{
    const Bytes m = request(kHeader);
    ASSERT_EQ(m.size(), 7u);
    EXPECT_EQ(m[6], static_cast<uint8_t>(-(0x81 + 0x14 + 0x01)));
}

TEST(MakeIPMIRequest, OutputSizeExactlyEnoughOrOneShort)
{
    const Bytes data = {1, 2, 3};
    uint8_t out[16];
    std::fill(std::begin(out), std::end(out), 0xEE);
    int length = -1;
    EXPECT_EQ(MakeIPMIRequest(&kHeader, data.data(), 3, out, 10, &length), 0);
    EXPECT_EQ(length, 10);

    testkit::clear_trace();
    std::fill(std::begin(out), std::end(out), 0xEE);
    length = -1;
    EXPECT_EQ(MakeIPMIRequest(&kHeader, data.data(), 3, out, 9, &length), 6);
    EXPECT_EQ(length, -1);
    EXPECT_EQ(out[0], 0xEE);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Insufficient buffer size.\n"});
}

TEST(MakeIPMIResponse, SwapsTheRolesOfTheAddresses)
{
    const Bytes m = response(kHeader, {0x00, 0x51});
    ASSERT_EQ(m.size(), 9u);
    EXPECT_EQ(m[0], 0x81);
    EXPECT_EQ(m[1], 0x1C);  // netFn 7 << 2 | rqLUN 0
    EXPECT_EQ(m[3], 0x20);
    EXPECT_EQ(m[4], 0x14);  // rqSeq 5 << 2 | rsLUN 0
    EXPECT_EQ(m[5], 0x01);
    EXPECT_EQ(sum(m, 0, 3), 0);
    EXPECT_EQ(sum(m, 3, 9), 0);

    testkit::clear_trace();
    uint8_t out[8];
    int length = 0;
    EXPECT_EQ(MakeIPMIResponse(&kHeader, m.data(), 2, out, 8, &length), 6);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Insufficient buffer size.\n"});
}

// --- CheckIPMIRespHead ---------------------------------------------------

int resp_head(const Bytes &rq, const Bytes &rs, int *offset = nullptr, int *length = nullptr)
{
    int o = -1, l = -1;
    testkit::clear_trace();
    const int r = CheckIPMIRespHead(rq.data(), static_cast<int>(rq.size()), rs.data(), static_cast<int>(rs.size()),
                                    &o, &l);
    if (offset) *offset = o;
    if (length) *length = l;
    return r;
}

// Rewrites both checksums after a field was changed by hand.
Bytes refit(Bytes m)
{
    m[2] = static_cast<uint8_t>(-(m[0] + m[1]));
    m.back() = static_cast<uint8_t>(-sum(m, 3, m.size() - 1));
    return m;
}

TEST(CheckIPMIRespHead, AcceptsTheMatchingResponse)
{
    const Bytes rq = request(kHeader);
    const Bytes rs = response(kHeader, {0x00, 0x20, 0x01});
    int offset = 0, length = 0;
    EXPECT_EQ(resp_head(rq, rs, &offset, &length), 0);
    EXPECT_EQ(offset, 6);
    EXPECT_EQ(length, 3);
    EXPECT_TRUE(testkit::log_lines().empty());
}

TEST(CheckIPMIRespHead, LengthsAreCheckedFirst)
{
    const Bytes rs = response(kHeader, {0x00});
    EXPECT_EQ(resp_head(Bytes(6, 0), rs), 68);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Invalid IPMI Request Data Length.\n"});
    EXPECT_EQ(resp_head(request(kHeader), Bytes(7, 0)), 68);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Invalid IPMI Response Data Length.\n"});
}

TEST(CheckIPMIRespHead, BothChecksumsShareTheChecksum1Message)
{
    const Bytes rq = request(kHeader);
    Bytes bad1 = response(kHeader, {0x00});
    bad1[2] ^= 1;
    EXPECT_EQ(resp_head(rq, bad1), 66);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Invalid IPMI Response checksum1.\n"});
    Bytes bad2 = response(kHeader, {0x00});
    bad2.back() ^= 1;
    EXPECT_EQ(resp_head(rq, bad2), 66);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Invalid IPMI Response checksum1.\n"});
}

TEST(CheckIPMIRespHead, EachHeaderFieldInOrder)
{
    IPMI_MsgHeader h = kHeader;
    h.rq_lun = 1;
    h.rs_lun = 2;
    const Bytes rq = request(h);
    const Bytes good = response(h, {0x00});
    ASSERT_EQ(resp_head(rq, good), 0);

    struct Case {
        size_t index;
        uint8_t value;
        const char *message;
    } cases[] = {
        {0, 0x83, "IPMI Header : Invalid request address.\n"},
        {1, static_cast<uint8_t>((0x09 << 2) | 1), "IPMI Header : Invalid NetFn.\n"},
        {1, static_cast<uint8_t>((0x07 << 2) | 2), "IPMI Header : Invalid rqLUN.\n"},
        {3, 0x22, "IPMI Header : Invalid response address.\n"},
        {4, static_cast<uint8_t>((6 << 2) | 2), "IPMI Header : Invalid rqSeq.\n"},
        {4, static_cast<uint8_t>((5 << 2) | 3), "IPMI Header : Invalid rsLUN.\n"},
        {5, 0x02, "IPMI Header : Invalid command.\n"},
    };
    for (const auto &c : cases) {
        Bytes rs = good;
        rs[c.index] = c.value;
        EXPECT_EQ(resp_head(rq, refit(rs)), 66) << c.message;
        EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{c.message});
    }
}

// --- CheckIPMIReqHead ----------------------------------------------------

int req_head(const Bytes &m, int *offset = nullptr, int *length = nullptr)
{
    int o = -1, l = -1;
    testkit::clear_trace();
    const int r = CheckIPMIReqHead(m.data(), static_cast<int>(m.size()), &o, &l);
    if (offset) *offset = o;
    if (length) *length = l;
    return r;
}

TEST(CheckIPMIReqHead, AcceptsARequest)
{
    int offset = 0, length = 0;
    EXPECT_EQ(req_head(request(kHeader, {1, 2}), &offset, &length), 0);
    EXPECT_EQ(offset, 6);
    EXPECT_EQ(length, 2);
    EXPECT_EQ(req_head(request(kHeader), &offset, &length), 0);
    EXPECT_EQ(length, 0);
}

TEST(CheckIPMIReqHead, RefusesInOrder)
{
    EXPECT_EQ(req_head(Bytes(6, 0)), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Received Unexpected Packet.(P_L length)\n"});

    Bytes m = request(kHeader);
    m[2] ^= 0x10;
    m.back() ^= 0x10;  // both wrong: checksum 1 is reported
    EXPECT_EQ(req_head(m), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"[ Invalid Response ] IPMI Message : checksum1\n"});

    m = request(kHeader);
    m.back() ^= 0x10;
    EXPECT_EQ(req_head(m), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"[ Invalid Response ] IPMI Message : checksum2\n"});

    const Bytes rs = response(kHeader, {0x00});
    EXPECT_EQ(req_head(rs), 1);
    EXPECT_EQ(testkit::log_lines(),
              std::vector<std::string>{"[ Invalid Response ] IPMI Message : netFn = 1ch (not Request)\n"});
}

// --- Check_IPMIMessHead --------------------------------------------------

int mess_head(const Bytes &m, const IPMI_MsgHeader &h, uint8_t *cc = nullptr, uint32_t *length = nullptr)
{
    uint8_t c = 0xEE;
    uint32_t l = 0xEEEE;
    testkit::clear_trace();
    const int r = Check_IPMIMessHead(m.data(), static_cast<uint32_t>(m.size()), &h, &c, &l);
    if (cc) *cc = c;
    if (length) *length = l;
    return r;
}

TEST(Check_IPMIMessHead, AcceptsAndSplitsCompletionCodeAndData)
{
    uint8_t cc = 0;
    uint32_t length = 0;
    EXPECT_EQ(mess_head(response(kHeader, {0xC1, 7, 8, 9}), kHeader, &cc, &length), 0);
    EXPECT_EQ(cc, 0xC1);
    EXPECT_EQ(length, 3u);
}

TEST(Check_IPMIMessHead, SevenBytesAreRefusedEightGiveNoData)
{
    Bytes seven = response(kHeader, {});
    EXPECT_EQ(mess_head(seven, kHeader), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Received Unexpected Packet.(P_L length)\n"});
    uint32_t length = 99;
    EXPECT_EQ(mess_head(response(kHeader, {0x00}), kHeader, nullptr, &length), 0);
    EXPECT_EQ(length, 0u);
}

TEST(Check_IPMIMessHead, ChecksumsHaveTheirOwnMessages)
{
    Bytes m = response(kHeader, {0x00});
    m[2] ^= 1;
    EXPECT_EQ(mess_head(m, kHeader), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"[ Invalid Response ] IPMI Message : checksum1\n"});
    m = response(kHeader, {0x00});
    m.back() ^= 1;
    EXPECT_EQ(mess_head(m, kHeader), 1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"[ Invalid Response ] IPMI Message : checksum2\n"});
}

TEST(Check_IPMIMessHead, EachFieldWithReceivedAndExpectedValues)
{
    const Bytes good = response(kHeader, {0x00});
    struct Case {
        size_t index;
        uint8_t value;
        const char *message;
    } cases[] = {
        {0, 0x83, "[ Invalid Response ] IPMI Message : rqAddr.= 83h (expected 81h)\n"},
        {1, 0x1D, "[ Invalid Response ] IPMI Message : netFn/rqLUN = 1dh (expected 1ch)\n"},
        {3, 0x24, "[ Invalid Response ] IPMI Message : rsAddr.= 24h (expected 20h)\n"},
        {4, 0x18, "[ Invalid Response ] IPMI Message : rqSeq/rsLUN = 18h (expected 14h)\n"},
        {5, 0x38, "[ Invalid Response ] IPMI Message : Cmd = 38h (expected 01h)\n"},
    };
    for (const auto &c : cases) {
        Bytes m = good;
        m[c.index] = c.value;
        EXPECT_EQ(mess_head(refit(m), kHeader), 1) << c.message;
        EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{c.message});
    }
}

TEST(Check_IPMIMessHead, LunsInTheRecordAreNotMasked)
{
    // A record LUN of 0x20 is ORed into the netFn bits as it is: a response
    // with LUN 0 no longer matches, where a masked LUN would.
    IPMI_MsgHeader h = kHeader;
    h.rq_lun = 0x20;
    EXPECT_EQ(mess_head(response(kHeader, {0x00}), h), 1);
    EXPECT_EQ(testkit::log_lines(),
              std::vector<std::string>{"[ Invalid Response ] IPMI Message : netFn/rqLUN = 1ch (expected 3ch)\n"});
}

}  // namespace
