// Open Session: the request byte for byte, the pre-session RMCP+ session
// header check, every check of the response with its message and code, and
// the phase against a scripted managed system on 127.0.0.61.
#include <gtest/gtest.h>

#include "RAKP_testkit.h"

using namespace rakptest;
using testkit::clear_trace;
using testkit::log_lines;
using testkit::logged;

namespace {

constexpr uint8_t kPeer = 61;
constexpr uint32_t kConsoleSid = 0xA1B2C3D4;
constexpr uint32_t kBmcSid = 0x11223344;

RMCPp_SetupState suite_state(uint8_t auth, uint8_t integrity, uint8_t confidentiality)
{
    RMCPp_SetupState s{};
    s.console_session_id = kConsoleSid;
    s.req_auth_alg = auth;
    s.req_integrity_alg = integrity;
    s.req_confidentiality_alg = confidentiality;
    return s;
}

OpenSessionResponse good_response()
{
    OpenSessionResponse r;
    r.console_sid = kConsoleSid;
    r.bmc_sid = kBmcSid;
    return r;
}

struct HeadResult {
    int code;
    uint32_t header_length = 0;
    uint16_t payload_length = 0;
    Lines lines;
};

HeadResult check_head(const Bytes &datagram, uint8_t type)
{
    HeadResult r;
    clear_trace();
    r.code = Check_IPMISessHead_RAKP(datagram.data() + 4, static_cast<uint32_t>(datagram.size() - 4),
                                     &r.header_length, type, &r.payload_length);
    r.lines = log_lines();
    return r;
}

struct OpenResult {
    int code;
    uint32_t used = 0;
    RMCPp_SetupState state;
    Lines lines;
};

OpenResult check_open(const Bytes &datagram, uint8_t tag = 1)
{
    OpenResult r;
    r.state = suite_state(1, 1, 1);
    r.state.auth_alg = r.state.integrity_alg = r.state.confidentiality_alg = 0xEE;
    clear_trace();
    r.code = Check_OpenSessResponse(&r.state, datagram.data() + 4, static_cast<uint32_t>(datagram.size() - 4), tag,
                                    &r.used);
    r.lines = log_lines();
    return r;
}

// The console session ID of an Open Session Request, read off the wire.
uint32_t console_sid_of(const Bytes &request)
{
    rmcpp::wire::Reader r(request.data(), request.size());
    r.skip(20);
    return r.u32le();
}

}  // namespace

// ------------------------------------------------------------------ request

TEST(OpenSessionRequest, IsFortyEightBytesByteForByte)
{
    RMCPp_SetupState state = suite_state(1, 1, 1);
    uint8_t buffer[400];
    uint32_t length = 0;
    ASSERT_EQ(Make_OpenSessRequest(&state, 4, 1, buffer, sizeof buffer, &length), 0);
    ASSERT_EQ(length, 48u);
    const Bytes want = {0x06, 0x00, 0xFF, 0x07, 0x06, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x20, 0x00,
                        0x01, 0x04, 0x00, 0x00, 0xD4, 0xC3, 0xB2, 0xA1, 0x00, 0x00, 0x00, 0x08, 0x01, 0x00, 0x00, 0x00,
                        0x01, 0x00, 0x00, 0x08, 0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x08, 0x01, 0x00, 0x00, 0x00};
    EXPECT_EQ(bytes_of(buffer, length), want);
}

TEST(OpenSessionRequest, CarriesRoleZeroTagAndEachProposedAlgorithm)
{
    RMCPp_SetupState state = suite_state(1, 0, 0);
    uint8_t buffer[48];
    uint32_t length = 0;
    ASSERT_EQ(Make_OpenSessRequest(&state, 0, 7, buffer, sizeof buffer, &length), 0);
    EXPECT_EQ(buffer[16], 7);
    EXPECT_EQ(buffer[17], 0);
    EXPECT_EQ(buffer[28], 1);
    EXPECT_EQ(buffer[36], 0);
    EXPECT_EQ(buffer[44], 0);
}

