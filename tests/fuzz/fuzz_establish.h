// A console session with the simulator's protocol engine, in process: the
// library builds each establishment request and checks each answer, the
// engine answers. Used by the simulator target to get past establishment
// and by the seed generator to capture the managed system's answers.
#pragma once

#include <cstring>

#include "engine.h"
#include "fuzz_support.h"

namespace fuzz {

// The simulator's side of the fixed pair.
inline bmcsim::Config simulator_config(bool standard_keys)
{
    bmcsim::Config c;
    c.users = {{kUser, kPassword, 4, true}, {"", "", 2, true}, {"operator", "op", 3, true}};
    std::memcpy(c.guid.data(), kGuid, sizeof kGuid);
    c.bmc_session_id = kBmcSessionId;
    std::array<uint8_t, 16> rc;
    std::memcpy(rc.data(), kRc, sizeof kRc);
    c.rc = rc;
    c.standard_keys = standard_keys;
    return c;
}

// What the establishment exchanged: each request and the engine's answer.
struct Establishment {
    Bytes open_session_request, open_session_response;
    Bytes rakp1, rakp2;
    Bytes rakp3, rakp4;
};

inline Bytes answer_of(bmcsim::detail::Engine &engine, const Bytes &request, const bmcsim::Config &config)
{
    bmcsim::detail::Outcome o = engine.handle(request, config);
    return o.out.empty() ? Bytes{} : o.out.back().bytes;
}

// Runs Open Session and RAKP 1 to 4 for cipher suite `suite`; fills
// `session` as the library's session setup does. False when a step fails.
inline bool establish(bmcsim::detail::Engine &engine, const bmcsim::Config &config, unsigned suite,
                      RMCPp_Session &session, Establishment *record = nullptr)
{
    Establishment local;
    Establishment &e = record ? *record : local;
    RMCPp_SetupState st;
    init_state(st, suite);
    uint8_t buffer[400];
    uint32_t length = 0, used = 0, offset = 0;
    uint8_t status = 0;

    if (Make_OpenSessRequest(&st, kRole, 1, buffer, sizeof buffer, &length) != 0) return false;
    e.open_session_request.assign(buffer, buffer + length);
    e.open_session_response = answer_of(engine, e.open_session_request, config);
    length = static_cast<uint32_t>(e.open_session_response.size());
    if (Check_RMCPHead(e.open_session_response.data(), &length, &offset) != 0) return false;
    if (Check_OpenSessResponse(&st, e.open_session_response.data() + 4, length, 1, &used) != 0) return false;

    if (Make_RAKPMessage1(&st, kRm, kRole, 2, buffer, sizeof buffer, &length) != 0) return false;
    e.rakp1.assign(buffer, buffer + length);
    e.rakp2 = answer_of(engine, e.rakp1, config);
    length = static_cast<uint32_t>(e.rakp2.size());
    if (Check_RMCPHead(e.rakp2.data(), &length, &offset) != 0) return false;
    if (Check_RAKPMessage2(&st, e.rakp2.data() + 4, length, 2, &used, &status) != 0) return false;
    uint8_t rc[16];
    std::memcpy(rc, e.rakp2.data() + 4 + 12 + 8, sizeof rc);
    if (st.auth_alg != 0) {
        uint8_t mismatch = 1;
        if (CheckKeyExchange2(&st, kRole, kRm, rc, e.rakp2.data() + 4 + 12 + 8 + 32, &mismatch) != 0 || mismatch)
            return false;
    }

    if (MakeSIK(&st, kRole, kRm, rc) != 0) return false;
    if (Make_RAKPMessage3(&st, 3, 0, rc, kRole, buffer, sizeof buffer, &length) != 0) return false;
    e.rakp3.assign(buffer, buffer + length);
    e.rakp4 = answer_of(engine, e.rakp3, config);
    length = static_cast<uint32_t>(e.rakp4.size());
    if (Check_RMCPHead(e.rakp4.data(), &length, &offset) != 0) return false;
    if (Check_RAKPMessage4(&st, e.rakp4.data() + 4, length, 3, &used, &status) != 0) return false;
    if (st.auth_alg != 0) {
        uint8_t mismatch = 1;
        if (CheckKeyExchange4(&st, kRm, e.rakp4.data() + 4 + 12 + 8, &mismatch) != 0 || mismatch) return false;
    }
    if (MakeConfidentialityKey(&st) != 0) return false;

    std::memset(&session, 0, sizeof session);
    session.integrity_alg = st.integrity_alg;
    session.confidentiality_alg = st.confidentiality_alg;
    session.console_session_id = st.console_session_id;
    session.bmc_session_id = st.bmc_session_id;
    session.send_seq_auth = 1;
    session.send_seq_unauth = 1;
    session.recv_window_auth = 0xFFFF;
    session.recv_window_unauth = 0xFFFF;
    std::memcpy(session.sik, st.sik, sizeof session.sik);
    std::memcpy(session.cipher_key, st.cipher_key, sizeof session.cipher_key);
    session.socket_fd = -1;
    if (config.standard_keys) {
        // IPMI v2.0 keys: K1 and K2 made from the SIK.
        uint8_t constant[20];
        uint32_t n = 0;
        std::memset(constant, 0x01, sizeof constant);
        CalculateAuthCode(1, constant, sizeof constant, st.sik, sizeof st.sik, session.sik, &n);
        std::memset(session.cipher_key, 0, sizeof session.cipher_key);
        if (st.confidentiality_alg != 0) {
            std::memset(constant, 0x02, sizeof constant);
            CalculateAuthCode(1, constant, sizeof constant, st.sik, sizeof st.sik, session.cipher_key, &n);
        }
    }
    return true;
}

// One IPMI message in a session packet with the protection `auth_option`
// asks for (0: the negotiated one); advances the send counter used.
inline Bytes session_packet(RMCPp_Session &session, const Bytes &message, uint8_t auth_option)
{
    static Bytes buffer(65536 + 128);
    session.auth_option = auth_option;
    uint32_t length = 0;
    if (MakeRMCP_pluse_Packet(&session, message.data(), static_cast<uint32_t>(message.size()), buffer.data(),
                              static_cast<uint32_t>(buffer.size()), &length) != 0)
        return {};
    Bytes packet(buffer.begin(), buffer.begin() + length);
    if (packet.size() > 5 && (packet[5] & 0x40)) ++session.send_seq_auth;
    else ++session.send_seq_unauth;
    return packet;
}

}  // namespace fuzz
