// Get Channel Cipher Suites outside a session: the request's bytes, the
// decoder over responses written out by hand, and the exchange against the
// simulator (127.0.5.1), a scripted peer (127.0.5.2) and OpenIPMI's ipmi_sim
// (127.0.5.3), whose lists are compared with what ipmitool prints for them.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "GetChannelCipherSuites.h"
#include "bmcsim.h"
#include "cipher_suites_testkit.h"
#include "ipmi_sim_peer.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

namespace ciphers = rmcpp::ciphers;
using Bytes = std::vector<uint8_t>;
using ciphertest::Suite;
using ciphertest::suites_of;

constexpr uint8_t kRqAddr = 0x81;
constexpr uint8_t kRsAddr = 0x20;

uint8_t checksum(const Bytes &b, size_t from, size_t to)
{
    uint8_t sum = 0;
    for (size_t i = from; i < to; ++i) sum = static_cast<uint8_t>(sum + b[i]);
    return static_cast<uint8_t>(-sum);
}

// The response to list index `index`, written out by hand: RMCP header, v1.5
// session header (authentication type none), then the IPMI response from
// rsAddr to rqAddr, netFn 07h, command 54h, rqSeq index + 1.
Bytes response(uint8_t index, uint8_t completion_code, const Bytes &data, uint8_t rs_lun = 0)
{
    const auto seq = static_cast<uint8_t>((index + 1) & 0x3F);
    Bytes m{kRqAddr, 0x07 << 2, 0, kRsAddr, static_cast<uint8_t>((seq << 2) | rs_lun), 0x54, completion_code};
    m.insert(m.end(), data.begin(), data.end());
    m[2] = checksum(m, 0, 2);
    m.push_back(checksum(m, 3, m.size()));
    Bytes d{0x06, 0x00, 0xFF, 0x07, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(m.size())};
    d.resize(14 + m.size());
    std::copy(m.begin(), m.end(), d.begin() + 14);
    return d;
}

// Record data cut into responses of 16 bytes, each after channel number
// `channel`; a list of a multiple of 16 bytes ends with an empty response.
std::vector<Bytes> responses(const Bytes &records, uint8_t channel = 1)
{
    std::vector<Bytes> out;
    size_t at = 0;
    for (uint8_t index = 0;; ++index) {
        const size_t n = std::min<size_t>(16, records.size() - at);
        Bytes data{channel};
        data.insert(data.end(), records.begin() + static_cast<long>(at), records.begin() + static_cast<long>(at + n));
        out.push_back(response(index, 0x00, data));
        at += n;
        if (n < 16) return out;
    }
}

int decode(const std::vector<Bytes> &datagrams, RMCPP_ChannelCipherSuites &out, uint8_t channel = 0x0E)
{
    return ciphers::decode(datagrams, kRsAddr, 0, kRqAddr, channel, out);
}

// The list OpenIPMI's ipmi_sim gives: suites 0 to 14, records cut at every
// response boundary.
const Bytes kIpmiSimRecords = {
    0xC0, 0x00, 0x00, 0x40, 0x80, 0xC0, 0x01, 0x01, 0x40, 0x80, 0xC0, 0x02, 0x01, 0x41, 0x80, 0xC0,
    0x03, 0x01, 0x41, 0x81, 0xC0, 0x04, 0x01, 0x41, 0x82, 0xC0, 0x05, 0x01, 0x41, 0x83, 0xC0, 0x06,
    0x02, 0x40, 0x80, 0xC0, 0x07, 0x02, 0x42, 0x80, 0xC0, 0x08, 0x02, 0x42, 0x81, 0xC0, 0x09, 0x02,
    0x42, 0x82, 0xC0, 0x0A, 0x02, 0x42, 0x83, 0xC0, 0x0B, 0x02, 0x43, 0x80, 0xC0, 0x0C, 0x02, 0x43,
    0x81, 0xC0, 0x0D, 0x02, 0x43, 0x82, 0xC0, 0x0E, 0x02, 0x43, 0x83};

