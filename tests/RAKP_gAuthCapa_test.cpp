// Get Channel Authentication Capabilities over IPMI v1.5: the request
// byte for byte, every check of the response with its message and code, and
// the phase against a scripted managed system on 127.0.0.60.
#include <gtest/gtest.h>

#include "RAKP_testkit.h"

using namespace rakptest;
using testkit::clear_trace;
using testkit::log_lines;
using testkit::logged;

namespace {

constexpr uint8_t kPeer = 60;

IPMI_MsgHeader expected_record(uint8_t rs_addr = 0x20, uint8_t rs_lun = 0, uint8_t rq_addr = 0x71)
{
    return {0x06, rq_addr, 0x38, 0, 1, 0x07, rs_addr, rs_lun};
}

const Bytes kDefaultRequest = {0x06, 0x00, 0xFF, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                               0x00, 0x09, 0x20, 0x18, 0xC8, 0x71, 0x04, 0x38, 0x8E, 0x04, 0xC1};

// Runs Check_IPMIv15_NonAuth on a datagram without its RMCP header, as the
// retry routine hands it over.
struct V15Result {
    int code;
    uint32_t length;
    uint32_t used;
    Lines lines;
};

V15Result check_v15(const Bytes &datagram, const IPMI_MsgHeader &record = expected_record())
{
    RMCPp_SetupState state{};
    V15Result r{};
    r.length = static_cast<uint32_t>(datagram.size() - 4);
    clear_trace();
    r.code = Check_IPMIv15_NonAuth(&state, datagram.data() + 4, &r.length, &record, &r.used);
    r.lines = log_lines();
    return r;
}

struct CapaResult {
    int code;
    uint8_t not_supported = 0;
    uint8_t kg = 0xEE, per_msg = 0xEE, user = 0xEE;  // sentinels: untouched unless written
    Lines lines;
};

CapaResult check_capa(const Bytes &data, uint32_t length)
{
    CapaResult r;
    clear_trace();
    r.code = Check_GetAuthCapa_v15(data.data(), length, &r.not_supported, &r.kg, &r.per_msg, &r.user);
    r.lines = log_lines();
    return r;
}

CapaResult check_capa(const Bytes &data) { return check_capa(data, static_cast<uint32_t>(data.size())); }

}  // namespace

// ------------------------------------------------------------------ request

TEST(GetAuthCapaRequest, IsTwentyThreeBytesByteForByte)
{
    RMCPp_SetupState state{};
    const IPMI_MsgHeader record = expected_record();
    uint8_t buffer[400];
    uint32_t length = 0;
    ASSERT_EQ(Make_GetAuthCapa_v15(&state, &record, 4, buffer, sizeof buffer, &length), 0);
    EXPECT_EQ(length, 23u);
    EXPECT_EQ(bytes_of(buffer, length), kDefaultRequest);
}

TEST(GetAuthCapaRequest, TakesAddressesLunAndPrivilegeFromTheRecord)
{
    RMCPp_SetupState state{};
    const IPMI_MsgHeader record = expected_record(0x82, 2, 0x81);
    uint8_t buffer[23];
    uint32_t length = 0;
    ASSERT_EQ(Make_GetAuthCapa_v15(&state, &record, 2, buffer, sizeof buffer, &length), 0);
    const Bytes want = {0x06, 0x00, 0xFF, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                        0x00, 0x09, 0x82, 0x1A, 0x64, 0x81, 0x04, 0x38, 0x8E, 0x02, 0xB3};
    EXPECT_EQ(bytes_of(buffer, length), want);
}

TEST(GetAuthCapaRequest, MasksTheResponderLunToTwoBits)
{
    RMCPp_SetupState state{};
    const IPMI_MsgHeader record = expected_record(0x20, 7);
    uint8_t buffer[23];
    uint32_t length = 0;
    ASSERT_EQ(Make_GetAuthCapa_v15(&state, &record, 4, buffer, sizeof buffer, &length), 0);
    EXPECT_EQ(buffer[15], 0x1B);
    EXPECT_EQ(static_cast<uint8_t>(buffer[14] + buffer[15] + buffer[16]), 0);
}

TEST(GetAuthCapaRequest, RefusesABufferBelowTwentyThreeBytes)
{
    RMCPp_SetupState state{};
    const IPMI_MsgHeader record = expected_record();
    uint8_t buffer[23];
    std::memset(buffer, 0xEE, sizeof buffer);
    uint32_t length = 77;
    clear_trace();
    EXPECT_EQ(Make_GetAuthCapa_v15(&state, &record, 4, buffer, 22, &length), 3);
    EXPECT_EQ(log_lines(), Lines{"Insufficient Data Size.\n"});
    EXPECT_EQ(length, 77u);
    EXPECT_EQ(bytes_of(buffer, sizeof buffer), Bytes(23, 0xEE));
}

