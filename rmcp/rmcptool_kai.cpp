// Timers and the library's single logging function.
#include <sys/time.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "process_settings.h"
#include "rmcpp.h"

namespace {

bool microseconds_in_range(const struct timeval *t) { return t->tv_usec >= 0 && t->tv_usec < 1000000; }

// A point in time: not before the epoch, so that now - start cannot overflow.
bool valid_time(const struct timeval *t) { return t->tv_sec >= 0 && microseconds_in_range(t); }

int invalid_times()
{
    lib_log(3, "Invalid input value for Timer Check.\n");
    return -1;
}

}  // namespace

extern "C" {

RMCPP_API const char *mess_tag[] = {"DEBUG", "INFO", "WARN", "ERROR", "NONE", nullptr};
RMCPP_API int Print_Level = 2;

// Elapsed time is now - start; the time left is limit - elapsed.
RMCPP_API int CheckTimeOver(const struct timeval *start, const struct timeval *now, const struct timeval *limit,
                            struct timeval *left)
{
    if (left == nullptr) return invalid_times();
    left->tv_sec = 0;
    left->tv_usec = 0;
    if (start == nullptr || now == nullptr || limit == nullptr) return invalid_times();
    if (!valid_time(start) || !valid_time(now) || !microseconds_in_range(limit)) return invalid_times();

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
    if (start == nullptr || limit == nullptr || left == nullptr) {
        if (left != nullptr) *left = {0, 0};
        return invalid_times();
    }
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
    if (rmcpp::load_setting(RMCPConnectSA) == 0x24 || format == nullptr) return;

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
    if (name == nullptr) return;
    for (int i = 0; mess_tag[i] != nullptr; ++i)
        if (std::strcmp(name, mess_tag[i]) == 0) rmcpp::store_setting(Print_Level, i);
}

}  // extern "C"