const std::vector<Suite> kIpmiSimSuites = {
    {0, 0, 0, 0}, {1, 1, 0, 0}, {2, 1, 1, 0}, {3, 1, 1, 1}, {4, 1, 1, 2},  {5, 1, 1, 3},  {6, 2, 0, 0},  {7, 2, 2, 0},
    {8, 2, 2, 1}, {9, 2, 2, 2}, {10, 2, 2, 3}, {11, 2, 3, 0}, {12, 2, 3, 1}, {13, 2, 3, 2}, {14, 2, 3, 3}};

class Decoder : public ::testing::Test {
protected:
    void SetUp() override { testkit::clear_trace(); }
    RMCPP_ChannelCipherSuites out = ciphertest::empty_list();
};

// ------------------------------------------------------------------ request

TEST(Request, BytesForListIndexZeroOfThisChannel)
{
    uint8_t b[64];
    const IPMI_MsgHeader h = ciphers::request_header(0x20, 0, 0x81, 0);
    ASSERT_EQ(ciphers::build_request(h, 0x0E, 0, b, sizeof b), 24u);
    const Bytes want{0x06, 0x00, 0xFF, 0x07,                                // RMCP, class IPMI
                     0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // none, sequence 0, ID 0
                     0x0A,                                                  // message length
                     0x20, 0x18, 0xC8,                                      // rsAddr, netFn 06h / LUN 0
                     0x81, 0x04, 0x54,                                      // rqAddr, rqSeq 1, command
                     0x0E, 0x00, 0x80,                                      // channel, IPMI, index 0 by suite
                     0x99};
    EXPECT_EQ(Bytes(b, b + 24), want);
}

TEST(Request, SlaveAddressLunChannelAndIndexGoWhereTheyBelong)
{
    uint8_t b[24];
    const IPMI_MsgHeader h = ciphers::request_header(0x22, 2, 0x71, 5);
    ASSERT_EQ(ciphers::build_request(h, 0x01, 5, b, sizeof b), 24u);
    const Bytes want{0x06, 0x00, 0xFF, 0x07, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, 0x0A,
                     0x22, 0x1A, 0xC4, 0x71, 0x18, 0x54, 0x01, 0x00, 0x85, 0x9D};
    EXPECT_EQ(Bytes(b, b + 24), want);
    EXPECT_EQ(h.rq_seq, 6);
    EXPECT_EQ(ciphers::request_header(0x20, 0, 0x81, 0x3F).rq_seq, 0);
}

TEST(Request, TooSmallABufferGetsNothing)
{
    uint8_t b[23];
    std::memset(b, 0xA5, sizeof b);
    EXPECT_EQ(ciphers::build_request(ciphers::request_header(0x20, 0, 0x81, 0), 0x0E, 0, b, sizeof b), 0u);
    for (uint8_t x : b) EXPECT_EQ(x, 0xA5);
}

// ------------------------------------------------------------------ decoder

TEST_F(Decoder, OneRecord)
{
    ASSERT_EQ(decode({response(0, 0, {0x01, 0xC0, 0x03, 0x01, 0x41, 0x81})}, out), 0);
    EXPECT_EQ(suites_of(out), (std::vector<Suite>{{3, 1, 1, 1}}));
}

TEST_F(Decoder, NoRecordsIsAnEmptyList)
{
    ASSERT_EQ(decode({response(0, 0, {0x01})}, out), 0);
    EXPECT_EQ(out.count, 0u);
}

TEST_F(Decoder, RecordsSplitAcrossResponses)
{
    const auto datagrams = responses(kIpmiSimRecords);
    ASSERT_EQ(datagrams.size(), 5u);
    ASSERT_EQ(decode(datagrams, out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), kIpmiSimSuites);
}

TEST_F(Decoder, AListOfWholeResponsesEndsWithAnEmptyOne)
{
    Bytes records;
    for (uint8_t id = 0; id < 4; ++id) records.insert(records.end(), {0xC0, id, 0x01, 0x41, 0x42, 0x43, 0x81, 0x82});
    const auto datagrams = responses(records);
    ASSERT_EQ(datagrams.size(), 3u);  // 16, 16, then 0 bytes of records
    ASSERT_EQ(decode(datagrams, out), 0);
    EXPECT_EQ(out.count, 4u);
    // Without the empty response the list is not known to be whole.
    EXPECT_EQ(decode({datagrams[0], datagrams[1]}, out), RMCPP_ERR_INVALID);
}

