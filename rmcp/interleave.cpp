// Many jobs on one thread. Each job runs on a stack of its own; when it
// waits for a datagram inside the library it hands the thread back, and one
// ppoll over every waiting job's socket decides which job runs next. A job
// sees its wait end exactly as a ppoll of its own would have ended it.
#include "interleave.h"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

#include "rmcpp.h"
#include "session_options.h"

#if defined(__SANITIZE_ADDRESS__)
#define RMCPP_ASAN_FIBERS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define RMCPP_ASAN_FIBERS 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define RMCPP_TSAN_FIBERS 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define RMCPP_TSAN_FIBERS 1
#endif
#endif
#ifdef RMCPP_ASAN_FIBERS
#include <sanitizer/common_interface_defs.h>
#endif
#ifdef RMCPP_TSAN_FIBERS
#include <sanitizer/tsan_interface.h>
#endif

namespace rmcpp::interleave {

namespace {

constexpr size_t kStackSize = 256 * 1024;
constexpr unsigned kDefaultConcurrency = 64;

struct Job {
    ucontext_t context;
    void *mapping = MAP_FAILED;  // the stack with a guard page below it
    size_t mapping_size = 0;
    void *stack = nullptr;
    size_t stack_size = 0;
    size_t index = 0;
    bool running = false;        // a job has started here and not yet returned
    pollfd *poll = nullptr;      // what it waits for
    timespec deadline{};
    int outcome = 0;             // what its wait returns
    int error = 0;               // and errno with it
    ext::Establishment *establishment = nullptr;
    void *asan_fake_stack = nullptr;
    void *tsan_fiber = nullptr;
};

struct Scheduler {
    ucontext_t context;
    RMCPP_Job job = nullptr;
    void *job_context = nullptr;
    Job *running = nullptr;
    const void *asan_bottom = nullptr;
    size_t asan_size = 0;
    void *tsan_fiber = nullptr;
};

thread_local Scheduler *scheduler = nullptr;

timespec now()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t;
}

bool before(const timespec &a, const timespec &b)
{
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

timespec later(const timespec &t, const timespec &wait)
{
    // Waits of more than a few decades all end at the same far time.
    constexpr time_t kFar = time_t{1} << 30;
    timespec d{t.tv_sec + std::min(wait.tv_sec, kFar), t.tv_nsec + wait.tv_nsec};
    if (d.tv_nsec >= 1000000000L) {
        d.tv_sec += 1;
        d.tv_nsec -= 1000000000L;
    }
    return d;
}

timespec until(const timespec &from, const timespec &to)
{
    if (!before(from, to)) return timespec{0, 0};
    timespec d{to.tv_sec - from.tv_sec, to.tv_nsec - from.tv_nsec};
    if (d.tv_nsec < 0) {
        d.tv_sec -= 1;
        d.tv_nsec += 1000000000L;
    }
    return d;
}

// Swaps the thread's context for `to`, telling the sanitizers about the
// stack it runs on: ASan keeps the fake stack of the context being left
// in `*fake_stack` (null: that context ends here), TSan switches fibers.
void switch_context(ucontext_t &from, ucontext_t &to, [[maybe_unused]] void **fake_stack,
                    [[maybe_unused]] const void *to_bottom, [[maybe_unused]] size_t to_size,
                    [[maybe_unused]] void *to_fiber)
{
#ifdef RMCPP_ASAN_FIBERS
    __sanitizer_start_switch_fiber(fake_stack, to_bottom, to_size);
#endif
#ifdef RMCPP_TSAN_FIBERS
    __tsan_switch_to_fiber(to_fiber, 0);
#endif
    swapcontext(&from, &to);
}

// Back in a context after switch_context: ASan takes up its fake stack
// again and tells where the thread came from.
void arrived([[maybe_unused]] void *fake_stack, [[maybe_unused]] const void **from_bottom,
             [[maybe_unused]] size_t *from_size)
{
#ifdef RMCPP_ASAN_FIBERS
    __sanitizer_finish_switch_fiber(fake_stack, from_bottom, from_size);
#endif
}

// From the scheduler into job `j`, until it waits or returns. The thread's
// establishment is the job's while it runs.
void enter(Scheduler &s, Job &j)
{
    s.running = &j;
    ext::Establishment *own = ext::exchange_current(j.establishment);
    void *fake_stack = nullptr;
    switch_context(s.context, j.context, &fake_stack, j.stack, j.stack_size, j.tsan_fiber);
    arrived(fake_stack, nullptr, nullptr);
    j.establishment = ext::exchange_current(own);
    s.running = nullptr;
}

// From job `j` back to the scheduler; returns when the scheduler enters it
// again, never once the job has returned.
void leave(Scheduler &s, Job &j)
{
    switch_context(j.context, s.context, j.running ? &j.asan_fake_stack : nullptr, s.asan_bottom, s.asan_size,
                   s.tsan_fiber);
    arrived(j.asan_fake_stack, &s.asan_bottom, &s.asan_size);
}

void run_job()
{
    Scheduler &s = *scheduler;
    Job &j = *s.running;
    arrived(nullptr, &s.asan_bottom, &s.asan_size);
    s.job(s.job_context, j.index);
    j.running = false;
    leave(s, j);
}

bool make_stack(Job &j, size_t page)
{
    j.mapping_size = kStackSize + page;
    j.mapping = mmap(nullptr, j.mapping_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (j.mapping == MAP_FAILED) return false;
    // A job that overruns its stack faults on the guard page instead of
    // writing over another job's.
    if (mprotect(j.mapping, page, PROT_NONE) != 0) return false;
    j.stack = static_cast<uint8_t *>(j.mapping) + page;
    j.stack_size = kStackSize;
    return true;
}

void drop_stack(Job &j)
{
    if (j.mapping != MAP_FAILED) munmap(j.mapping, j.mapping_size);
    j.mapping = MAP_FAILED;
}

void start(Scheduler &s, Job &j, size_t index)
{
    getcontext(&j.context);
    j.context.uc_stack.ss_sp = j.stack;
    j.context.uc_stack.ss_size = j.stack_size;
    j.context.uc_link = nullptr;
    makecontext(&j.context, run_job, 0);
    j.index = index;
    j.running = true;
    j.establishment = nullptr;
    j.asan_fake_stack = nullptr;
    enter(s, j);
}

// Ends the wait of job `j` with `outcome` and runs it on.
void resume(Scheduler &s, Job &j, int outcome, short revents, int error = 0)
{
    j.poll->revents = revents;
    j.outcome = outcome;
    j.error = error;
    enter(s, j);
}

class Run {
public:
    Run(size_t count, RMCPP_Job job, void *context, size_t slots) : count_(count), slots_(slots)
    {
        s_.job = job;
        s_.job_context = context;
    }

    ~Run()
    {
        for (size_t i = 0; jobs_ && i < slots_; ++i) {
            drop_stack(jobs_[i]);
#ifdef RMCPP_TSAN_FIBERS
            if (jobs_[i].tsan_fiber != nullptr) __tsan_destroy_fiber(jobs_[i].tsan_fiber);
#endif
        }
        if (scheduler == &s_) scheduler = nullptr;
    }

    bool prepare()
    {
        jobs_.reset(new (std::nothrow) Job[slots_]);
        if (!jobs_) return false;
        try {
            fds_.reserve(slots_);
            waiting_.reserve(slots_);
        } catch (const std::bad_alloc &) {
            return false;
        }
        const long page = sysconf(_SC_PAGESIZE);
        for (size_t i = 0; i < slots_; ++i) {
            if (!make_stack(jobs_[i], page > 0 ? static_cast<size_t>(page) : 4096)) return false;
#ifdef RMCPP_TSAN_FIBERS
            jobs_[i].tsan_fiber = __tsan_create_fiber(0);
#endif
        }
#ifdef RMCPP_TSAN_FIBERS
        s_.tsan_fiber = __tsan_get_current_fiber();
#endif
        return true;
    }

    void run()
    {
        scheduler = &s_;
        for (;;) {
            for (size_t i = 0; i < slots_; ++i) fill(jobs_[i]);
            fds_.clear();
            waiting_.clear();
            timespec first{};
            for (size_t i = 0; i < slots_; ++i) {
                Job &j = jobs_[i];
                if (!j.running) continue;
                if (waiting_.empty() || before(j.deadline, first)) first = j.deadline;
                waiting_.push_back(&j);
                fds_.push_back(*j.poll);
            }
            if (waiting_.empty()) return;
            const timespec wait = until(now(), first);
            int ready = ppoll(fds_.data(), fds_.size(), &wait, nullptr);
            if (ready < 0 && errno == EINTR) ready = 0;
            if (ready < 0) {
                // The shared wait failed: so does every job's own.
                const int error = errno;
                for (Job *j : waiting_) {
                    resume(s_, *j, -1, 0, error);
                    fill(*j);
                }
                continue;
            }
            const timespec t = now();
            for (size_t i = 0; i < waiting_.size(); ++i) {
                Job &j = *waiting_[i];
                if (ready > 0 && fds_[i].revents != 0)
                    resume(s_, j, 1, fds_[i].revents);
                else if (!before(t, j.deadline))
                    resume(s_, j, 0, 0);
                else
                    continue;
                fill(j);
            }
        }
    }

private:
    // Starts the next jobs in a free slot, as long as they return at once.
    void fill(Job &j)
    {
        while (!j.running && next_ < count_) start(s_, j, next_++);
    }

    Scheduler s_;
    size_t count_;
    size_t slots_;
    size_t next_ = 0;
    std::unique_ptr<Job[]> jobs_;
    // One entry per slot at most, so they never grow while jobs run.
    std::vector<pollfd> fds_;
    std::vector<Job *> waiting_;
};

}  // namespace

int wait_readable(pollfd &p, const timespec &wait)
{
    Scheduler *s = scheduler;
    const bool zero = wait.tv_sec == 0 && wait.tv_nsec == 0;
    // Outside a job, a look without waiting, and what ppoll refuses anyway.
    if (s == nullptr || s->running == nullptr || zero || wait.tv_sec < 0 || wait.tv_nsec < 0 ||
        wait.tv_nsec >= 1000000000L)
        return ppoll(&p, 1, &wait, nullptr);
    Job &j = *s->running;
    j.poll = &p;
    j.deadline = later(now(), wait);
    leave(*s, j);
    if (j.outcome < 0) errno = j.error;
    return j.outcome;
}

}  // namespace rmcpp::interleave

extern "C" {

RMCPP_API int rmcpp_run_interleaved(size_t count, RMCPP_Job job, void *context, unsigned concurrency)
{
    using namespace rmcpp::interleave;
    if (job == nullptr) {
        lib_log(3, "Null input data.\n");
        return RMCPP_ERR_INVALID;
    }
    if (scheduler != nullptr) {
        lib_log(3, "Interleaved jobs cannot start more interleaved jobs.\n");
        return RMCPP_ERR_INVALID;
    }
    if (count == 0) return RMCPP_OK;
    const size_t slots = std::min<size_t>(count, concurrency != 0 ? concurrency : kDefaultConcurrency);
    Run run(count, job, context, slots);
    if (!run.prepare()) {
        lib_log(3, "Out of resource.\n");
        return RMCPP_ERR_RESOURCE;
    }
    run.run();
    return RMCPP_OK;
}

}  // extern "C"
