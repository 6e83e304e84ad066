// Whole sessions against the BMC simulator on loopback (127.0.0.73):
// establishment, exchanges, bridged answers, Close Session, and every fault
// the simulator can put into its session answers.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using namespace packettest;
using bmcsim::SessionFault;
using Lines = std::vector<std::string>;

constexpr uint8_t kSim = 73;

bmcsim::Config base()
{
    bmcsim::Config c;
    c.address = testkit::loopback_text(kSim);
    c.users = {{"admin", "secret", 4, true}};
    return c;
}

Bytes get_device_id(uint8_t seq) { return request_of(0x06, 0x01, seq); }

class SimSession : public ::testing::TestWithParam<int> {
protected:
    void TearDown() override
    {
        if (param.session) IPMI_CloseSession(&param);
    }

    void open(bmcsim::Config c = base())
    {
        sim = std::make_unique<bmcsim::Simulator>(std::move(c));
        sim->start();
        param.bmc_address = testkit::loopback(kSim);
        param.user_name = "admin";
        param.user_password = "secret";
        param.privilege_level = 4;
        param.cipher_suite_id = suite();
        param.slave_address = 0x20;
        param.retry_count = 3;
        param.timeout_sec = 1;
        ASSERT_EQ(IPMI_SetupSession(&param), 0);
        ASSERT_NE(param.session, nullptr);
    }
    int suite() const { return GetParam(); }
    uint8_t flags() const { return static_cast<uint8_t>(protection_of(suite()) >> 2); }

    struct Result {
        int code;
        Bytes response;
        uint32_t released;
    };
    Result ask(const Bytes &request, int attempts = 1, int wait = 1)
    {
        Result r{-9, Bytes(128), 77};
        uint32_t length = 0;
        r.code = IPMI_Message_IF(&param, request.data(), static_cast<uint32_t>(request.size()), r.response.data(),
                                 128, &length, 0, &r.released, attempts, wait);
        r.response.resize(r.code == 0 ? length : 0);
        return r;
    }
    void set_fault(SessionFault fault, int faulty_answers = -1, bool then_correct = false, int value = -1)
    {
        sim->modify([&](bmcsim::Config &c) {
            c.session.fault = fault;
            c.session.value = value;
            c.session.reply.faulty_answers = faulty_answers;
            c.session.reply.then_correct = then_correct;
        });
    }

    // Every answer damaged: the one attempt runs out, the damage logged.
    void expect_rejected(const char *message)
    {
        testkit::clear_trace();
        EXPECT_EQ(ask(get_device_id(9)).code, 4) << message;
        EXPECT_TRUE(testkit::logged(message)) << message;
        EXPECT_NE(param.session, nullptr);
    }
    IPMI_SessionParam param{};
    std::unique_ptr<bmcsim::Simulator> sim;
};

// ------------------------------------------------------------ whole sessions

TEST_P(SimSession, ThousandExchangesThenCloseSession)
{
    open();
    for (int i = 0; i < 1000; ++i) {
        const Bytes request = get_device_id(static_cast<uint8_t>(i & 0x3F));
        const Result r = ask(request);
        ASSERT_EQ(r.code, 0) << i;
        ASSERT_EQ(r.response, response_to(request, 0x00, kSimulatorDeviceId)) << i;
    }
    EXPECT_EQ(param.session->send_seq_auth + param.session->send_seq_unauth, 1002u);
    testkit::clear_trace();
    EXPECT_EQ(IPMI_CloseSession(&param), 0);
    EXPECT_EQ(param.session, nullptr);
    EXPECT_TRUE(testkit::log_lines().empty());
    const auto stats = sim->stats();
    EXPECT_EQ(stats.sessions_closed, 1u);
    EXPECT_EQ(stats.rejected_packets, 0u);
}