TEST_F(Decoder, SeveralIntegrityAndConfidentialityAlgorithmsKeepTheFirst)
{
    ASSERT_EQ(decode({response(0, 0, {0x01, 0xC0, 0x05, 0x01, 0x42, 0x41, 0x44, 0x83, 0x81,
                                      0xC0, 0x11, 0x03, 0x44, 0x81})},
                     out),
              0);
    EXPECT_EQ(suites_of(out), (std::vector<Suite>{{5, 1, 2, 3}, {17, 3, 4, 1}}));
}

TEST_F(Decoder, OemRecordIsListedWithItsIdAndAlgorithms)
{
    // IANA bytes that look like start bytes must not end the record.
    ASSERT_EQ(decode({response(0, 0, {0x01, 0xC0, 0x01, 0x01, 0x40, 0x80, 0xC1, 0x30, 0xC0, 0xC1, 0xFF, 0x30,
                                      0x70, 0xB0, 0xC0, 0x02, 0x01, 0x41})},
                     out),
              RMCPP_ERR_DATA_LENGTH);  // 17 bytes of records: too many for one response
    const Bytes records{0xC0, 0x01, 0x01, 0x40, 0x80, 0xC1, 0x30, 0xC0, 0xC1, 0xFF,
                        0x30, 0x70, 0xB0, 0xC0, 0x02, 0x01, 0x41, 0x80};
    ASSERT_EQ(decode(responses(records), out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), (std::vector<Suite>{{1, 1, 0, 0}, {0x30, 0x30, 0x30, 0x30}, {2, 1, 1, 0}}));
}

TEST_F(Decoder, DamagedRecordsAreRefused)
{
    const std::vector<Bytes> damaged = {
        {0xC0},                                     // start byte alone
        {0xC0, 0x03},                               // no algorithms
        {0xC0, 0x03, 0x01},                         // authentication only
        {0xC0, 0x03, 0x01, 0x41},                   // no confidentiality
        {0xC0, 0x03, 0x41, 0x81},                   // no authentication
        {0xC0, 0x03, 0x01, 0x02, 0x41, 0x81},       // two authentication algorithms
        {0xC0, 0x03, 0x01, 0x81, 0x41},             // confidentiality before integrity
        {0xC0, 0x03, 0x01, 0x41, 0x81, 0x42},       // integrity after confidentiality
        {0x03, 0x01, 0x41, 0x81},                   // no start byte
        {0xC2, 0x03, 0x01, 0x41, 0x81},             // reserved start byte
        {0xC0, 0x03, 0x01, 0x41, 0x81, 0xC0, 0x04}, // second record cut
        {0xC0, 0x03, 0x01, 0x41, 0xFF, 0x81},       // reserved tag inside a record
        {0xC1, 0x05, 0x00, 0x00},                   // OEM record cut in its IANA number
        {0xC1, 0x05, 0x00, 0x00, 0x00},             // OEM record without algorithms
    };
    for (const Bytes &records : damaged) {
        SCOPED_TRACE(::testing::PrintToString(records));
        out = ciphertest::empty_list();
        EXPECT_EQ(decode(responses(records), out), RMCPP_ERR_INVALID);
        EXPECT_EQ(out.count, 0u);
    }
    EXPECT_TRUE(testkit::logged("Damaged cipher suite record at byte 0 of the list.\n"));
}

TEST_F(Decoder, CompletionCodeIsReported)
{
    EXPECT_EQ(decode({response(0, 0xCC, {})}, out), RMCPP_ERR_COMPLETION);
    EXPECT_TRUE(testkit::logged("Unexpected Completion Code = cch\n"));
    auto datagrams = responses(kIpmiSimRecords);
    datagrams[2] = response(2, 0xC1, {0x01});
    EXPECT_EQ(decode(datagrams, out), RMCPP_ERR_COMPLETION);
}

