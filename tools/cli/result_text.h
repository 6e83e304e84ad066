/* What each rmcpp result code means, in words, for the programs. */
#ifndef RMCPP_RESULT_TEXT_H
#define RMCPP_RESULT_TEXT_H

static inline const char *rmcpp_result_text(int code)
{
    switch (code) {
    case 0: return "success";
    case 1: return "invalid argument, rejected packet or no answer to the presence ping";
    case 2: return "out of memory, or a receive failed";
    case 3: return "internal failure (clock, request or key could not be made)";
    case 4: return "no acceptable answer within the attempts";
    case 5: return "session exhausted, or an invalid payload was received";
    case 6: return "output buffer too small";
    case 7: return "no response within the wait";
    case 8: return "the packet could not be sent";
    case 9: return "receive failure";
    case 15: return "the key exchange code of RAKP 2 or 4 did not match";
    case 33: return "the UDP socket could not be made or connected";
    case 34: return "the BMC did not answer the ASF presence ping";
    case 35: return "the BMC does not offer IPMI v2.0 / RMCP+";
    case 36: return "the BMC chose another authentication algorithm";
    case 37: return "the BMC chose another integrity algorithm";
    case 38: return "the BMC chose another confidentiality algorithm";
    case 39: return "the BMC refused the requested privilege level";
    case 40: return "no local UDP port from 7001 to 7099 could be bound";
    case 65: return "the BMC answered with a non-zero RMCP+ status code";
    case 66: return "invalid header, session ID, length or key in a response";
    case 67: return "the BMC answered with a non-zero completion code";
    case 68: return "response data of the wrong length";
    case 69: return "unexpected response type or payload length";
    case -1: return "clock failure";
    default: return "unknown result code";
    }
}

#endif
