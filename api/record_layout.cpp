// The public records' layouts, checked at compile time for 32-bit and 64-bit
// builds alike: callers written against either width see the same fields at
// the same places, and a pointer's width moves only what follows a pointer.
#include <cstddef>

#include "rmcpp.h"

namespace {
constexpr std::size_t P = sizeof(void *);
static_assert(P == 4 || P == 8);
}  // namespace

// The library's 80-byte session record.
static_assert(offsetof(RMCPp_Session, integrity_alg) == 0);
static_assert(offsetof(RMCPp_Session, confidentiality_alg) == 1);
static_assert(offsetof(RMCPp_Session, console_session_id) == 4);
static_assert(offsetof(RMCPp_Session, send_seq_auth) == 8);
static_assert(offsetof(RMCPp_Session, send_seq_unauth) == 12);
static_assert(offsetof(RMCPp_Session, bmc_session_id) == 16);
static_assert(offsetof(RMCPp_Session, recv_seq_auth) == 20);
static_assert(offsetof(RMCPp_Session, recv_seq_unauth) == 24);
static_assert(offsetof(RMCPp_Session, recv_window_auth) == 28);
static_assert(offsetof(RMCPp_Session, recv_window_unauth) == 30);
static_assert(offsetof(RMCPp_Session, sik) == 32);
static_assert(offsetof(RMCPp_Session, cipher_key) == 52);
static_assert(offsetof(RMCPp_Session, socket_fd) == 72);
static_assert(offsetof(RMCPp_Session, per_msg_auth_status) == 76);
static_assert(offsetof(RMCPp_Session, user_auth_status) == 77);
static_assert(offsetof(RMCPp_Session, closed) == 78);
static_assert(offsetof(RMCPp_Session, auth_option) == 79);
static_assert(sizeof(RMCPp_Session) == 80);

// The caller's session record: three pointers before server_key, four in all.
static_assert(offsetof(IPMI_SessionParam, bmc_address) == 0);
static_assert(offsetof(IPMI_SessionParam, port_option) == 4);
static_assert(offsetof(IPMI_SessionParam, user_name) == 8);
static_assert(offsetof(IPMI_SessionParam, user_password) == 8 + P);
static_assert(offsetof(IPMI_SessionParam, privilege_level) == 8 + 2 * P);
static_assert(offsetof(IPMI_SessionParam, cipher_suite_id) == 12 + 2 * P);
static_assert(offsetof(IPMI_SessionParam, user_lookup_option) == 16 + 2 * P);
static_assert(offsetof(IPMI_SessionParam, two_key_login_option) == 20 + 2 * P);
static_assert(offsetof(IPMI_SessionParam, server_key) == 24 + 2 * P);
static_assert(offsetof(IPMI_SessionParam, slave_address) == 24 + 3 * P);
static_assert(offsetof(IPMI_SessionParam, lun) == 25 + 3 * P);
static_assert(offsetof(IPMI_SessionParam, local_port) == 26 + 3 * P);
static_assert(offsetof(IPMI_SessionParam, retry_count) == 28 + 3 * P);
static_assert(offsetof(IPMI_SessionParam, timeout_sec) == 30 + 3 * P);
static_assert(offsetof(IPMI_SessionParam, per_msg_auth_status) == 32 + 3 * P);
static_assert(offsetof(IPMI_SessionParam, granted_privilege) == 36 + 3 * P);
static_assert(offsetof(IPMI_SessionParam, session) == 40 + 3 * P);
static_assert(sizeof(IPMI_SessionParam) == 40 + 4 * P);