TEST(OpenSessionRequest, RefusesABufferBelowFortyEightBytes)
{
    RMCPp_SetupState state = suite_state(1, 1, 1);
    uint8_t buffer[48];
    std::memset(buffer, 0xEE, sizeof buffer);
    uint32_t length = 5;
    clear_trace();
    EXPECT_EQ(Make_OpenSessRequest(&state, 4, 1, buffer, 47, &length), 3);
    EXPECT_EQ(log_lines(), Lines{"Insufficient Data Size.\n"});
    EXPECT_EQ(length, 5u);
    EXPECT_EQ(bytes_of(buffer, sizeof buffer), Bytes(48, 0xEE));
}

// --------------------------------------------- pre-session session header

TEST(PreSessionHeader, AcceptsTheExpectedTypeAndReportsThePayloadLength)
{
    const auto r = check_head(good_response().datagram(), 0x11);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.header_length, 12u);
    EXPECT_EQ(r.payload_length, 36);
    EXPECT_TRUE(r.lines.empty());
}

TEST(PreSessionHeader, SkipsFewerThanTwelveBytes)
{
    Bytes d = good_response().datagram();
    d.resize(4 + 11);
    const auto r = check_head(d, 0x11);
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, Lines{"Received unexpected Packet.(S_H length)\n"});
}

TEST(PreSessionHeader, SkipsAnotherFormat)
{
    SessionHeader h;
    h.format = 0x00;
    h.payload_type = 0x11;
    const auto r = check_head(rmcp_plus(h, good_response().payload()), 0x11);
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, Lines{"Received unexpected Packet.(S_H Auth Format)\n"});
}

TEST(PreSessionHeader, SkipsAnotherTypeAndTheAuthenticatedOrEncryptedBits)
{
    for (uint8_t type : {0x13, 0x51, 0x91, 0xD1}) {
        const auto r = check_head(rmcp_plus(type, good_response().payload()), 0x11);
        EXPECT_EQ(r.code, 69) << int(type);
        EXPECT_EQ(r.lines, Lines{"Received unexpected Packet.(S_H Payload Type)\n"}) << int(type);
    }
}

TEST(PreSessionHeader, SkipsANonZeroSessionIdOrSequenceNumber)
{
    for (uint32_t v : {0x00000001u, 0x80000000u}) {
        SessionHeader h;
        h.payload_type = 0x11;
        h.session_id = v;
        auto r = check_head(rmcp_plus(h, good_response().payload()), 0x11);
        EXPECT_EQ(r.code, 69);
        EXPECT_EQ(r.lines, Lines{"Received unexpected Packet.(S_H SessID)\n"});

        h.session_id = 0;
        h.sequence = v;
        r = check_head(rmcp_plus(h, good_response().payload()), 0x11);
        EXPECT_EQ(r.code, 69);
        EXPECT_EQ(r.lines, Lines{"Received unexpected Packet.(S_H SessSeqNum)\n"});
    }
}

TEST(PreSessionHeader, SkipsAPayloadLengthOffByOne)
{
    for (int adjust : {-1, +1}) {
        SessionHeader h;
        h.payload_type = 0x11;
        h.length_adjust = adjust;
        const auto r = check_head(rmcp_plus(h, good_response().payload()), 0x11);
        EXPECT_EQ(r.code, 69);
        EXPECT_EQ(r.payload_length, 36 + adjust);
        EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid Data Length.\n"});
    }
}

// ----------------------------------------------------------------- response

TEST(OpenSessionResponseCheck, StoresTheSessionIdAndTheAlgorithms)
{
    OpenSessionResponse resp = good_response();
    resp.auth.algorithm = 1;
    resp.integrity.algorithm = 0;
    resp.confidentiality.algorithm = 0x81;
    const auto r = check_open(resp.datagram());
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.used, 12u);
    EXPECT_EQ(r.state.bmc_session_id, kBmcSid);
    EXPECT_EQ(r.state.auth_alg, 1);
    EXPECT_EQ(r.state.integrity_alg, 0);
    EXPECT_EQ(r.state.confidentiality_alg, 0x81);
    EXPECT_TRUE(r.lines.empty());
}

