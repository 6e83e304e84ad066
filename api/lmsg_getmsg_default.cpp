// The default message-text source. A host program that defines its own
// lmsg_getmsg replaces it, as it does the trace sink.
#include <cstdio>

#include "rmcpp.h"

extern "C" {

RMCPP_API char *lmsg_getmsg(int number, char *text, const char *argument)
{
    if (text == nullptr || argument == nullptr) return nullptr;
    std::snprintf(text, RMCPP_LMSG_TEXT_SIZE, "IPMI message %d: %s", number, argument);
    return text;
}

}  // extern "C"
