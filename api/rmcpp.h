/*
 * rmcpp: IPMI v2.0 / RMCP+ remote-console client library.
 *
 * Plain C interface; compiles as C99 and as C++. Every function returns an
 * integer result code (RMCPP_OK, 0, on success) and writes its outputs
 * through pointer arguments. All multi-byte IPMI and RMCP+ fields are
 * little-endian on the wire; the records below hold host-order integers.
 */
#ifndef RMCPP_H
#define RMCPP_H

#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

#define RMCPP_API __attribute__((visibility("default")))

/* ------------------------------------------------------------------ */
/* Result codes                                                        */
/* ------------------------------------------------------------------ */
enum {
    RMCPP_OK = 0,
    RMCPP_ERR_INVALID = 1,         /* bad argument or rejected packet      */
    RMCPP_ERR_RESOURCE = 2,        /* out of memory, or a receive failed   */
    RMCPP_ERR_INTERNAL = 3,        /* clock, build or key failure          */
    RMCPP_ERR_RETRY_OVER = 4,      /* attempts used up                     */
    RMCPP_ERR_SESSION = 5,         /* session exhausted, or bad payload    */
    RMCPP_ERR_BUFFER = 6,          /* output buffer too small              */
    RMCPP_ERR_TIMEOUT = 7,         /* waited in vain                       */
    RMCPP_ERR_SEND = 8,            /* RMCP+ packet could not be sent       */
    RMCPP_ERR_RECEIVE = 9,         /* other receive failure                */
    RMCPP_ERR_RAKP_KEY = 15,       /* RAKP 2/4 key did not match           */
    RMCPP_ERR_SOCKET = 33,         /* socket could not be made/connected   */
    RMCPP_ERR_PING = 34,           /* presence ping failed                 */
    RMCPP_ERR_NO_RMCPP = 35,       /* channel offers no IPMI v2.0 / RMCP+  */
    RMCPP_ERR_AUTH_ALG = 36,       /* authentication algorithm mismatch    */
    RMCPP_ERR_INTEGRITY_ALG = 37,  /* integrity algorithm mismatch         */
    RMCPP_ERR_CONF_ALG = 38,       /* confidentiality algorithm mismatch   */
    RMCPP_ERR_ROLE = 39,           /* requested role refused               */
    RMCPP_ERR_BIND = 40,           /* no local port could be bound         */
    RMCPP_ERR_RESOLVE = 41,        /* host name could not be resolved      */
    RMCPP_ERR_STATUS = 65,         /* non-zero RMCP+ status code           */
    RMCPP_ERR_HEADER = 66,         /* bad header, session ID or length     */
    RMCPP_ERR_COMPLETION = 67,     /* non-zero completion code             */
    RMCPP_ERR_DATA_LENGTH = 68,    /* response data of the wrong length    */
    RMCPP_ERR_UNEXPECTED = 69,     /* unexpected response type or length   */
    RMCPP_ERR_TIMER = -1           /* clock failure or invalid times       */
};

/* Security bits of a packet: encrypted / authenticated. */
#define RMCPP_SECURITY_ENCRYPTED     0x20
#define RMCPP_SECURITY_AUTHENTICATED 0x10

/* ------------------------------------------------------------------ */
/* Records                                                             */
/* ------------------------------------------------------------------ */

/* The library's record of an open session (80 bytes). Owned by the
 * library from the end of setup until release; never freed by the caller. */
typedef struct RMCPp_Session {
    uint8_t integrity_alg;
    uint8_t confidentiality_alg;
    uint32_t console_session_id;
    uint32_t send_seq_auth;
    uint32_t send_seq_unauth;
    uint32_t bmc_session_id;
    uint32_t recv_seq_auth;
    uint32_t recv_seq_unauth;
    uint16_t recv_window_auth;
    uint16_t recv_window_unauth;
    uint8_t sik[20];
    uint8_t cipher_key[20];
    int socket_fd;
    uint8_t per_msg_auth_status;
    uint8_t user_auth_status;
    uint8_t closed;
    uint8_t auth_option;
} RMCPp_Session;

