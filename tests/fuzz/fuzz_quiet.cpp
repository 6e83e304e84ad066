// The host interfaces of a fuzz target: every log line is formed as usual
// and then dropped, so a run is not slowed down by writing them out. The
// length is taken so that a line without its terminating NUL is caught.
#include <cstdio>
#include <cstring>

#include "rmcpp.h"

namespace {
volatile size_t sink_bytes = 0;
}

extern "C" {

void putKivTrace(int, const KivTraceRecord *, const char *text) { sink_bytes = sink_bytes + std::strlen(text); }

char *lmsg_getmsg(int number, char *text, const char *argument)
{
    std::snprintf(text, RMCPP_LMSG_TEXT_SIZE, "IPMI message %d: %s", number, argument);
    return text;
}

}  // extern "C"