TEST_P(SimSession, ChassisAndSelfTestCommands)
{
    open();
    Result r = ask(request_of(0x00, 0x02, 1, {0x01}));
    ASSERT_EQ(r.code, 0);
    EXPECT_EQ(r.response.at(6), 0x00);
    r = ask(request_of(0x00, 0x01, 2));
    ASSERT_EQ(r.code, 0);
    EXPECT_EQ(Bytes(r.response.begin() + 6, r.response.end() - 1), (Bytes{0x00, 0x01, 0x00, 0x00, 0x00}));
    r = ask(request_of(0x06, 0x04, 3));
    ASSERT_EQ(r.code, 0);
    EXPECT_EQ(Bytes(r.response.begin() + 6, r.response.end() - 1), (Bytes{0x00, 0x55, 0x00}));
}

TEST_P(SimSession, BridgedAnswerArrivesThroughGetIpmbResponse)
{
    open();
    const Bytes inner = rakptest::ipmi_message(0x72, 0x18, 0x20, 0x08, 0x01, {});
    const Result sent = ask(request_of(0x06, 0x34, 5, cat({{0x00}, inner})));
    ASSERT_EQ(sent.code, 0);
    EXPECT_EQ(sent.response.at(6), 0x00);
    uint8_t response[64];
    uint32_t length = 0, released = 9;
    ASSERT_EQ(Get_IPMB_Response(&param, inner.data(), static_cast<uint32_t>(inner.size()), response, sizeof response,
                                &length, &released, flags(), 2),
              0);
    EXPECT_EQ(Bytes(response, response + length), response_to(inner, 0x00, kSimulatorDeviceId));
    EXPECT_EQ(released, 0u);
}

TEST_P(SimSession, CompletionCodeIsReturnedAndTraced)
{
    open();
    set_fault(SessionFault::CompletionCode, -1, false, 0xD4);
    testkit::clear_trace();
    const Bytes request = get_device_id(3);
    const Result r = ask(request);
    ASSERT_EQ(r.code, 0);
    EXPECT_EQ(r.response.at(6), 0xD4);
    ASSERT_EQ(testkit::lookups().size(), 1u);
    EXPECT_EQ(testkit::lookups()[0].number, 20020);
    EXPECT_EQ(testkit::lookups()[0].argument.substr(0, 8), "CC=0xD4:");
    // Close Session answered with a completion code: 67, released all the same.
    EXPECT_EQ(IPMI_CloseSession(&param), 67);
    EXPECT_EQ(param.session, nullptr);
}

// ------------------------------------------------------------ lost, repeated and late answers

TEST_P(SimSession, DroppedAnswerIsAskedAgain)
{
    open();
    sim->modify([](bmcsim::Config &c) { c.session.reply.ignore_first = 1; });
    const Result r = ask(get_device_id(1), 3, 1);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(sim->stats().count(bmcsim::Kind::SessionPacket), 2u);
}

TEST_P(SimSession, SilentManagedSystemUsesUpTheAttempts)
{
    open();
    sim->modify([](bmcsim::Config &c) { c.session.reply.silent = true; });
    EXPECT_EQ(ask(get_device_id(1), 2, 1).code, 4);
    EXPECT_NE(param.session, nullptr);
}

TEST_P(SimSession, DuplicatedAnswersAreTakenOnce)
{
    open();
    sim->modify([](bmcsim::Config &c) { c.session.reply.copies = 2; });
    testkit::clear_trace();
    for (uint8_t i = 0; i < 10; ++i) {
        const Bytes request = get_device_id(i);
        const Result r = ask(request);
        ASSERT_EQ(r.code, 0) << int(i);
        EXPECT_EQ(r.response, response_to(request, 0x00, kSimulatorDeviceId));
    }
    EXPECT_GE(testkit::count_logged("Received Unexpected Packet.(S_H SessSeqNum)\n"), 9);
}

TEST_P(SimSession, LateAnswerToTheFirstAttemptIsTaken)
{
    open();
    sim->modify([](bmcsim::Config &c) {
        c.session.reply.delay_ms = 1300;
        c.session.reply.faulty_answers = 1;
    });
    const Bytes request = get_device_id(7);
    const Result r = ask(request, 2, 1);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.response, response_to(request, 0x00, kSimulatorDeviceId));
}