/* The caller's record for one session. */
typedef struct IPMI_SessionParam {
    uint32_t bmc_address;          /* in: IPv4 address, host order           */
    int32_t port_option;           /* in: 0 = port 623, 1 = port 664         */
    const char *user_name;         /* in: at most 16 characters, may be null */
    const char *user_password;     /* in: at most 20 characters, may be null */
    int32_t privilege_level;       /* in: 0..5 (0: highest the BMC grants)   */
    int32_t cipher_suite_id;       /* in: 0..3                               */
    int32_t user_lookup_option;    /* in: 0 name and privilege, 1 name only  */
    int32_t two_key_login_option;  /* in: 1 = two-key login with server_key  */
    const char *server_key;        /* in: Kg, at most 20 characters          */
    uint8_t slave_address;         /* in: responder slave address (even)     */
    uint8_t lun;                   /* in: responder LUN 0..3                 */
    uint16_t local_port;           /* in: 0 = first free of 7001..7099       */
    uint16_t retry_count;          /* in: sends per establishment request    */
    uint16_t timeout_sec;          /* in: wait per establishment response    */
    uint32_t per_msg_auth_status;  /* out                                    */
    uint32_t granted_privilege;    /* out                                    */
    RMCPp_Session *session;        /* out: the open session, or null         */
} IPMI_SessionParam;

/* The working state of one establishment. */
typedef struct RMCPp_SetupState {
    uint32_t bmc_address;
    uint8_t user_name[16];
    uint8_t spare1;
    uint8_t user_name_length;
    uint8_t user_password[20];
    uint8_t spare2;
    uint8_t user_key_length;
    uint8_t bmc_key[20];
    uint8_t spare3;
    uint8_t bmc_key_length;
    uint8_t req_integrity_alg;
    uint8_t req_auth_alg;
    uint8_t req_confidentiality_alg;
    uint8_t spare4[3];
    uint32_t console_session_id;
    uint32_t send_seq_auth;
    uint32_t send_seq_unauth;
    uint8_t integrity_alg;
    uint8_t auth_alg;
    uint8_t confidentiality_alg;
    uint8_t spare5;
    uint32_t bmc_session_id;
    uint32_t recv_seq_auth;
    uint32_t recv_seq_unauth;
    uint16_t recv_window_auth;
    uint16_t recv_window_unauth;
    uint8_t bmc_guid[16];
    uint8_t sik[20];
    uint8_t cipher_key[20];
    int socket_fd;
    uint8_t kg_status;
    uint8_t per_msg_auth_status;
    uint8_t user_auth_status;
    uint8_t spare6;
    uint8_t rs_addr;
    uint8_t rs_lun;
    uint16_t local_port;
    uint16_t retry_count;
    uint16_t timeout_sec;
} RMCPp_SetupState;

/* Eight bytes describing one IPMI exchange. */
typedef struct IPMI_MsgHeader {
    uint8_t req_netfn;
    uint8_t rq_addr;
    uint8_t cmd;
    uint8_t rq_lun;
    uint8_t rq_seq;
    uint8_t resp_netfn;
    uint8_t rs_addr;
    uint8_t rs_lun;
} IPMI_MsgHeader;

/* ------------------------------------------------------------------ */
/* Host platform interfaces                                            */
/*                                                                     */
/* The library carries default implementations of both. A host program */
/* replaces one simply by defining a function of the same name and     */
/* signature: the dynamic linker then binds the library's calls to it.  */
/* ------------------------------------------------------------------ */

/* The record handed to the trace sink with every line. */
typedef struct KivTraceRecord {
    uint8_t kind;      /* always 2 */
    uint8_t format;    /* always 1 */
    uint16_t code;     /* always 0 */
    uint16_t detail;   /* always 0 */
} KivTraceRecord;

