#include "fleet.h"

#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>

#include "hostrange.h"
#include "progress.h"
#include "trace_log.h"

namespace cli {

using rmcpp::commands::compress_hosts;

namespace {

using Clock = std::chrono::steady_clock;

// A worker's stack: the session's buffers are small, so a thousand workers
// fit in a 32-bit address space. The sanitizers need more.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t kWorkerStack = 4 * 1024 * 1024;
#else
constexpr size_t kWorkerStack = 512 * 1024;
#endif

// At most this often the progress bar is drawn again.
constexpr auto kRedraw = std::chrono::milliseconds(100);

// Text written to a memory stream, and the stream closed.
class Buffer {
public:
    Buffer() : file_(open_memstream(&text_, &size_)) {}
    ~Buffer()
    {
        if (file_ != nullptr) std::fclose(file_);
        std::free(text_);
    }
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;

    std::FILE *file() const { return file_; }
    std::string take()
    {
        if (file_ == nullptr) return "";
        std::fclose(file_);
        file_ = nullptr;
        return std::string(text_, size_);
    }

private:
    char *text_ = nullptr;
    size_t size_ = 0;
    std::FILE *file_;
};

size_t terminal_width(std::FILE *f)
{
    winsize w{};
    if (ioctl(fileno(f), TIOCGWINSZ, &w) == 0 && w.ws_col > 0) return w.ws_col;
    return 80;
}

void *worker_main(void *work)
{
    (*static_cast<std::function<void()> *>(work))();
    return nullptr;
}

// Starts up to `count` threads running `work`; as many as the system
// allows. Returns their ids.
std::vector<pthread_t> start_workers(size_t count, std::function<void()> &work)
{
    std::vector<pthread_t> started;
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return started;
    pthread_attr_setstacksize(&attr, kWorkerStack);
    for (size_t i = 0; i < count; ++i) {
        pthread_t id;
        if (pthread_create(&id, &attr, worker_main, &work) != 0) break;
        started.push_back(id);
    }
    pthread_attr_destroy(&attr);
    return started;
}

// What the workers share: the next host to take, the counts, the output.
class Fleet {
public:
    Fleet(const std::vector<std::string> &hosts, const FleetSettings &settings, std::FILE *out, std::FILE *err)
        : hosts_(hosts), settings_(settings), out_(out), err_(err), start_(Clock::now())
    {
        if (settings_.consolidate) kept_.resize(hosts_.size());
    }

    void work(const std::function<HostRun(const std::string &)> &run)
    {
        for (;;) {
            const size_t i = next_.fetch_add(1);
            if (i >= hosts_.size()) return;
            HostRun r = run(hosts_[i]);
            std::lock_guard<std::mutex> hold(lock_);
            ++done_;
            if (r.status != 0) ++failed_;
            if (settings_.consolidate) kept_[i] = std::move(r);
            else emit(r);
            if (settings_.progress && Clock::now() - drawn_ >= kRedraw) draw();
            if (done_ == hosts_.size()) finished_.notify_all();
        }
    }

    // Redraws the bar every tenth of a second until every host is done.
    void show_progress()
    {
        std::unique_lock<std::mutex> hold(lock_);
        while (done_ < hosts_.size()) {
            draw();
            finished_.wait_for(hold, kRedraw, [this] { return done_ == hosts_.size(); });
        }
    }