TEST_F(Decoder, ChannelMustBeTheOneAskedAndTheSameThroughout)
{
    const auto on_one = responses(kIpmiSimRecords, 1);
    EXPECT_EQ(decode(on_one, out, 0x01), 0);
    EXPECT_EQ(decode(on_one, out, 0x02), RMCPP_ERR_INVALID);
    // Asked on "this channel": the first response names it.
    auto mixed = on_one;
    mixed[3] = responses(kIpmiSimRecords, 2)[3];
    EXPECT_EQ(decode(mixed, out, 0x0E), RMCPP_ERR_INVALID);
    EXPECT_EQ(decode(responses(kIpmiSimRecords, 7), out, 0x0E), 0);
}

TEST_F(Decoder, DataOfTheWrongLength)
{
    EXPECT_EQ(decode({response(0, 0, {})}, out), RMCPP_ERR_DATA_LENGTH);  // no channel number
    Bytes seventeen(18, 0x41);
    seventeen[0] = 0x01;
    EXPECT_EQ(decode({response(0, 0, seventeen)}, out), RMCPP_ERR_DATA_LENGTH);
}

TEST_F(Decoder, DatagramsThatAreNotTheAwaitedResponse)
{
    const Bytes good = response(0, 0, {0x01, 0xC0, 0x03, 0x01, 0x41, 0x81});
    ASSERT_EQ(decode({good}, out), 0);
    auto with = [&](size_t at, uint8_t v) {
        Bytes b = good;
        b[at] = v;
        return b;
    };
    EXPECT_EQ(decode({response(1, 0, {0x01})}, out), RMCPP_ERR_HEADER);  // rqSeq of index 1
    EXPECT_EQ(decode({response(0, 0, {0x01}, 1)}, out), RMCPP_ERR_HEADER);  // rsLUN 1
    EXPECT_EQ(decode({with(3, 0x08)}, out), RMCPP_ERR_HEADER);    // RMCP class
    EXPECT_EQ(decode({with(4, 0x06)}, out), RMCPP_ERR_HEADER);    // RMCP+ framing
    EXPECT_EQ(decode({with(5, 0x01)}, out), RMCPP_ERR_HEADER);    // session sequence number
    EXPECT_EQ(decode({with(13, 0x0F)}, out), RMCPP_ERR_HEADER);   // message length
    EXPECT_EQ(decode({with(19, 0x38)}, out), RMCPP_ERR_HEADER);   // command (checksum 2 then wrong too)
    EXPECT_EQ(decode({with(good.size() - 1, 0)}, out), RMCPP_ERR_HEADER);  // checksum 2
}

// Every cut and every single-byte change of a valid list gives a result,
// never a read past the datagram (the sanitizer build checks that).
TEST_F(Decoder, AnyCutOrChangeGivesAResultNotACrash)
{
    const auto datagrams = responses(kIpmiSimRecords);
    for (size_t d = 0; d < datagrams.size(); ++d) {
        for (size_t n = 0; n < datagrams[d].size(); ++n) {
            auto cut = datagrams;
            cut[d].resize(n);
            EXPECT_NE(decode(cut, out), 0) << d << " cut to " << n;
        }
        for (size_t at = 0; at < datagrams[d].size(); ++at) {
            for (int x : {0x01, 0x40, 0x80, 0xFF}) {
                auto changed = datagrams;
                changed[d][at] ^= static_cast<uint8_t>(x);
                out.count = 0;
                const int r = decode(changed, out);
                EXPECT_TRUE(r == 0 || r == RMCPP_ERR_HEADER || r == RMCPP_ERR_INVALID || r == RMCPP_ERR_COMPLETION ||
                            r == RMCPP_ERR_DATA_LENGTH)
                    << r;
                EXPECT_LE(out.count, kIpmiSimSuites.size());
            }
        }
    }
}