/* Trace sink: receives each log line (channel 1) and each completion-code
 * trace line (channel 0). The default writes the text to standard error. */
RMCPP_API void putKivTrace(int channel, const KivTraceRecord *record, const char *text);

/* Room, in bytes, of the text buffer handed to lmsg_getmsg. */
#define RMCPP_LMSG_TEXT_SIZE 512

/* Host message catalogue: fills text (RMCPP_LMSG_TEXT_SIZE bytes) with
 * message number `number` applied to `argument` and returns text. */
RMCPP_API char *lmsg_getmsg(int number, char *text, const char *argument);

/* ------------------------------------------------------------------ */
/* Threads                                                             */
/*                                                                     */
/* The library owns no threads; every call runs on the caller's        */
/* thread. Distinct sessions may run on distinct threads at the same   */
/* time: one thread sets up, uses and closes one IPMI_SessionParam     */
/* while others do the same with theirs. One session (its              */
/* IPMI_SessionParam and the RMCPp_Session it holds) must not be used  */
/* from two threads at once; handing it from one thread to another     */
/* needs the host's own synchronisation (a mutex, a thread join).      */
/* Calls that work only on their arguments (message framing, packet    */
/* checks, the cipher API) may run on any thread.                      */
/*                                                                     */
/* Process-wide, shared by every session:                              */
/* - the globals below. The library reads and writes them atomically.  */
/*   While sessions run, change them only through IPMI_SetupConnectSA, */
/*   IPMI_SetupStandardKeys and change_printlevel, or with atomic      */
/*   accesses of the host's own (__atomic_store_n); plain writes       */
/*   belong before the sessions' threads start. A change applies from  */
/*   the next request or establishment that reads it.                  */
/* - the session-ID counter and the random-number generator behind     */
/*   MakeSessionID and MakeRandomNumber (re-seeded when                */
/*   flag_1st_random is set): each ID and each number is made under    */
/*   one lock, so no two sessions get the same one.                    */
/* - the C library generator (srand/rand), which MakeSessionID         */
/*   re-seeds on every call: other users of it in the host perturb     */
/*   session IDs.                                                      */
/* - the trace sink and the message catalogue, called from whichever   */
/*   thread logs, several at once: a host's replacement must be        */
/*   thread-safe. The default writes each line whole to standard       */
/*   error.                                                            */
/* - the local ports 7001..7099 that a session with local_port 0 looks */
/*   through: sessions set up at once each bind a port of their own.   */
/* Each thread keeps one HMAC context of its own, freed when it ends;  */
/* each open session keeps its keyed HMAC and AES key schedules, freed */
/* when the session is released.                                       */
/* ------------------------------------------------------------------ */

/* ------------------------------------------------------------------ */
/* Globals                                                             */
/* ------------------------------------------------------------------ */
RMCPP_API extern uint8_t RMCPConnectSA;        /* rqAddr of own requests; 0x24 silences the log */
RMCPP_API extern struct timeval RMCPtimeout;   /* 5 s; kept settable, has no effect on waits   */
RMCPP_API extern uint8_t flag_1st_random;      /* 1: next random number re-seeds the generator */
RMCPP_API extern const char *mess_tag[];       /* "DEBUG" .. "NONE", null-terminated            */
RMCPP_API extern int Print_Level;              /* set by change_printlevel                      */
RMCPP_API extern int do_self_check;            /* 1 until the type self check first passes      */

/* Standard-key mode. While 0 (the default) a session keys its integrity
 * code with the SIK itself and derives K2 over sixty-four 0x02 bytes, as
 * this library always has. When non-zero at establishment, the new session
 * follows IPMI v2.0 to the letter: its `sik` field (the integrity key) is
 * K1 = HMAC-SHA1(SIK, twenty 0x01 bytes) and its `cipher_key` is
 * K2 = HMAC-SHA1(SIK, twenty 0x02 bytes). RAKP 4 is checked with the SIK
 * either way. */