TEST(OpenSessionResponseCheck, SkipsAnAuthenticatedAnswer)
{
    const auto r = check_open(rmcp_plus(0x51, good_response().payload()));
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, (Lines{"Received unexpected Packet.(S_H Payload Type)\n",
                              "Check at IPMI Session Header & Tailer.\n"}));
}

TEST(OpenSessionResponseCheck, SkipsALengthFieldOffByOne)
{
    SessionHeader h;
    h.payload_type = 0x11;
    h.length_adjust = 1;
    const auto r = check_open(rmcp_plus(h, good_response().payload()));
    EXPECT_EQ(r.code, 69);
    EXPECT_EQ(r.lines, (Lines{"Received Packet with Invalid Data Length.\n", "Check at IPMI Session Header & Tailer.\n"}));
}

TEST(OpenSessionResponseCheck, RejectsAPayloadOfSevenBytes)
{
    Bytes p = good_response().payload();
    p.resize(7);
    const auto r = check_open(rmcp_plus(0x11, p));
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.lines, Lines{"Received Packet with number of Invalid Payload Length.\n"});
}

TEST(OpenSessionResponseCheck, RejectsAnotherTagAtOnce)
{
    OpenSessionResponse resp = good_response();
    resp.tag = 2;
    resp.status = 0x01;  // the tag is looked at first
    const auto r = check_open(resp.datagram(), 1);
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.used, 12u);
    EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid Message Tag.\n"});
}

TEST(OpenSessionResponseCheck, PrintsAnErrorStatusAndFailsWith65)
{
    OpenSessionResponse resp = good_response();
    resp.status = 0x12;
    const auto r = check_open(resp.datagram());
    EXPECT_EQ(r.code, 65);
    EXPECT_EQ(r.lines, (Lines{"[ Status Code ] ", "Illegal or unrecognized parameter.\n",
                              "Received Packet with Error Status Code.\n"}));
}

TEST(OpenSessionResponseCheck, RejectsANonZeroReservedByte)
{
    OpenSessionResponse resp = good_response();
    resp.reserved = 0x80;
    const auto r = check_open(resp.datagram());
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid value in Reserved field.\n"});
}

TEST(OpenSessionResponseCheck, RejectsAnotherConsoleSessionId)
{
    OpenSessionResponse resp = good_response();
    resp.console_sid = kConsoleSid ^ 0x00000100;
    const auto r = check_open(resp.datagram());
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid RC Session ID.\n"});
}

TEST(OpenSessionResponseCheck, RejectsAPayloadOtherThanThirtySixBytes)
{
    for (size_t size : {35u, 37u, 8u}) {
        Bytes p = good_response().payload();
        p.resize(size);
        const auto r = check_open(rmcp_plus(0x11, p));
        EXPECT_EQ(r.code, 66) << size;
        EXPECT_EQ(r.state.bmc_session_id, 0u) << size;
        EXPECT_EQ(r.lines, Lines{"Received Packet with number of Invalid Payload Length.\n"}) << size;
    }
}

TEST(OpenSessionResponseCheck, StoresTheAuthenticationAlgorithmBeforeRejectingItsRecord)
{
    OpenSessionResponse resp = good_response();
    resp.auth.length = 0x0C;
    const auto r = check_open(resp.datagram());
    EXPECT_EQ(r.code, 66);
    EXPECT_EQ(r.state.bmc_session_id, kBmcSid);
    EXPECT_EQ(r.state.auth_alg, 1);
    EXPECT_EQ(r.state.integrity_alg, 0xEE);
    EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid data in Authentication Payload.\n"});
}

TEST(OpenSessionResponseCheck, RejectsEachFaultOfTheAuthenticationRecord)
{
    OpenSessionResponse wrong_type = good_response();
    wrong_type.auth.type = 0x01;
    OpenSessionResponse reserved = good_response();
    reserved.auth.reserved = 0x01;
    for (const auto &resp : {wrong_type, reserved}) {
        const auto r = check_open(resp.datagram());
        EXPECT_EQ(r.code, 66);
        EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid data in Authentication Payload.\n"});
    }
}