    int finish()
    {
        std::lock_guard<std::mutex> hold(lock_);
        erase();
        if (settings_.consolidate) {
            const std::string text = consolidated(kept_);
            std::fwrite(text.data(), 1, text.size(), out_);
            std::fflush(out_);
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
        std::fprintf(err_, "%s\n", summary_line(hosts_.size(), failed_, seconds).c_str());
        std::fflush(err_);
        return failed_ == 0 ? 0 : 1;
    }

private:
    // One host's output in one piece.
    void emit(const HostRun &r)
    {
        erase();
        const std::string text = settings_.json ? json_line(r) + "\n" : prefixed(r.host, r.out);
        std::fwrite(text.data(), 1, text.size(), out_);
        std::fflush(out_);
        const std::string errors = prefixed(r.host, r.err);
        std::fwrite(errors.data(), 1, errors.size(), err_);
        std::fflush(err_);
    }

    void draw()
    {
        if (!settings_.progress) return;
        const double elapsed = std::chrono::duration<double>(Clock::now() - start_).count();
        const std::string line = progress_line({done_, hosts_.size(), failed_, elapsed}, terminal_width(err_));
        std::fprintf(err_, "\r%s\033[K", line.c_str());
        std::fflush(err_);
        shown_ = true;
        drawn_ = Clock::now();
    }

    void erase()
    {
        if (!shown_) return;
        std::fputs("\r\033[K", err_);
        std::fflush(err_);
        shown_ = false;
    }

    const std::vector<std::string> &hosts_;
    const FleetSettings settings_;
    std::FILE *out_, *err_;
    const Clock::time_point start_;
    std::atomic<size_t> next_{0};
    std::mutex lock_;
    std::condition_variable finished_;
    size_t done_ = 0, failed_ = 0;
    std::vector<HostRun> kept_;
    bool shown_ = false;
    Clock::time_point drawn_{};
};

}  // namespace

HostRun run_on_host(const Command &command, const Options &base, const std::string &host)
{
    HostRun r;
    r.host = host;
    Options o = base;
    o.host = host;
    Buffer out, err;
    if (out.file() == nullptr || err.file() == nullptr) {
        r.status = 1;
        r.err = "rmcpp: no memory for the host's output\n";
        r.error = nlohmann::json{{"code", 0}, {"name", "resource"}, {"message", "no memory for the host's output"}};
        return r;
    }
    trace::start_run(err.file());
    Collected collected;
    try {
        ToolRunner runner(o, out.file(), err.file());
        runner.collect_into(&collected);
        command(o, runner);
        r.status = runner.exit_status();
    } catch (const std::exception &e) {
        std::fprintf(err.file(), "rmcpp: %s\n", e.what());
        collected.error = nlohmann::json{{"code", 0}, {"name", "internal"}, {"message", e.what()}};
        r.status = 1;
    }
    trace::start_run(nullptr);
    r.out = out.take();
    r.err = err.take();
    r.result = std::move(collected.result);
    r.error = std::move(collected.error);
    return r;
}

int run_fleet(const std::vector<std::string> &hosts, const std::function<HostRun(const std::string &)> &run,
              const FleetSettings &settings, std::FILE *out, std::FILE *err)
{
    Fleet fleet(hosts, settings, out, err);
    std::function<void()> work = [&] { fleet.work(run); };
    const size_t wanted = std::min<size_t>(hosts.size(), static_cast<size_t>(std::max(settings.fanout, 1)));
    const std::vector<pthread_t> workers = start_workers(wanted, work);
    if (workers.empty()) {
        work();  // no thread to be had: one host after the other
    } else if (settings.progress) {
        fleet.show_progress();
    }
    for (pthread_t id : workers) pthread_join(id, nullptr);
    return fleet.finish();
}

std::string prefixed(const std::string &host, const std::string &text)
{
    std::string out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        out += host + ": " + text.substr(start, end - start) + "\n";
        start = end + 1;
    }
    return out;
}

std::string json_line(const HostRun &run)
{
    std::string line = "{\"host\":" + nlohmann::json(run.host).dump();
    if (run.error) line += ",\"error\":" + run.error->dump();
    else line += ",\"result\":" + (run.result ? run.result->dump() : std::string("null"));
    return line + "}";
}

std::string consolidated(const std::vector<HostRun> &runs)
{
    const std::string rule = "----------------\n";
    std::vector<std::pair<std::string, std::vector<std::string>>> groups;
    std::map<std::string, size_t> index;
    for (const HostRun &r : runs) {
        const std::string text = r.out + r.err;
        const auto [it, added] = index.emplace(text, groups.size());
        if (added) groups.push_back({text, {}});
        groups[it->second].second.push_back(r.host);
    }
    std::string out;
    for (const auto &[text, hosts] : groups) out += rule + compress_hosts(hosts) + "\n" + rule + text;
    return out;
}

std::string summary_line(size_t hosts, size_t failed, double seconds)
{
    char text[128];
    std::snprintf(text, sizeof text, "rmcpp: %zu %s, %zu ok, %zu failed (%.2f s)", hosts, hosts == 1 ? "host" : "hosts",
                  hosts - failed, failed, seconds);
    return text;
}

}  // namespace cli