TEST_P(SimSession, ReorderedAnswersWithinTheWindowAreTakenOnceAndMatched)
{
    open();
    set_fault(SessionFault::Reorder, 1);
    const Bytes first = get_device_id(1), second = get_device_id(2);
    // The first answer is held back until the second request.
    Result r = ask(first, 2, 1);
    EXPECT_EQ(r.code, 0);
    r = ask(second);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.response, response_to(second, 0x00, kSimulatorDeviceId));
}

TEST_P(SimSession, ReplayedAnswerIsRejected)
{
    open();
    ASSERT_EQ(ask(get_device_id(1)).code, 0);
    set_fault(SessionFault::Replay, 1);
    testkit::clear_trace();
    const Bytes request = get_device_id(2);
    const Result r = ask(request);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.response, response_to(request, 0x00, kSimulatorDeviceId));
    EXPECT_EQ(testkit::count_logged("Received Unexpected Packet.(S_H SessSeqNum)\n"), 1);
}

// ------------------------------------------------------------ damaged answers

struct Damage {
    SessionFault fault;
    const char *message;
};

TEST_P(SimSession, WrongSessionIdIsRejected)
{
    open();
    set_fault(SessionFault::WrongSessionId);
    expect_rejected("Received Unexpected Packet.(S_H SessID)\n");
    set_fault(SessionFault::WrongSessionId, -1, true);
    EXPECT_EQ(ask(get_device_id(10)).code, 0);
}

TEST_P(SimSession, OtherProtectionIsSkipped)
{
    open();
    set_fault(SessionFault::OtherProtection, -1, true);
    const Bytes request = get_device_id(4);
    const Result r = ask(request);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.response, response_to(request, 0x00, kSimulatorDeviceId));
}

TEST_P(SimSession, IntegrityFaultsAreRejected)
{
    if (integrity_of(suite()) == 0) GTEST_SKIP() << "no integrity trailer in this suite";
    open();
    const Damage damages[] = {
        {SessionFault::BadIntegrity, "Invalid Integrity Code in received packet.\n"},
        {SessionFault::BadIntegrityPad, "Received Unexpected Packet.(S_T Pad value)\n"},
        {SessionFault::BadIntegrityPadLength, "Received Unexpected Packet.(S_T Pad Length)\n"},
        {SessionFault::BadNextHeader, "Received Unexpected Packet.(S_T Next Header)\n"},
    };
    for (const auto &d : damages) {
        set_fault(d.fault);
        expect_rejected(d.message);
    }
    set_fault(SessionFault::None);
    EXPECT_EQ(ask(get_device_id(11)).code, 0);
}

TEST_P(SimSession, BadIntegrityCodeLeavesTheWindowWhileBadPadsMoveIt)
{
    if (integrity_of(suite()) == 0) GTEST_SKIP() << "no integrity trailer in this suite";
    open();
    const uint32_t before = param.session->recv_seq_auth;
    set_fault(SessionFault::BadIntegrity);
    EXPECT_EQ(ask(get_device_id(1)).code, 4);
    EXPECT_EQ(param.session->recv_seq_auth, before);
    set_fault(SessionFault::BadNextHeader);
    EXPECT_EQ(ask(get_device_id(2)).code, 4);
    EXPECT_GT(param.session->recv_seq_auth, before);
}

