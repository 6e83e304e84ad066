// Default host platform interfaces. A host program that defines its own
// putKivTrace or lmsg_getmsg replaces these: the library calls them through
// the dynamic symbol table, where the program's definition comes first.
#include <cstdio>
#include <cstring>

#include "rmcpp.h"

extern "C" {

RMCPP_API void putKivTrace(int channel, const KivTraceRecord *record, const char *text)
{
    (void)channel;
    if (record == nullptr || text == nullptr) return;
    // Log lines carry their own line end; completion-code trace lines do not.
    // The line and its added end go out together, between other threads' lines.
    const size_t n = std::strlen(text);
    flockfile(stderr);
    std::fputs(text, stderr);
    if (n == 0 || text[n - 1] != '\n') std::fputc('\n', stderr);
    funlockfile(stderr);
}

RMCPP_API char *lmsg_getmsg(int number, char *text, const char *argument)
{
    if (text == nullptr || argument == nullptr) return nullptr;
    std::snprintf(text, RMCPP_LMSG_TEXT_SIZE, "IPMI message %d: %s", number, argument);
    return text;
}

}  // extern "C"
