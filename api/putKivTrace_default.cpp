// The default trace sink. A host program that defines its own putKivTrace
// replaces it: linked against the shared library, the program's definition
// comes first in the dynamic symbol table; linked against the static
// archive, this member is never pulled in.
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

}  // extern "C"