// ------------------------------------------------------- v1.5 session check

TEST(IPMIv15NonAuth, AcceptsTheAnswerAndPointsAtTheCompletionCode)
{
    const auto r = check_v15(auth_capa_response(auth_capa_data()));
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.used, 16u);
    EXPECT_EQ(r.length, 9u);
    EXPECT_TRUE(r.lines.empty());
}

TEST(IPMIv15NonAuth, SkipsARemainderOfNineBytes)
{
    Bytes d = auth_capa_response(auth_capa_data());
    d.resize(4 + 9);
    const auto r = check_v15(d);
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, Lines{"Received unexpected Packet.(S_H length)\n"});
}

TEST(IPMIv15NonAuth, SkipsAnAuthenticationTypeOtherThanNone)
{
    V15Header h;
    h.auth_type = 0x02;
    const auto r = check_v15(auth_capa_response(auth_capa_data(), 0, h));
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, Lines{"Received unexpected Packet.(S_H Auth Format)\n"});
}

// The first word is the sequence number, named "SessID" by its message.
TEST(IPMIv15NonAuth, SkipsANonZeroSequenceNumberUnderTheSessIDText)
{
    V15Header h;
    h.sequence = 0x01000000;
    const auto r = check_v15(auth_capa_response(auth_capa_data(), 0, h));
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, Lines{"Received unexpected Packet.(S_H SessID)\n"});
}

TEST(IPMIv15NonAuth, SkipsANonZeroSessionIdUnderTheSessSeqNumText)
{
    V15Header h;
    h.session_id = 1;
    const auto r = check_v15(auth_capa_response(auth_capa_data(), 0, h));
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, Lines{"Received unexpected Packet.(S_H SessSeqNum)\n"});
}

TEST(IPMIv15NonAuth, RejectsAHeaderOnlyRemainderWith66)
{
    const Bytes d = v15({}, {});
    ASSERT_EQ(d.size(), 14u);
    const auto r = check_v15(d);
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.used, 10u);
    EXPECT_EQ(r.lines, Lines{"Invalid Payload Length.\n"});
}

TEST(IPMIv15NonAuth, RejectsAMessageLengthOfSeven)
{
    const Bytes d = v15({}, {0x71, 0x1C, 0x73, 0x20, 0x04, 0x38, 0xA4});
    const auto r = check_v15(d);
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.lines, Lines{"Invalid Payload Length.\n"});
}

TEST(IPMIv15NonAuth, RejectsAMessageLengthThatDisagreesWithTheDatagram)
{
    for (int adjust : {-1, +1}) {
        V15Header h;
        h.length_adjust = adjust;
        const auto r = check_v15(auth_capa_response(auth_capa_data(), 0, h));
        EXPECT_EQ(r.code, 66) << adjust;
        EXPECT_EQ(r.lines, Lines{"Invalid Payload Length.\n"}) << adjust;
    }
}

TEST(IPMIv15NonAuth, RejectsABadChecksumWith66)
{
    Bytes d = auth_capa_response(auth_capa_data());
    d.back() ^= 0x01;
    const auto r = check_v15(d);
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.lines, (Lines{"[ Invalid Response ] IPMI Message : checksum2\n", "Error at IPMI Message Header.\n"}));
}

TEST(IPMIv15NonAuth, RejectsAnAnswerToAnotherCommand)
{
    const Bytes d = v15({}, ipmi_message(0x71, 0x1C, 0x20, 0x04, 0x39, auth_capa_data()));
    const auto r = check_v15(d);
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.lines, (Lines{"[ Invalid Response ] IPMI Message : Cmd = 39h (expected 38h)\n",
                              "Error at IPMI Message Header.\n"}));
}

TEST(IPMIv15NonAuth, RejectsAnotherRequestSequenceNumber)
{
    const Bytes d = v15({}, ipmi_message(0x71, 0x1C, 0x20, 0x08, 0x38, auth_capa_data()));
    const auto r = check_v15(d);
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.lines, (Lines{"[ Invalid Response ] IPMI Message : rqSeq/rsLUN = 08h (expected 04h)\n",
                              "Error at IPMI Message Header.\n"}));
}

// ------------------------------------------------------------ response data

TEST(GetAuthCapaData, KeepsTheMaskedStatusBits)
{
    const auto r = check_capa(auth_capa_data(0xFF));
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.not_supported, 0);
    EXPECT_EQ(r.kg, 0x20);
    EXPECT_EQ(r.per_msg, 0x10);
    EXPECT_EQ(r.user, 0x08);
    EXPECT_TRUE(r.lines.empty());

    const auto kg_only = check_capa(auth_capa_data(0x20));
    EXPECT_EQ(kg_only.kg, 0x20);
    EXPECT_EQ(kg_only.per_msg, 0);
    EXPECT_EQ(kg_only.user, 0);
}

