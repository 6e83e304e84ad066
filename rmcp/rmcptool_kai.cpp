// Timers and the library's single logging function.
#include <sys/time.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "process_settings.h"
#include "rmcpp.h"

extern "C" {

RMCPP_API const char *mess_tag[] = {"DEBUG", "INFO", "WARN", "ERROR", "NONE", nullptr};
RMCPP_API int Print_Level = 2;

// Elapsed time is now - start; the time left is limit - elapsed.
RMCPP_API int CheckTimeOver(const struct timeval *start, const struct timeval *now, const struct timeval *limit,
                            struct timeval *left)
{
    left->tv_sec = 0;
    left->tv_usec = 0;

    struct timeval elapsed;
    bool invalid = false;
    if (start->tv_sec > now->tv_sec) {
        invalid = true;
    } else if (start->tv_sec == now->tv_sec) {
        if (start->tv_usec > now->tv_usec)
            invalid = true;
        else
            elapsed = {0, now->tv_usec - start->tv_usec};
    } else if (start->tv_usec <= now->tv_usec) {
        elapsed = {now->tv_sec - start->tv_sec, now->tv_usec - start->tv_usec};
    } else {
        elapsed = {now->tv_sec - start->tv_sec - 1, now->tv_usec + 1000000 - start->tv_usec};
    }
    if (invalid) {
        lib_log(3, "Invalid input value for Timer Check.\n");
        return -1;
    }

    if (elapsed.tv_sec > limit->tv_sec) return 1;
    if (elapsed.tv_sec == limit->tv_sec && elapsed.tv_usec >= limit->tv_usec) return 1;

    if (limit->tv_usec < elapsed.tv_usec) {
        left->tv_sec = limit->tv_sec - elapsed.tv_sec - 1;
        left->tv_usec = limit->tv_usec + 1000000 - elapsed.tv_usec;
    } else {
        left->tv_sec = limit->tv_sec - elapsed.tv_sec;
        left->tv_usec = limit->tv_usec - elapsed.tv_usec;
    }
    return 0;
}

RMCPP_API int ReadTimer(const struct timeval *start, const struct timeval *limit, struct timeval *left)
{
    struct timeval now;
    if (gettimeofday(&now, nullptr) != 0) {
        lib_log(3, "Failed to get current time.\n");
        return -1;
    }
    return CheckTimeOver(start, &now, limit, left);
}

// The only gate is RMCPConnectSA == 0x24; level and Print_Level are not
// consulted, so every message of every level reaches the sink.
RMCPP_API void lib_log(uint8_t level, const char *format, ...)
{
    (void)level;
    if (rmcpp::load_setting(RMCPConnectSA) == 0x24) return;

    char line[256];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof line, format, args);
    va_end(args);

    const KivTraceRecord record = {2, 1, 0, 0};
    putKivTrace(1, &record, line);
}

// Every matching entry sets the level; the walk does not stop at a match.
RMCPP_API void change_printlevel(const char *name)
{
    for (int i = 0; mess_tag[i] != nullptr; ++i)
        if (std::strcmp(name, mess_tag[i]) == 0) rmcpp::store_setting(Print_Level, i);
}

}  // extern "C"