TEST_P(SimSession, ConfidentialityFaultsAreRejected)
{
    if (confidentiality_of(suite()) == 0) GTEST_SKIP() << "no confidentiality in this suite";
    open();
    const Damage damages[] = {
        {SessionFault::BadConfidentialityPadLength,
         "Invalid value = 10 (expected < 0F) in [Confidentiality Pad Length Field].\n"},
        {SessionFault::BadConfidentialityPayloadLength, nullptr},
        {SessionFault::ShortConfidentialityPayload, "Invalid Payload Data Length = 16 (expected > 32).\n"},
    };
    for (const auto &d : damages) {
        set_fault(d.fault);
        testkit::clear_trace();
        EXPECT_EQ(ask(get_device_id(9)).code, 4);
        if (d.message)
            EXPECT_TRUE(testkit::logged(d.message)) << d.message;
        else
            EXPECT_NE(testkit::log_text().find("(expected multiple 16 Bytes).\n"), std::string::npos);
        EXPECT_TRUE(testkit::logged("Invalid Payload data.\n"));
    }
    set_fault(SessionFault::BadConfidentialityPad);
    testkit::clear_trace();
    EXPECT_EQ(ask(get_device_id(9)).code, 4);
    EXPECT_NE(testkit::log_text().find("Invalid confidentiality padding data "), std::string::npos);
    set_fault(SessionFault::None);
    EXPECT_EQ(ask(get_device_id(12)).code, 0);
}

// ------------------------------------------------------------ exhaustion

TEST_P(SimSession, InboundNumbersUpToTheLastReleaseTheSessionOnce)
{
    bmcsim::Config c = base();
    c.session.outbound_sequence_start = 0xFFFFFFF0;
    open(c);
    // The console's window has to be near the simulator's numbers.
    RMCPp_Session *s = param.session;
    (integrity_of(suite()) ? s->recv_seq_auth : s->recv_seq_unauth) = 0xFFFFFFEF;
    for (uint8_t i = 0; i < 15; ++i) {
        const Result r = ask(get_device_id(i));
        ASSERT_EQ(r.code, 0) << int(i);
        ASSERT_EQ(r.released, 0u);
    }
    const Bytes request = get_device_id(15);
    const Result last = ask(request);
    EXPECT_EQ(last.code, 0);
    EXPECT_EQ(last.released, 1u);
    EXPECT_EQ(last.response, response_to(request, 0x00, kSimulatorDeviceId));
    EXPECT_EQ(param.session, nullptr);
    EXPECT_EQ(IPMI_CloseSession(&param), 1);
}

TEST_P(SimSession, NumbersFarAboveTheWindowAreRejected)
{
    bmcsim::Config c = base();
    c.session.outbound_sequence_start = 0xFFFFFFF0;
    open(c);
    testkit::clear_trace();
    EXPECT_EQ(ask(get_device_id(1)).code, 4);
    EXPECT_TRUE(testkit::logged("Received Unexpected Packet.(S_H SessSeqNum)\n"));
}

TEST_P(SimSession, OutboundCounterWrapReleasesTheSessionOnce)
{
    bmcsim::Config c = base();
    c.session.strict_inbound_window = false;
    open(c);
    RMCPp_Session *s = param.session;
    (integrity_of(suite()) ? s->send_seq_auth : s->send_seq_unauth) = 0xFFFFFFFE;
    EXPECT_EQ(ask(get_device_id(1)).code, 0);
    const Result r = ask(get_device_id(2));
    EXPECT_EQ(r.code, 5);
    EXPECT_EQ(r.released, 1u);
    EXPECT_EQ(param.session, nullptr);
    EXPECT_TRUE(sim->wait_for(bmcsim::Kind::SessionPacket, 2, std::chrono::milliseconds(1000)));
}

TEST_P(SimSession, CloseSessionThatWrapsTheCounterReleasesOnce)
{
    bmcsim::Config c = base();
    c.session.strict_inbound_window = false;
    open(c);
    RMCPp_Session *s = param.session;
    (integrity_of(suite()) ? s->send_seq_auth : s->send_seq_unauth) = 0xFFFFFFFF;
    EXPECT_EQ(IPMI_CloseSession(&param), 5);
    EXPECT_EQ(param.session, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Suites, SimSession, ::testing::Values(0, 1, 2, 3),
                         [](const ::testing::TestParamInfo<int> &info) { return "suite" + std::to_string(info.param); });

}  // namespace