TEST_F(Decoder, SmallerRecordGetsTheFirstSuitesAndBuffer)
{
    out.size = offsetof(RMCPP_ChannelCipherSuites, suites) + 2 * sizeof(RMCPP_CipherSuite) + 3;
    EXPECT_EQ(decode(responses(kIpmiSimRecords), out), RMCPP_ERR_BUFFER);
    EXPECT_EQ(suites_of(out), (std::vector<Suite>{kIpmiSimSuites[0], kIpmiSimSuites[1]}));
    EXPECT_EQ(out.suites[2].id, 0);  // zeroed by empty_list, not written

    out = ciphertest::empty_list();
    out.size = offsetof(RMCPP_ChannelCipherSuites, suites);
    EXPECT_EQ(decode(responses(kIpmiSimRecords), out), RMCPP_ERR_BUFFER);
    EXPECT_EQ(out.count, 0u);
    EXPECT_EQ(decode({response(0, 0, {0x01})}, out), 0);

    out = ciphertest::empty_list();
    out.size = offsetof(RMCPP_ChannelCipherSuites, suites) - 1;
    EXPECT_EQ(decode(responses(kIpmiSimRecords), out), RMCPP_ERR_BUFFER);
    EXPECT_EQ(out.count, 0xFFFFu);  // no room for count: nothing written
}

TEST_F(Decoder, ListStopsAtIndex3FhAndKeepsSixtyFourSuites)
{
    Bytes records;
    for (int id = 0; id < 128; ++id)
        records.insert(records.end(), {0xC0, static_cast<uint8_t>(id), 0x01, 0x41, 0x42, 0x43, 0x81, 0x82});
    auto datagrams = responses(records);
    ASSERT_EQ(datagrams.size(), 65u);  // 64 full ones and an empty one never asked for
    datagrams.pop_back();
    EXPECT_EQ(decode(datagrams, out), RMCPP_ERR_BUFFER);
    ASSERT_EQ(out.count, 64u);
    EXPECT_EQ(out.suites[63].id, 63);
    EXPECT_TRUE(testkit::logged("The channel lists 128 cipher suites; room for 64.\n"));
}

// ------------------------------------------------------------------ exchange

// A UDP socket of the test's own, connected to the BMC at `address`:623.
struct Socket {
    explicit Socket(const char *address)
    {
        EXPECT_EQ(init_socket(&fd, ntohl(inet_addr(address)), 623, 0), 0);
    }
    ~Socket()
    {
        if (fd >= 0) close(fd);
    }
    int fd = -1;
};

IPMI_SessionParam param(uint16_t retry_count = 2, uint16_t timeout_sec = 1)
{
    IPMI_SessionParam p{};
    p.slave_address = kRsAddr;
    p.retry_count = retry_count;
    p.timeout_sec = timeout_sec;
    return p;
}

class WithSimulator : public ::testing::Test {
protected:
    static constexpr const char *kAddress = "127.0.5.1";
    void SetUp() override
    {
        testkit::clear_trace();
        bmcsim::Config c;
        c.address = kAddress;
        c.standard_keys = true;
        c.users.push_back({"admin", "secret", 4, true});
        sim = std::make_unique<bmcsim::Simulator>(c);
        sim->start();
    }
    std::unique_ptr<bmcsim::Simulator> sim;
    RMCPP_ChannelCipherSuites out = ciphertest::empty_list();
};

TEST_F(WithSimulator, ListsTheSuitesItAccepts)
{
    Socket s(kAddress);
    ASSERT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(), 0x0E, false, out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), (std::vector<Suite>{{0, 0, 0, 0},
                                                  {1, 1, 0, 0},
                                                  {2, 1, 1, 0},
                                                  {3, 1, 1, 1},
                                                  {15, 3, 0, 0},
                                                  {16, 3, 4, 0},
                                                  {17, 3, 4, 1}}));
    // 35 bytes of records: list indexes 0, 1 and 2.
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::Sessionless), 3u);

    sim->modify([](bmcsim::Config &c) { c.cipher_suites = {0, 3}; });
    ASSERT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(), 0x01, false, out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), (std::vector<Suite>{{0, 0, 0, 0}, {3, 1, 1, 1}}));

    sim->modify([](bmcsim::Config &c) { c.cipher_suites.clear(); });
    ASSERT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(), 0x0E, false, out), 0) << testkit::log_text();
    EXPECT_EQ(out.count, 0u);
}