RMCPP_API extern uint8_t RMCPStandardKeys;

/* ------------------------------------------------------------------ */
/* Session setup                                                       */
/* ------------------------------------------------------------------ */
RMCPP_API int IPMI_SetupSession(IPMI_SessionParam *param);
RMCPP_API void IPMI_SetupConnectSA(unsigned value);
RMCPP_API void IPMI_SetupStandardKeys(unsigned value);  /* stores the low 8 bits in RMCPStandardKeys */

/* ------------------------------------------------------------------ */
/* IPMI message framing                                                */
/* ------------------------------------------------------------------ */
RMCPP_API int MakeIPMIRequest(const IPMI_MsgHeader *header, const uint8_t *data, int data_length,
                              uint8_t *output, int output_size, int *output_length);
RMCPP_API int MakeIPMIResponse(const IPMI_MsgHeader *header, const uint8_t *data, int data_length,
                               uint8_t *output, int output_size, int *output_length);
RMCPP_API int CheckIPMIRespHead(const uint8_t *request, int request_length, const uint8_t *response,
                                int response_length, int *data_offset, int *data_length);
RMCPP_API int CheckIPMIReqHead(const uint8_t *message, int length, int *data_offset, int *data_length);
RMCPP_API int Check_IPMIMessHead(const uint8_t *message, uint32_t length, const IPMI_MsgHeader *header,
                                 uint8_t *completion_code, uint32_t *data_length);

/* ------------------------------------------------------------------ */
/* Message exchange on an open session                                 */
/* ------------------------------------------------------------------ */
RMCPP_API int Send_IPMI_Message(IPMI_SessionParam *param, const uint8_t *request, uint32_t request_length,
                                int auth_option, uint32_t *released);
RMCPP_API int Get_IPMI_Message(IPMI_SessionParam *param, uint8_t *response, uint32_t response_size,
                               uint32_t *response_length, uint16_t wait_sec, uint8_t *payload_flags,
                               uint32_t *released);
RMCPP_API int Get_IPMI_Message_Nowait(IPMI_SessionParam *param, uint8_t *response, uint32_t response_size,
                                      uint32_t *response_length, uint32_t *released);
RMCPP_API int IPMI_Message_IF(IPMI_SessionParam *param, const uint8_t *request, uint32_t request_length,
                              uint8_t *response, uint32_t response_size, uint32_t *response_length,
                              int auth_option, uint32_t *released, int attempts, int wait_sec);
RMCPP_API int IPMI_Message_IF_core(IPMI_SessionParam *param, const uint8_t *request, uint32_t request_length,
                                   uint8_t *response, uint32_t response_size, uint32_t *response_length,
                                   int auth_option, uint32_t *released, uint8_t attempts, uint8_t wait_sec);
RMCPP_API int ipmi_recv(RMCPp_Session *session, const uint8_t *request, const struct timeval *start,
                        uint8_t wait_sec, uint8_t *response, uint16_t response_size,
                        uint32_t *response_length, uint8_t expected_flags);
RMCPP_API int Get_IPMB_Response(IPMI_SessionParam *param, const uint8_t *request, uint32_t request_length,
                                uint8_t *response, uint32_t response_size, uint32_t *response_length,
                                uint32_t *released, uint8_t expected_flags, uint8_t wait_sec);
RMCPP_API int IPMI_CloseSession(IPMI_SessionParam *param);

/* ------------------------------------------------------------------ */
/* Establishment                                                       */
/* ------------------------------------------------------------------ */
RMCPP_API int SetupSession(RMCPp_SetupState *state, uint32_t port, uint32_t privilege,
                           uint32_t name_only_lookup, uint32_t two_key_login, uint32_t *granted_out);
