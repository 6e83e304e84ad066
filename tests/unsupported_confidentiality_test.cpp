// A session whose confidentiality algorithm is not AES-CBC-128 cannot build
// an encrypted packet: the builder names the algorithm and nothing is sent.
// Peer on 127.0.0.157.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "packet_testkit.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

using namespace packettest;
using Lines = std::vector<std::string>;

constexpr uint8_t kPeer = 157;

TEST(UnsupportedConfidentiality, BuilderRefusesAndNamesTheAlgorithm)
{
    RMCPp_Session *s = make_session(3);
    s->confidentiality_alg = 0x2A;
    const Bytes request = request_of(0x06, 0x01, 1);
    uint8_t packet[256];
    uint32_t length = 0;
    testkit::clear_trace();
    EXPECT_EQ(MakeRMCP_pluse_Packet(s, request.data(), static_cast<uint32_t>(request.size()), packet, sizeof packet,
                                    &length),
              1);
    EXPECT_EQ(testkit::log_lines(), (Lines{"Type 2a is Not supported Confidentiality algorithm.\n"}));
    std::free(s);
}

TEST(UnsupportedConfidentiality, SendingFailsWith3AndNothingGoesOut)
{
    testkit::UdpPeer peer(kPeer);
    IPMI_SessionParam param{};
    param.session = make_session(3, connected_socket(kPeer));
    param.session->confidentiality_alg = 2;
    const Bytes request = request_of(0x06, 0x01, 1);
    uint32_t released = 9;
    testkit::clear_trace();
    EXPECT_EQ(Send_IPMI_Message(&param, request.data(), static_cast<uint32_t>(request.size()), 0, &released), 3);
    EXPECT_EQ(released, 0u);
    EXPECT_EQ(testkit::log_lines(), (Lines{"Type 02 is Not supported Confidentiality algorithm.\n",
                                           "Failed to make RMCP+ packet.\n", "Failed to do IPMI Message.\n"}));
    EXPECT_FALSE(peer.receive(200));
    EXPECT_EQ(param.session->send_seq_auth, 1u);
    close(param.session->socket_fd);
    std::free(param.session);
}

}  // namespace