TEST(GetAuthCapaData, RefusesACompletionCodeWith67)
{
    const auto r = check_capa(auth_capa_data(0x00, 0x80, 0x02, 0xC1));
    EXPECT_EQ(r.code, 67);
    EXPECT_EQ(r.lines, Lines{"Unexpected Completion Code = c1h\n"});
    EXPECT_EQ(r.kg, 0xEE);
}

TEST(GetAuthCapaData, LooksAtTheCompletionCodeBeforeTheLength)
{
    Bytes d = auth_capa_data(0x00, 0x80, 0x02, 0xCC);
    d.pop_back();
    const auto r = check_capa(d);
    EXPECT_EQ(r.code, 67);
    EXPECT_EQ(r.lines, Lines{"Unexpected Completion Code = cch\n"});
}

TEST(GetAuthCapaData, RefusesDataOtherThanNineBytesWith68)
{
    Bytes d = auth_capa_data();
    const auto shorter = check_capa(d, 8);
    EXPECT_EQ(shorter.code, 68);
    EXPECT_EQ(shorter.lines, Lines{"Invalid IPMI Respone Data Length = 8 (expected 9)\n"});
    d.push_back(0);
    const auto longer = check_capa(d);
    EXPECT_EQ(longer.code, 68);
    EXPECT_EQ(longer.lines, Lines{"Invalid IPMI Respone Data Length = 10 (expected 9)\n"});
}

TEST(GetAuthCapaData, WithoutV20ExtendedDataSetsTheFlagAndLeavesTheStatusAlone)
{
    const auto r = check_capa(auth_capa_data(0x38, 0x7F, 0x02));
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.not_supported, 1);
    EXPECT_EQ(r.kg, 0xEE);
    EXPECT_EQ(r.per_msg, 0xEE);
    EXPECT_EQ(r.user, 0xEE);
    EXPECT_EQ(r.lines, Lines{"IPMI v 2.0 is not supported.\n"});
}

TEST(GetAuthCapaData, WithoutV20ConnectionsWritesTheStatusThenSetsTheFlag)
{
    const auto r = check_capa(auth_capa_data(0x18, 0x80, 0xFD));
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.not_supported, 1);
    EXPECT_EQ(r.kg, 0x00);
    EXPECT_EQ(r.per_msg, 0x10);
    EXPECT_EQ(r.user, 0x08);
    EXPECT_EQ(r.lines, Lines{"channel not supports IPMI v2.0 connection.\n"});
}

// ------------------------------------------- the phase against a scripted peer

TEST(GetAuthCapaPhase, AsksAndStoresTheStatusBits)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &, int) { return std::vector<Bytes>{auth_capa_response(auth_capa_data(0x30))}; });
    uint8_t not_supported = 0;
    clear_trace();
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 4), 0);
    peer.stop();
    EXPECT_EQ(not_supported, 0);
    EXPECT_EQ(link.state.kg_status, 0x20);
    EXPECT_EQ(link.state.per_msg_auth_status, 0x10);
    EXPECT_EQ(link.state.user_auth_status, 0x00);
    ASSERT_EQ(peer.requests().size(), 1u);
    EXPECT_EQ(peer.requests()[0], kDefaultRequest);
    EXPECT_TRUE(log_lines().empty());
}

TEST(GetAuthCapaPhase, SendsThePrivilegeAndTheResponderFromTheState)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    link.state.rs_addr = 0x82;
    link.state.rs_lun = 2;
    ScriptedPeer peer(kPeer, [](const Bytes &, int) {
        return std::vector<Bytes>{
            v15({}, ipmi_message(0x71, 0x1C, 0x82, 0x06, 0x38, auth_capa_data()))};
    });
    uint8_t not_supported = 0;
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 2), 0);
    peer.stop();
    ASSERT_EQ(peer.requests().size(), 1u);
    const Bytes want = {0x06, 0x00, 0xFF, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                        0x00, 0x09, 0x82, 0x1A, 0x64, 0x71, 0x04, 0x38, 0x8E, 0x02, 0xC3};
    EXPECT_EQ(peer.requests()[0], want);
}

TEST(GetAuthCapaPhase, KeepsWaitingPastStrayDatagrams)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &, int) {
        V15Header with_session;
        with_session.session_id = 1;
        V15Header with_sequence;
        with_sequence.sequence = 1;
        Bytes bad_class = auth_capa_response(auth_capa_data());
        bad_class[3] = 0x06;
        return std::vector<Bytes>{auth_capa_response(auth_capa_data(), 0, with_session), bad_class,
                                  auth_capa_response(auth_capa_data(), 0, with_sequence),
                                  auth_capa_response(auth_capa_data(0x08))};
    });
    uint8_t not_supported = 0;
    clear_trace();
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 4), 0);
    peer.stop();
    EXPECT_EQ(link.state.user_auth_status, 0x08);
    EXPECT_EQ(peer.requests().size(), 1u);
    EXPECT_TRUE(logged("Received unexpected Packet.(S_H SessSeqNum)\n"));
    EXPECT_TRUE(logged("Receive Packet with Invalid RMCP Header.\n"));
    EXPECT_TRUE(logged("Received unexpected Packet.(S_H SessID)\n"));
    EXPECT_FALSE(logged("Timeout, now retrying ...\n"));
}