RMCPP_API int RetryRoutine_RAKP(RMCPp_SetupState *state, uint8_t *request, uint32_t request_length,
                                uint8_t *response, uint32_t response_size, uint32_t *response_length,
                                uint8_t response_type, uint32_t *payload_offset, uint8_t *rakp_status,
                                uint8_t send_only, const IPMI_MsgHeader *expected, uint8_t tag);
RMCPP_API int CheckSelfTypes(void);

/* Get Channel Authentication Capabilities over IPMI v1.5 */
RMCPP_API int GetAuthCapa_v15(RMCPp_SetupState *state, uint8_t *not_supported, uint8_t privilege);
RMCPP_API int Make_GetAuthCapa_v15(RMCPp_SetupState *state, const IPMI_MsgHeader *record, uint8_t privilege,
                                   uint8_t *buffer, uint32_t buffer_size, uint32_t *length_out);
RMCPP_API int Check_IPMIv15_NonAuth(RMCPp_SetupState *state, const uint8_t *data, uint32_t *length,
                                    const IPMI_MsgHeader *expected, uint32_t *used);
RMCPP_API int Check_GetAuthCapa_v15(const uint8_t *data, uint32_t length, uint8_t *not_supported,
                                    uint8_t *kg_status, uint8_t *per_msg_auth_status,
                                    uint8_t *user_auth_status);

/* Open Session */
RMCPP_API int OpenSession_Req_Resp(RMCPp_SetupState *state, uint8_t role, uint8_t *granted, uint8_t tag,
                                   uint8_t *rakp_status);
RMCPP_API int Make_OpenSessRequest(RMCPp_SetupState *state, uint8_t role, uint8_t tag, uint8_t *buffer,
                                   uint32_t buffer_size, uint32_t *length_out);
RMCPP_API int Check_OpenSessResponse(RMCPp_SetupState *state, const uint8_t *data, uint32_t length,
                                     uint8_t tag, uint32_t *used);
RMCPP_API int Check_IPMISessHead_RAKP(const uint8_t *data, uint32_t length, uint32_t *header_length,
                                      uint8_t payload_type, uint16_t *payload_length);

/* RAKP messages 1 and 2 */
RMCPP_API int RAKPMessage1_2(RMCPp_SetupState *state, const uint8_t *rm, uint8_t role, uint8_t tag,
                             uint8_t *rc, uint8_t *rakp_status);
RMCPP_API int Make_RAKPMessage1(RMCPp_SetupState *state, const uint8_t *rm, uint8_t role, uint8_t tag,
                                uint8_t *buffer, uint32_t buffer_size, uint32_t *length_out);
RMCPP_API int Check_RAKPMessage2(RMCPp_SetupState *state, const uint8_t *data, uint32_t length, uint8_t tag,
                                 uint32_t *used, uint8_t *rakp_status);
RMCPP_API int CheckKeyExchange2(RMCPp_SetupState *state, uint8_t role, const uint8_t *rm, const uint8_t *rc,
                                const uint8_t *received_code, uint8_t *mismatch);

/* RAKP messages 3 and 4 */
RMCPP_API int RAKPMessage3_4(RMCPp_SetupState *state, const uint8_t *rm, uint8_t role, uint8_t tag,
                             const uint8_t *rc, uint8_t *rakp_status, uint8_t abort_only);
RMCPP_API int Make_RAKPMessage3(RMCPp_SetupState *state, uint8_t tag, uint8_t status, const uint8_t *rc,
                                uint8_t role, uint8_t *buffer, uint32_t buffer_size, uint32_t *length_out);
RMCPP_API int MakeKeyExchange3(RMCPp_SetupState *state, const uint8_t *rc, uint8_t role, uint8_t *out);
RMCPP_API int Check_RAKPMessage4(RMCPp_SetupState *state, const uint8_t *data, uint32_t length, uint8_t tag,
                                 uint32_t *used, uint8_t *rakp_status);