TEST(OpenSessionResponseCheck, RejectsEachFaultOfTheIntegrityRecord)
{
    OpenSessionResponse wrong_type = good_response();
    wrong_type.integrity.type = 0x02;
    OpenSessionResponse wrong_length = good_response();
    wrong_length.integrity.length = 0x07;
    OpenSessionResponse reserved = good_response();
    reserved.integrity.reserved = 0x10;
    for (const auto &resp : {wrong_type, wrong_length, reserved}) {
        const auto r = check_open(resp.datagram());
        EXPECT_EQ(r.code, 66);
        EXPECT_EQ(r.state.auth_alg, 1);
        EXPECT_EQ(r.state.integrity_alg, 1);
        EXPECT_EQ(r.state.confidentiality_alg, 0xEE);
        EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid data in Integrity Payload.\n"});
    }
}

TEST(OpenSessionResponseCheck, RejectsEachFaultOfTheConfidentialityRecord)
{
    OpenSessionResponse wrong_type = good_response();
    wrong_type.confidentiality.type = 0x00;
    OpenSessionResponse wrong_length = good_response();
    wrong_length.confidentiality.length = 0x10;
    OpenSessionResponse reserved = good_response();
    reserved.confidentiality.reserved = 0xFF;
    for (const auto &resp : {wrong_type, wrong_length, reserved}) {
        const auto r = check_open(resp.datagram());
        EXPECT_EQ(r.code, 66);
        EXPECT_EQ(r.state.confidentiality_alg, 1);
        EXPECT_EQ(r.lines, Lines{"Received Packet with Invalid data in Confidentialiry Payload.\n"});
    }
}

// ------------------------------------------- the phase against a scripted peer

namespace {

// Answers every Open Session Request with `resp`, its console session ID
// taken from the request.
ScriptedPeer::Handler answer_with(OpenSessionResponse resp)
{
    return [resp](const Bytes &request, int) mutable {
        resp.console_sid = console_sid_of(request);
        return std::vector<Bytes>{resp.datagram()};
    };
}

}  // namespace

TEST(OpenSessionPhase, LearnsTheGrantedPrivilegeSessionIdAndAlgorithms)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    link.state.console_session_id = 0x0BAD0001;
    link.state.req_auth_alg = 1;
    link.state.req_integrity_alg = 1;
    OpenSessionResponse resp = good_response();
    resp.privilege = 3;
    resp.confidentiality.algorithm = 0;
    ScriptedPeer peer(kPeer, answer_with(resp));
    uint8_t granted = 0;
    uint8_t rakp_status = 0x5A;
    clear_trace();
    EXPECT_EQ(OpenSession_Req_Resp(&link.state, 3, &granted, 1, &rakp_status), 0);
    peer.stop();
    EXPECT_EQ(granted, 3);
    EXPECT_EQ(rakp_status, 0x5A);
    EXPECT_EQ(link.state.bmc_session_id, kBmcSid);
    EXPECT_EQ(link.state.auth_alg, 1);
    EXPECT_EQ(link.state.integrity_alg, 1);
    EXPECT_EQ(link.state.confidentiality_alg, 0);
    EXPECT_TRUE(log_lines().empty());

    uint8_t want[48];
    uint32_t want_length = 0;
    ASSERT_EQ(Make_OpenSessRequest(&link.state, 3, 1, want, sizeof want, &want_length), 0);
    ASSERT_EQ(peer.requests().size(), 1u);
    EXPECT_EQ(peer.requests()[0], bytes_of(want, want_length));
}