TEST_F(WithSimulator, AnotherChannelIsRefusedWithItsCompletionCode)
{
    Socket s(kAddress);
    EXPECT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(), 0x05, false, out), RMCPP_ERR_COMPLETION);
    EXPECT_TRUE(testkit::logged("Unexpected Completion Code = cch\n"));
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::Sessionless), 1u);
}

TEST_F(WithSimulator, SameListAsIpmitoolPrints)
{
    std::string printed;
    const auto listed = ciphertest::ipmitool_getciphers(kAddress, "admin", "secret", printed);
    Socket s(kAddress);
    ASSERT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(), 0x0E, false, out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), listed) << printed;
    EXPECT_EQ(listed.size(), 7u) << printed;
}

TEST_F(WithSimulator, NoAnswerRunsTheAttemptsOut)
{
    Socket s("127.0.5.4");  // nothing listens there
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(2, 1), 0x0E, false, out), RMCPP_ERR_RETRY_OVER);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1900));
    EXPECT_EQ(out.count, 0xFFFFu);
}

// A BMC played by hand on 127.0.5.2: `answer` gets each request and the
// number of requests so far, and says what goes back.
class ScriptedBmc {
public:
    using Answer = std::function<std::vector<Bytes>(const Bytes &request, int n)>;
    explicit ScriptedBmc(Answer answer) : answer_(std::move(answer))
    {
        fd_ = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(623);
        a.sin_addr.s_addr = inet_addr(kAddress);
        if (bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) throw std::runtime_error("bind 127.0.5.2");
        thread_ = std::thread([this] { serve(); });
    }
    ~ScriptedBmc()
    {
        stop_ = true;
        thread_.join();
        close(fd_);
    }
    int requests() const { return count_; }
    static constexpr const char *kAddress = "127.0.5.2";

private:
    void serve()
    {
        while (!stop_) {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, 20) <= 0) continue;
            uint8_t b[512];
            sockaddr_in from{};
            socklen_t n = sizeof from;
            const ssize_t got = recvfrom(fd_, b, sizeof b, 0, reinterpret_cast<sockaddr *>(&from), &n);
            if (got <= 0) continue;
            for (const Bytes &d : answer_(Bytes(b, b + got), ++count_))
                sendto(fd_, d.data(), d.size(), 0, reinterpret_cast<sockaddr *>(&from), n);
        }
    }
    Answer answer_;
    int fd_ = -1;
    std::atomic<bool> stop_{false};
    std::atomic<int> count_{0};
    std::thread thread_;
};

// The list index a request asks for.
uint8_t index_of(const Bytes &request) { return request.size() == 24 ? request[22] & 0x3F : 0xFF; }

// The right answer from the ipmi_sim list for any request of this test's
// rqAddr (RMCPConnectSA).
Bytes right_answer(const Bytes &request)
{
    const auto all = responses(kIpmiSimRecords);
    Bytes d = all.at(index_of(request));
    d[14] = RMCPConnectSA;
    d[16] = checksum(d, 14, 16);
    d.back() = checksum(d, 17, d.size() - 1);
    return d;
}

class Scripted : public ::testing::Test {
protected:
    void SetUp() override { testkit::clear_trace(); }
    RMCPP_ChannelCipherSuites out = ciphertest::empty_list();
};

TEST_F(Scripted, OtherDatagramsAreSkippedAndTheWaitGoesOn)
{
    ScriptedBmc bmc([](const Bytes &rq, int) {
        Bytes late = right_answer(rq);
        late[18] ^= 0x04;  // another rqSeq: an answer to another list index
        late.back() = checksum(late, 17, late.size() - 1);
        Bytes v20 = right_answer(rq);
        v20[4] = 0x06;
        return std::vector<Bytes>{{0x01, 0x02}, late, v20, right_answer(rq)};
    });
    Socket s(ScriptedBmc::kAddress);
    ASSERT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(1, 2), 0x0E, false, out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), kIpmiSimSuites);
    EXPECT_EQ(bmc.requests(), 5);
}