RMCPP_API int CheckKeyExchange4(RMCPp_SetupState *state, const uint8_t *rm, const uint8_t *received_value,
                                uint8_t *mismatch);

/* Session IDs, random numbers and keys */
RMCPP_API uint32_t MakeSessionID(void);
RMCPP_API int MakeRandomNumber(uint8_t *out);
RMCPP_API int MakeSIK(RMCPp_SetupState *state, uint8_t role, const uint8_t *rm, const uint8_t *rc);
RMCPP_API int MakeConfidentialityKey(RMCPp_SetupState *state);

/* ------------------------------------------------------------------ */
/* RMCP+ packet layer                                                  */
/* ------------------------------------------------------------------ */
RMCPP_API int Check_RMCPHead(const uint8_t *packet, uint32_t *length, uint32_t *header_length);
RMCPP_API int MakeRMCPHeader(uint8_t *buffer, const uint32_t *available, uint32_t *written);
RMCPP_API int CalculateAuthCode(uint8_t algorithm, const uint8_t *data, uint32_t data_length,
                                const uint8_t *key, uint32_t key_length, uint8_t *output,
                                uint32_t *output_length);

RMCPP_API int MakeRMCP_pluse_Packet(RMCPp_Session *session, const uint8_t *data, uint32_t data_length,
                                    uint8_t *buffer, uint32_t buffer_size, uint32_t *packet_length);
RMCPP_API int RMCPp_Send_Message(RMCPp_Session *session, const uint8_t *data, uint32_t data_length);

RMCPP_API int RMCPp_Get_Message(RMCPp_Session *session, uint8_t *output, uint32_t *output_length,
                                uint32_t output_size, const struct timeval *start,
                                const struct timeval *timeout, uint8_t *security_bits);
RMCPP_API int RMCPp_Get_Message_Nowait(RMCPp_Session *session, uint8_t *output, uint32_t *output_length,
                                       uint32_t output_size, uint8_t *security_bits);
RMCPP_API int Check_IPMIHeadTail(RMCPp_Session *session, const uint8_t *packet, uint32_t *length,
                                 uint32_t *header_length, uint8_t *payload_type);
RMCPP_API int Check_IPMIPayload(RMCPp_Session *session, uint8_t *payload, uint32_t length, uint8_t *output,
                                uint32_t *output_length, uint32_t output_size, uint32_t *data_offset,
                                uint8_t payload_type);
RMCPP_API int CheckSessSeqNum(RMCPp_Session *session, uint32_t sequence_number, uint8_t payload_type);

RMCPP_API int ConfidentialityAlgorithm(uint8_t algorithm, uint8_t *field, uint32_t field_length,
                                       const uint8_t *key, int direction);
RMCPP_API int AES_CBC_128_Process(const uint8_t *key, const uint8_t *iv, uint8_t *data, int32_t length,
                                  int direction);
RMCPP_API void BinToHex(char *text, const uint8_t *bytes, int bits);

/* ------------------------------------------------------------------ */
/* Transport, timers, logging, presence ping, status codes             */
/* ------------------------------------------------------------------ */
RMCPP_API int init_socket(int *socket_fd, uint32_t address, uint32_t port, uint16_t local_port);
RMCPP_API int Send_RMCP(int socket_fd, const uint8_t *buffer, uint32_t length, int flags);
/* A datagram longer than the buffer is dropped whole: result 2, *length = its size. */
RMCPP_API int Receive_RMCP(int socket_fd, uint8_t *buffer, uint32_t *length, int flags,
                           const struct timeval *limit);
RMCPP_API int ReadTimer(const struct timeval *start, const struct timeval *limit, struct timeval *left);
RMCPP_API int CheckTimeOver(const struct timeval *start, const struct timeval *now,
                            const struct timeval *limit, struct timeval *left);
RMCPP_API void lib_log(uint8_t level, const char *format, ...) __attribute__((format(printf, 2, 3)));
RMCPP_API void change_printlevel(const char *name);

