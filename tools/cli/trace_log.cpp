// The library logs a line for every datagram it ignores, so a BMC or a
// forger sending junk could make a log kept in full grow without limit.
// Only what the error messages read back is kept: whether each watched
// line has been logged, and the line after the last "[ Status Code ] ".
#include "trace_log.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

#include "rmcpp.h"

namespace cli::trace {

namespace {

constexpr const char *kStatusMarker = "[ Status Code ] ";
// Longer than any status text the library writes (its lines are cut at
// 255 bytes); a longer line is kept only as "too long" and matches none.
constexpr size_t kStatusTextRoom = 256;
// The status text lookup writes two lines per code.
constexpr size_t kLookupLines = 2;

struct StatusLine {
    std::string text;
    bool too_long = false;
};

// Shared by every thread: set up before sessions start.
struct Shared {
    std::atomic<bool> verbose{false};
    std::mutex lock;
    std::vector<std::string> watched;
};

Shared g_shared;

// One thread's reading of the log.
struct Log {
    std::vector<size_t> seen;  // indexes into the watched lines
    bool after_marker = false;
    std::optional<StatusLine> status;  // the line after the last marker
    // While the lookup runs: the lines it makes, kept apart.
    bool looking_up = false;
    std::vector<std::string> lookup;
    size_t lookup_count = 0;
    std::FILE *shown_on = nullptr;  // -v lines; nullptr: stderr
};

thread_local Log g_log;

bool is_seen(size_t index) { return std::find(g_log.seen.begin(), g_log.seen.end(), index) != g_log.seen.end(); }

void keep(const char *text)
{
    {
        std::lock_guard<std::mutex> hold(g_shared.lock);
        for (size_t i = 0; i < g_shared.watched.size(); ++i)
            if (g_shared.watched[i] == text && !is_seen(i)) g_log.seen.push_back(i);
    }
    if (g_log.after_marker) {
        const size_t n = ::strnlen(text, kStatusTextRoom + 1);
        g_log.status = StatusLine{};
        if (n > kStatusTextRoom) g_log.status->too_long = true;
        else g_log.status->text.assign(text, n);
    }
    g_log.after_marker = std::strcmp(text, kStatusMarker) == 0;
}

void keep_lookup(const char *text)
{
    // Cut one byte past the room: a cut line equals no status text kept.
    if (g_log.lookup.size() < kLookupLines) g_log.lookup.emplace_back(text, ::strnlen(text, kStatusTextRoom + 1));
    ++g_log.lookup_count;
}

}  // namespace

void set_verbose(bool on) { g_shared.verbose = on; }

void watch(const std::string &line)
{
    std::lock_guard<std::mutex> hold(g_shared.lock);
    if (std::find(g_shared.watched.begin(), g_shared.watched.end(), line) == g_shared.watched.end())
        g_shared.watched.push_back(line);
}

bool seen(const std::string &line)
{
    std::lock_guard<std::mutex> hold(g_shared.lock);
    for (size_t i = 0; i < g_shared.watched.size(); ++i)
        if (g_shared.watched[i] == line) return is_seen(i);
    return false;
}

void start_run(std::FILE *log)
{
    g_log = Log{};
    g_log.shown_on = log;
}

std::optional<std::pair<int, std::string>> last_status_code()
{
    if (!g_log.status || g_log.status->too_long) return std::nullopt;
    const std::string text = g_log.status->text;
    g_log.looking_up = true;
    std::optional<std::pair<int, std::string>> found;
    for (int code = 0; code <= 0xFF && !found; ++code) {
        g_log.lookup.clear();
        g_log.lookup_count = 0;
        PrintRMCPStatusCode(code);
        if (g_log.lookup_count == kLookupLines && g_log.lookup.back() == text) found = {{code, text}};
    }
    g_log.lookup.clear();
    g_log.lookup.shrink_to_fit();
    g_log.lookup_count = 0;
    g_log.looking_up = false;
    return found;
}

size_t held_bytes()
{
    std::lock_guard<std::mutex> hold(g_shared.lock);
    size_t n = g_shared.watched.capacity() * sizeof(std::string) + g_log.seen.capacity() * sizeof(size_t) +
               g_log.lookup.capacity() * sizeof(std::string);
    for (const std::string &w : g_shared.watched) n += w.capacity();
    for (const std::string &l : g_log.lookup) n += l.capacity();
    if (g_log.status) n += g_log.status->text.capacity();
    return n;
}

void reset()
{
    {
        std::lock_guard<std::mutex> hold(g_shared.lock);
        g_shared.watched.clear();
    }
    g_log = Log{};
}

}  // namespace cli::trace

// The library's log lines: shown with -v; what the error messages need is kept.
extern "C" void putKivTrace(int channel, const KivTraceRecord *record, const char *text)
{
    (void)channel;
    (void)record;
    using cli::trace::g_log;
    if (g_log.looking_up) {
        cli::trace::keep_lookup(text);
        return;
    }
    cli::trace::keep(text);
    if (cli::trace::g_shared.verbose) {
        std::FILE *to = g_log.shown_on != nullptr ? g_log.shown_on : stderr;
        std::fputs(text, to);
        if (text[0] == '\0' || text[std::strlen(text) - 1] != '\n') std::fputc('\n', to);
    }
}