TEST_F(Scripted, ALostAnswerIsAskedAgain)
{
    ScriptedBmc bmc([](const Bytes &rq, int n) {
        if (n == 2) return std::vector<Bytes>{};  // the answer to index 1 is lost once
        return std::vector<Bytes>{right_answer(rq)};
    });
    Socket s(ScriptedBmc::kAddress);
    ASSERT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(2, 1), 0x0E, false, out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), kIpmiSimSuites);
    EXPECT_EQ(bmc.requests(), 6);
}

TEST_F(Scripted, RefusalEndsTheExchangeUnlessThePeerIsStrict)
{
    // A forged refusal before each right answer to list index 2.
    auto answer = [](const Bytes &rq, int) {
        if (index_of(rq) != 2) return std::vector<Bytes>{right_answer(rq)};
        Bytes refusal = right_answer(rq);
        refusal.resize(20);
        refusal[13] = 8;  // header, completion code, checksum
        refusal.push_back(0xC1);
        refusal.push_back(checksum(refusal, 17, refusal.size()));
        return std::vector<Bytes>{refusal, right_answer(rq)};
    };
    {
        ScriptedBmc bmc(answer);
        Socket s(ScriptedBmc::kAddress);
        EXPECT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(2, 1), 0x0E, false, out), RMCPP_ERR_COMPLETION);
        EXPECT_TRUE(testkit::logged("Unexpected Completion Code = c1h\n"));
    }
    out = ciphertest::empty_list();
    ScriptedBmc bmc(answer);
    Socket s(ScriptedBmc::kAddress);
    ASSERT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(2, 1), 0x0E, true, out), 0) << testkit::log_text();
    EXPECT_EQ(suites_of(out), kIpmiSimSuites);
    EXPECT_TRUE(testkit::logged("Dropped a response that failed its check; still waiting.\n"));
}

TEST_F(Scripted, StrictPeerStillReportsARefusalThatComesAgain)
{
    ScriptedBmc bmc([](const Bytes &rq, int) { return std::vector<Bytes>{response(index_of(rq), 0xD4, {})}; });
    for (const auto &[attempts, sends] : std::vector<std::pair<uint16_t, int>>{{3, 2}, {1, 1}}) {
        testkit::clear_trace();
        const int before = bmc.requests();
        Socket s(ScriptedBmc::kAddress);
        // rqAddr of the hand-written answer
        const uint8_t sa = RMCPConnectSA;
        RMCPConnectSA = kRqAddr;
        const auto started = std::chrono::steady_clock::now();
        EXPECT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(attempts, 1), 0x0E, true, out),
                  RMCPP_ERR_COMPLETION);
        RMCPConnectSA = sa;
        EXPECT_EQ(bmc.requests() - before, sends);
        // The first refusal is waited past to the end of its send's wait.
        EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(900));
    }
}

// ------------------------------------------------------------------ ipmi_sim

TEST(IpmiSim, SameListAsIpmitoolPrints)
{
    testkit::clear_trace();
    testkit::IpmiSimPeer peer("127.0.5.3", testkit::default_ipmi_sim_users());
    std::string printed;
    const auto listed = ciphertest::ipmitool_getciphers("127.0.5.3", "admin", "password", printed);
    ASSERT_GE(listed.size(), 4u) << printed;

    Socket s("127.0.5.3");
    RMCPP_ChannelCipherSuites out = ciphertest::empty_list();
    ASSERT_EQ(ciphers::get_channel_cipher_suites(s.fd, param(), 0x0E, false, out), 0) << testkit::log_text();
    const auto ours = suites_of(out);
    // ipmitool reads at most 64 bytes of records (four responses), so it may
    // print fewer suites than the channel lists; those it prints match.
    ASSERT_GE(ours.size(), listed.size()) << printed;
    EXPECT_EQ(std::vector<Suite>(ours.begin(), ours.begin() + static_cast<long>(listed.size())), listed) << printed;
    EXPECT_EQ(ours, kIpmiSimSuites);
}

}  // namespace