TEST(GetAuthCapaPhase, EndsAtOnceOnABadChecksum)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &, int) {
        Bytes bad = auth_capa_response(auth_capa_data());
        bad[16] ^= 0xFF;
        return std::vector<Bytes>{bad};
    });
    uint8_t not_supported = 0;
    clear_trace();
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 4), 66);
    peer.stop();
    EXPECT_EQ(peer.requests().size(), 1u);
    EXPECT_EQ(log_lines(), (Lines{"[ Invalid Response ] IPMI Message : checksum1\n", "Error at IPMI Message Header.\n",
                                  "Failed to do Get Authentication Capabilitties Request / Reponse.\n"}));
}

TEST(GetAuthCapaPhase, ResendsTheSameBytesAfterATimeout)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &, int index) {
        if (index == 0) return std::vector<Bytes>{};
        return std::vector<Bytes>{auth_capa_response(auth_capa_data())};
    });
    uint8_t not_supported = 0;
    clear_trace();
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 4), 0);
    peer.stop();
    const auto requests = peer.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0], kDefaultRequest);
    EXPECT_EQ(requests[1], kDefaultRequest);
    EXPECT_EQ(testkit::count_logged("Timeout, now retrying ...\n"), 1);
}

TEST(GetAuthCapaPhase, ReadsALateAnswerOnlyAfterTheResend)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &, int index) {
        if (index != 0) return std::vector<Bytes>{};
        sleep_ms(1300);
        return std::vector<Bytes>{auth_capa_response(auth_capa_data(0x10))};
    });
    uint8_t not_supported = 0;
    clear_trace();
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 4), 0);
    peer.stop();
    EXPECT_EQ(link.state.per_msg_auth_status, 0x10);
    EXPECT_EQ(peer.requests().size(), 2u);
    EXPECT_EQ(testkit::count_logged("Timeout, now retrying ...\n"), 1);
}

TEST(GetAuthCapaPhase, GivesUpWith4WhenNobodyAnswers)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &, int) { return std::vector<Bytes>{}; });
    uint8_t not_supported = 0;
    clear_trace();
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 4), 4);
    peer.stop();
    EXPECT_EQ(peer.requests().size(), 2u);
    const Lines lines = log_lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "Re-try over.\n");
    EXPECT_EQ(lines.back(), "Failed to do Get Authentication Capabilitties Request / Reponse.\n");
    EXPECT_EQ(testkit::count_logged("Timeout, now retrying ...\n"), 2);
}

TEST(GetAuthCapaPhase, PassesACompletionCodeOnAs67)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &, int) {
        return std::vector<Bytes>{auth_capa_response(auth_capa_data(0x00, 0x80, 0x02, 0xC1))};
    });
    uint8_t not_supported = 0;
    clear_trace();
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 4), 67);
    peer.stop();
    EXPECT_EQ(log_lines(), (Lines{"Unexpected Completion Code = c1h\n",
                                  "Invalid Data in Get Authentication Capabilitties Response.\n"}));
}

TEST(GetAuthCapaPhase, PassesADataLengthFaultOnAs68)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &, int) {
        Bytes data = auth_capa_data();
        data.push_back(0x00);
        return std::vector<Bytes>{auth_capa_response(data)};
    });
    uint8_t not_supported = 0;
    clear_trace();
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 4), 68);
    peer.stop();
    EXPECT_EQ(log_lines(), (Lines{"Invalid IPMI Respone Data Length = 10 (expected 9)\n",
                                  "Invalid Data in Get Authentication Capabilitties Response.\n"}));
}

TEST(GetAuthCapaPhase, ReportsAChannelWithoutRMCPPlusThroughTheFlag)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &, int) {
        return std::vector<Bytes>{auth_capa_response(auth_capa_data(0x38, 0x14, 0x00))};
    });
    uint8_t not_supported = 0;
    EXPECT_EQ(GetAuthCapa_v15(&link.state, &not_supported, 4), 0);
    peer.stop();
    EXPECT_EQ(not_supported, 1);
    EXPECT_EQ(link.state.kg_status, 0);
    EXPECT_EQ(link.state.per_msg_auth_status, 0);
    EXPECT_EQ(link.state.user_auth_status, 0);
}