TEST(OpenSessionPhase, KeepsWaitingPastDatagramsThatAreNotTheAnswer)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    link.state.console_session_id = 0x0BAD0002;
    ScriptedPeer peer(kPeer, [](const Bytes &request, int) {
        OpenSessionResponse resp = good_response();
        resp.console_sid = console_sid_of(request);
        SessionHeader off_by_one;
        off_by_one.payload_type = 0x11;
        off_by_one.length_adjust = -1;
        SessionHeader in_session;
        in_session.payload_type = 0x11;
        in_session.session_id = 5;
        return std::vector<Bytes>{rmcp_plus(off_by_one, resp.payload()), rmcp_plus(0x51, resp.payload()),
                                  rmcp_plus(in_session, resp.payload()), resp.datagram()};
    });
    uint8_t granted = 0;
    uint8_t rakp_status = 0;
    clear_trace();
    EXPECT_EQ(OpenSession_Req_Resp(&link.state, 4, &granted, 1, &rakp_status), 0);
    peer.stop();
    EXPECT_EQ(granted, 4);
    EXPECT_EQ(peer.requests().size(), 1u);
    EXPECT_EQ(testkit::count_logged("Check at IPMI Session Header & Tailer.\n"), 3);
    EXPECT_FALSE(logged("Timeout, now retrying ...\n"));
}

TEST(OpenSessionPhase, EndsAtOnceOnAnotherTag)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    OpenSessionResponse resp = good_response();
    resp.tag = 2;
    ScriptedPeer peer(kPeer, answer_with(resp));
    uint8_t granted = 0;
    uint8_t rakp_status = 0;
    clear_trace();
    EXPECT_EQ(OpenSession_Req_Resp(&link.state, 4, &granted, 1, &rakp_status), 66);
    peer.stop();
    EXPECT_EQ(peer.requests().size(), 1u);
    EXPECT_EQ(log_lines(), (Lines{"Received Packet with Invalid Message Tag.\n",
                                  "Failed to do Open Session Request / Response.\n"}));
}

TEST(OpenSessionPhase, EndsAtOnceOnAnErrorStatus)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    OpenSessionResponse resp = good_response();
    resp.status = 0x11;
    ScriptedPeer peer(kPeer, answer_with(resp));
    uint8_t granted = 0;
    uint8_t rakp_status = 0;
    clear_trace();
    EXPECT_EQ(OpenSession_Req_Resp(&link.state, 4, &granted, 1, &rakp_status), 65);
    peer.stop();
    EXPECT_EQ(peer.requests().size(), 1u);
    EXPECT_EQ(log_lines(), (Lines{"[ Status Code ] ", "No Cipher Suite match with proposed security algorithms.\n",
                                  "Received Packet with Error Status Code.\n",
                                  "Failed to do Open Session Request / Response.\n"}));
}

TEST(OpenSessionPhase, ResendsTheSameBytesAfterATimeout)
{
    Link link(kPeer);
    ASSERT_EQ(link.opened, 0);
    link.state.console_session_id = 0x0BAD0003;
    OpenSessionResponse resp = good_response();
    ScriptedPeer peer(kPeer, [resp](const Bytes &request, int index) mutable {
        if (index == 0) return std::vector<Bytes>{};
        resp.console_sid = console_sid_of(request);
        return std::vector<Bytes>{resp.datagram()};
    });
    uint8_t granted = 0;
    uint8_t rakp_status = 0;
    clear_trace();
    EXPECT_EQ(OpenSession_Req_Resp(&link.state, 4, &granted, 1, &rakp_status), 0);
    peer.stop();
    const auto requests = peer.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0], requests[1]);
    EXPECT_EQ(testkit::count_logged("Timeout, now retrying ...\n"), 1);
}

TEST(OpenSessionPhase, GivesUpWith4WhenOnlyStrayDatagramsCome)
{
    Link link(kPeer, 1);
    ASSERT_EQ(link.opened, 0);
    ScriptedPeer peer(kPeer, [](const Bytes &request, int) {
        OpenSessionResponse resp = good_response();
        resp.console_sid = console_sid_of(request);
        return std::vector<Bytes>{rmcp_plus(0x13, resp.payload())};
    });
    uint8_t granted = 0;
    uint8_t rakp_status = 0;
    clear_trace();
    EXPECT_EQ(OpenSession_Req_Resp(&link.state, 4, &granted, 1, &rakp_status), 4);
    peer.stop();
    EXPECT_EQ(peer.requests().size(), 1u);
    const Lines lines = log_lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "Re-try over.\n");
    EXPECT_EQ(lines.back(), "Failed to do Open Session Request / Response.\n");
}
