// Words for the result codes, and the library's version.
#include "rmcpp.h"

extern "C" {

RMCPP_API const char *rmcpp_strerror(int code)
{
    switch (code) {
    case RMCPP_OK: return "success";
    case RMCPP_ERR_INVALID: return "invalid argument, rejected packet or no answer to the presence ping";
    case RMCPP_ERR_RESOURCE: return "out of memory, or a receive failed";
    case RMCPP_ERR_INTERNAL: return "internal failure (clock, request or key could not be made)";
    case RMCPP_ERR_RETRY_OVER: return "no acceptable answer within the attempts";
    case RMCPP_ERR_SESSION: return "session exhausted, or an invalid payload was received";
    case RMCPP_ERR_BUFFER: return "output buffer too small";
    case RMCPP_ERR_TIMEOUT: return "no response within the wait";
    case RMCPP_ERR_SEND: return "the packet could not be sent";
    case RMCPP_ERR_RECEIVE: return "receive failure";
    case RMCPP_ERR_RAKP_KEY: return "the key exchange code of RAKP 2 or 4 did not match";
    case RMCPP_ERR_SOCKET: return "the UDP socket could not be made or connected";
    case RMCPP_ERR_PING: return "the BMC did not answer the ASF presence ping";
    case RMCPP_ERR_NO_RMCPP: return "the BMC does not offer IPMI v2.0 / RMCP+";
    case RMCPP_ERR_AUTH_ALG: return "the BMC chose another authentication algorithm";
    case RMCPP_ERR_INTEGRITY_ALG: return "the BMC chose another integrity algorithm";
    case RMCPP_ERR_CONF_ALG: return "the BMC chose another confidentiality algorithm";
    case RMCPP_ERR_ROLE: return "the BMC refused the requested privilege level";
    case RMCPP_ERR_BIND: return "no local UDP port from 7001 to 7099 could be bound";
    case RMCPP_ERR_RESOLVE: return "host name could not be resolved";
    case RMCPP_ERR_STATUS: return "the BMC answered with a non-zero RMCP+ status code";
    case RMCPP_ERR_HEADER: return "invalid header, session ID, length or key in a response";
    case RMCPP_ERR_COMPLETION: return "the BMC answered with a non-zero completion code";
    case RMCPP_ERR_DATA_LENGTH: return "response data of the wrong length";
    case RMCPP_ERR_UNEXPECTED: return "unexpected response type or payload length";
    case RMCPP_ERR_TIMER: return "clock failure";
    default: return "unknown result code";
    }
}

RMCPP_API const char *rmcpp_version(void) { return RMCPP_VERSION_TEXT; }

}  // extern "C"
