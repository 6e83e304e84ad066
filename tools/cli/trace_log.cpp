#include "trace_log.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "rmcpp.h"

namespace cli::trace {

namespace {

bool g_verbose = false;
std::vector<std::string> g_log;

}  // namespace

void set_verbose(bool on) { g_verbose = on; }

void watch(const std::string &) {}

bool seen(const std::string &line) { return std::find(g_log.begin(), g_log.end(), line) != g_log.end(); }

std::optional<std::pair<int, std::string>> last_status_code()
{
    for (size_t i = g_log.size(); i-- > 1;) {
        if (g_log[i - 1] != "[ Status Code ] ") continue;
        const std::string text = g_log[i];
        const bool verbose = g_verbose;
        g_verbose = false;
        std::optional<std::pair<int, std::string>> found;
        for (int code = 0; code <= 0xFF && !found; ++code) {
            const size_t before = g_log.size();
            PrintRMCPStatusCode(code);
            if (g_log.size() == before + 2 && g_log.back() == text) found = {{code, text}};
            g_log.resize(before);
        }
        g_verbose = verbose;
        return found;
    }
    return std::nullopt;
}

size_t held_bytes()
{
    size_t n = g_log.capacity() * sizeof(std::string);
    for (const auto &l : g_log) n += l.capacity();
    return n;
}

void reset() { g_log.clear(); }

}  // namespace cli::trace

// The library's log lines: kept for the error message, shown with -v.
extern "C" void putKivTrace(int channel, const KivTraceRecord *record, const char *text)
{
    (void)channel;
    (void)record;
    cli::trace::g_log.emplace_back(text);
    if (cli::trace::g_verbose) {
        std::fputs(text, stderr);
        if (text[0] == '\0' || text[std::strlen(text) - 1] != '\n') std::fputc('\n', stderr);
    }
}