RMCPP_API int RMCP_PingPong(int socket_fd, int attempts, const struct timeval *limit);
RMCPP_API void PrintRMCPStatusCode(int status_code);

/* ------------------------------------------------------------------ */
/* Session options                                                     */
/*                                                                     */
/* rmcpp_setup_session sets a session up as IPMI_SetupSession does,    */
/* with the options of the record below. Its session is used and       */
/* closed with the same calls (IPMI_Message_IF, Send_IPMI_Message,     */
/* Get_IPMI_Message, IPMI_CloseSession, ...). A null or zeroed record  */
/* sets up exactly the session IPMI_SetupSession would; besides, it    */
/* accepts cipher suites 15, 16 and 17 in cipher_suite_id.             */
/*                                                                     */
/* The record grows at its end in later versions: set `size` to        */
/* sizeof(RMCPP_SessionOptions) as the caller's header has it. A size  */
/* of 0 counts as a zeroed record; members beyond `size` count as 0.   */
/* ------------------------------------------------------------------ */

/* Flags of RMCPP_SessionOptions.flags. */
#define RMCPP_OPT_NO_PING     0x0001u  /* skip the ASF presence ping; for BMCs that never answer it  */
#define RMCPP_OPT_KERNEL_PORT 0x0002u  /* local_port 0: the kernel picks the local port, instead of */
                                       /* the first free one of 7001..7099                          */
#define RMCPP_OPT_STRICT_PEER 0x0004u  /* a datagram that fails a check is dropped and the wait     */
                                       /* goes on to its deadline, instead of ending the exchange;  */
                                       /* a refusal is taken early when the very same datagram      */
                                       /* comes again, and a failed establishment starts once more  */
                                       /* from Open Session                                         */

/* RMCPP_SessionOptions.key_mode: how K1 and K2 are derived for suites 1..3. */
#define RMCPP_KEYS_GLOBAL   0  /* as RMCPStandardKeys says at establishment (the default) */
#define RMCPP_KEYS_LIBRARY  1  /* the library's own: the SIK keys the integrity code       */
#define RMCPP_KEYS_STANDARD 2  /* IPMI v2.0: K1 keys the integrity code, K2 the payloads  */

/* RMCPP_SessionOptions.random_source: where console session IDs, Rm and IVs come from. */
#define RMCPP_RANDOM_LIBRARY 0 /* the library's generator, behind MakeSessionID and MakeRandomNumber */
#define RMCPP_RANDOM_KERNEL  1 /* the kernel's (getrandom)                                          */

typedef struct RMCPP_SessionOptions {
    uint32_t size;           /* sizeof(RMCPP_SessionOptions)                      */
    uint32_t flags;          /* RMCPP_OPT_*                                       */
    const char *host;        /* host name, IPv4 or IPv6 literal ("::1", "[::1]"); */
                             /* null: bmc_address of the session record           */
    uint16_t port;           /* UDP port of the BMC; 0: as port_option says       */
    uint8_t key_mode;        /* RMCPP_KEYS_*                                      */
    uint8_t random_source;   /* RMCPP_RANDOM_*                                    */
} RMCPP_SessionOptions;

/* Cipher suites 15, 16 and 17: RAKP-HMAC-SHA256; HMAC-SHA256-128 (16, 17);
 * AES-CBC-128 (17). Their K1 and K2 are always derived as IPMI v2.0 says,
 * whatever the key mode. Host names are resolved with getaddrinfo and each
 * address is tried in turn. */
RMCPP_API int rmcpp_setup_session(IPMI_SessionParam *param, const RMCPP_SessionOptions *options);

/* One cipher suite a channel offers, with the algorithm numbers of its
 * record (the first of each kind when a record lists several). */
typedef struct RMCPP_CipherSuite {
    uint8_t id;
    uint8_t auth_alg;
    uint8_t integrity_alg;
    uint8_t confidentiality_alg;
} RMCPP_CipherSuite;