// The establishment state: its spare bytes keep every field naturally aligned.
static_assert(offsetof(RMCPp_SetupState, bmc_address) == 0);
static_assert(offsetof(RMCPp_SetupState, user_name) == 4);
static_assert(offsetof(RMCPp_SetupState, spare1) == 20);
static_assert(offsetof(RMCPp_SetupState, user_name_length) == 21);
static_assert(offsetof(RMCPp_SetupState, user_password) == 22);
static_assert(offsetof(RMCPp_SetupState, spare2) == 42);
static_assert(offsetof(RMCPp_SetupState, user_key_length) == 43);
static_assert(offsetof(RMCPp_SetupState, bmc_key) == 44);
static_assert(offsetof(RMCPp_SetupState, spare3) == 64);
static_assert(offsetof(RMCPp_SetupState, bmc_key_length) == 65);
static_assert(offsetof(RMCPp_SetupState, req_integrity_alg) == 66);
static_assert(offsetof(RMCPp_SetupState, req_auth_alg) == 67);
static_assert(offsetof(RMCPp_SetupState, req_confidentiality_alg) == 68);
static_assert(offsetof(RMCPp_SetupState, spare4) == 69);
static_assert(offsetof(RMCPp_SetupState, console_session_id) == 72);
static_assert(offsetof(RMCPp_SetupState, send_seq_auth) == 76);
static_assert(offsetof(RMCPp_SetupState, send_seq_unauth) == 80);
static_assert(offsetof(RMCPp_SetupState, integrity_alg) == 84);
static_assert(offsetof(RMCPp_SetupState, auth_alg) == 85);
static_assert(offsetof(RMCPp_SetupState, confidentiality_alg) == 86);
static_assert(offsetof(RMCPp_SetupState, spare5) == 87);
static_assert(offsetof(RMCPp_SetupState, bmc_session_id) == 88);
static_assert(offsetof(RMCPp_SetupState, recv_seq_auth) == 92);
static_assert(offsetof(RMCPp_SetupState, recv_seq_unauth) == 96);
static_assert(offsetof(RMCPp_SetupState, recv_window_auth) == 100);
static_assert(offsetof(RMCPp_SetupState, recv_window_unauth) == 102);
static_assert(offsetof(RMCPp_SetupState, bmc_guid) == 104);
static_assert(offsetof(RMCPp_SetupState, sik) == 120);
static_assert(offsetof(RMCPp_SetupState, cipher_key) == 140);
static_assert(offsetof(RMCPp_SetupState, socket_fd) == 160);
static_assert(offsetof(RMCPp_SetupState, kg_status) == 164);
static_assert(offsetof(RMCPp_SetupState, per_msg_auth_status) == 165);
static_assert(offsetof(RMCPp_SetupState, user_auth_status) == 166);
static_assert(offsetof(RMCPp_SetupState, spare6) == 167);
static_assert(offsetof(RMCPp_SetupState, rs_addr) == 168);
static_assert(offsetof(RMCPp_SetupState, rs_lun) == 169);
static_assert(offsetof(RMCPp_SetupState, local_port) == 170);
static_assert(offsetof(RMCPp_SetupState, retry_count) == 172);
static_assert(offsetof(RMCPp_SetupState, timeout_sec) == 174);
static_assert(sizeof(RMCPp_SetupState) == 176);

// Eight bytes describing one IPMI exchange.
static_assert(offsetof(IPMI_MsgHeader, req_netfn) == 0);
static_assert(offsetof(IPMI_MsgHeader, rq_addr) == 1);
static_assert(offsetof(IPMI_MsgHeader, cmd) == 2);
static_assert(offsetof(IPMI_MsgHeader, rq_lun) == 3);
static_assert(offsetof(IPMI_MsgHeader, rq_seq) == 4);
static_assert(offsetof(IPMI_MsgHeader, resp_netfn) == 5);
static_assert(offsetof(IPMI_MsgHeader, rs_addr) == 6);
static_assert(offsetof(IPMI_MsgHeader, rs_lun) == 7);
static_assert(sizeof(IPMI_MsgHeader) == 8);

static_assert(offsetof(KivTraceRecord, kind) == 0);
static_assert(offsetof(KivTraceRecord, format) == 1);
static_assert(offsetof(KivTraceRecord, code) == 2);
static_assert(offsetof(KivTraceRecord, detail) == 4);
static_assert(sizeof(KivTraceRecord) == 6);

// The AES cipher API's caller-allocated records.
static_assert(offsetof(KeyRecord, direction) == 0);
static_assert(offsetof(KeyRecord, keyLen) == 4);
static_assert(offsetof(KeyRecord, keyMaterial) == 8);
static_assert(sizeof(KeyRecord::keyMaterial) >= 64 + 1);
static_assert(offsetof(KeyRecord, Nr) == 76);
static_assert(offsetof(KeyRecord, rk) == 80);
static_assert(offsetof(KeyRecord, ek) == 80 + 4 * 60);
static_assert(sizeof(KeyRecord) == 80 + 2 * 4 * 60);
static_assert(offsetof(CipherRecord, mode) == 0);
static_assert(offsetof(CipherRecord, IV) == 1);
static_assert(sizeof(CipherRecord) == 17);

// RMCPtimeout is a POSIX timeval: seconds then microseconds, each a long.
static_assert(offsetof(struct timeval, tv_sec) == 0);
static_assert(offsetof(struct timeval, tv_usec) == sizeof(long));
static_assert(sizeof(struct timeval) == 2 * sizeof(long));
