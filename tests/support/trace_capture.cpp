#include "trace_capture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace testkit {
namespace {
std::mutex g_mutex;
std::vector<TraceLine> g_lines;
std::vector<MessageLookup> g_lookups;
bool echo() { return std::getenv("RMCPP_TEST_ECHO") != nullptr; }
}  // namespace

const std::vector<TraceLine> &trace() { return g_lines; }

void clear_trace()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.clear();
    g_lookups.clear();
}

std::vector<std::string> log_lines()
{
    std::lock_guard<std::mutex> lock(g_mutex);
    std::vector<std::string> out;
    for (const auto &l : g_lines)
        if (l.channel == 1) out.push_back(l.text);
    return out;
}

bool logged(const std::string &text) { return count_logged(text) > 0; }

int count_logged(const std::string &text)
{
    int n = 0;
    for (const auto &l : log_lines())
        if (l == text) ++n;
    return n;
}

bool logged_together(const std::vector<std::string> &lines)
{
    const auto all = log_lines();
    return std::search(all.begin(), all.end(), lines.begin(), lines.end()) != all.end();
}

std::string log_text()
{
    std::string all;
    for (const auto &l : log_lines()) all += l;
    return all;
}

const std::vector<MessageLookup> &lookups() { return g_lookups; }

}  // namespace testkit

// These definitions replace the library's defaults for the test programs.
extern "C" void putKivTrace(int channel, const KivTraceRecord *record, const char *text)
{
    std::lock_guard<std::mutex> lock(testkit::g_mutex);
    testkit::g_lines.push_back({channel, *record, text});
    if (testkit::echo()) std::fprintf(stderr, "[trace %d] %s", channel, text);
}

extern "C" char *lmsg_getmsg(int number, char *text, const char *argument)
{
    {
        std::lock_guard<std::mutex> lock(testkit::g_mutex);
        testkit::g_lookups.push_back({number, argument});
    }
    std::snprintf(text, RMCPP_LMSG_TEXT_SIZE, "MSG%05d %s", number, argument);
    return text;
}