#define RMCPP_MAX_CIPHER_SUITES 64

typedef struct RMCPP_ChannelCipherSuites {
    uint32_t size;           /* in: sizeof(RMCPP_ChannelCipherSuites)           */
    uint32_t count;          /* out: suites listed, at most RMCPP_MAX_CIPHER_SUITES */
    RMCPP_CipherSuite suites[RMCPP_MAX_CIPHER_SUITES]; /* out, in the BMC's order */
} RMCPP_ChannelCipherSuites;

/* Get Channel Cipher Suites, outside any session: the suites that `channel`
 * (0x0E: the channel asked over) offers for IPMI payloads. The BMC, port,
 * slave address, LUN, attempts and wait come from `param` and `options` as
 * for rmcpp_setup_session; no session is opened and nothing is kept.
 * `out->size` may be smaller than sizeof(RMCPP_ChannelCipherSuites): the
 * suites that fit are filled. The request goes in IPMI v1.5 framing
 * (authentication type none). An OEM suite is listed with its ID and
 * algorithm numbers; its IANA number is not kept. Results: RMCPP_OK;
 * RMCPP_ERR_INVALID for a bad argument or a damaged list (count 0);
 * RMCPP_ERR_BUFFER when `size` leaves no room for `count` (nothing
 * written), or when the channel lists more suites than fit (those that
 * fit are counted); RMCPP_ERR_COMPLETION for a non-zero completion code;
 * RMCPP_ERR_DATA_LENGTH for a response of the wrong length;
 * RMCPP_ERR_RETRY_OVER when no response came; RMCPP_ERR_PING,
 * RMCPP_ERR_RESOLVE, RMCPP_ERR_SOCKET, RMCPP_ERR_BIND as for session
 * setup. */
RMCPP_API int rmcpp_get_channel_cipher_suites(const IPMI_SessionParam *param, const RMCPP_SessionOptions *options,
                                              uint8_t channel, RMCPP_ChannelCipherSuites *out);

/* ------------------------------------------------------------------ */
/* Many sessions from one thread                                       */
/* ------------------------------------------------------------------ */

typedef void (*RMCPP_Job)(void *context, size_t index);

/* Runs job(context, 0) .. job(context, count - 1) on the calling thread,
 * up to `concurrency` of them at a time (0: 64), each on a stack of its
 * own of 256 KiB. Whenever a job waits for a datagram inside this library
 * (session setup, exchanges, close, presence ping), the thread runs the
 * other jobs until that datagram or the end of the wait comes, so one
 * thread keeps many BMCs busy at once. Each job sees its waits end as they
 * would have on a thread of its own. A job may use any of this library's
 * calls on sessions of its own; no session is used by two jobs, and a job
 * must not block in other ways (sleeping, reading files slowly, waiting
 * for another job), since that stops them all. Jobs start in index order;
 * the trace sink is called on the job's stack. Results: RMCPP_OK once
 * every job has returned; RMCPP_ERR_INVALID for a null job or a call from
 * inside a job; RMCPP_ERR_RESOURCE when the stacks cannot be had (then no
 * job has run). */
RMCPP_API int rmcpp_run_interleaved(size_t count, RMCPP_Job job, void *context, unsigned concurrency);

/* ------------------------------------------------------------------ */
/* Result words and version                                            */
/* ------------------------------------------------------------------ */

/* A static, never-null English phrase for a result code above, such as
 * "no response within the wait"; "unknown result code" for any other
 * value. */
RMCPP_API const char *rmcpp_strerror(int code);

/* The library's version as "MAJOR.MINOR.PATCH", e.g. "1.0.0". */
RMCPP_API const char *rmcpp_version(void);

#ifdef __cplusplus
}
#endif

#include "rmcpp_aes.h"

#endif /* RMCPP_H */
