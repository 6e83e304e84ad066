#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "bmcsim.h"

#ifndef BMCSIM_PROGRAM
#define BMCSIM_PROGRAM "rmcpp-bmcsim"
#endif

namespace bmcsim {

// Collects the child's standard output line by line, so the pipe never
// fills up and tests can look for a line.
struct ChildProcess::Reader {
    explicit Reader(int fd) : fd(fd), thread([this] { run(); }) {}
    ~Reader()
    {
        thread.join();
        ::close(fd);
    }

    void run()
    {
        std::string partial;
        char buf[4096];
        for (;;) {
            ssize_t n = ::read(fd, buf, sizeof buf);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            std::lock_guard<std::mutex> g(mu);
            partial.append(buf, static_cast<size_t>(n));
            size_t nl;
            while ((nl = partial.find('\n')) != std::string::npos) {
                lines.push_back(partial.substr(0, nl));
                partial.erase(0, nl + 1);
            }
            cv.notify_all();
        }
        std::lock_guard<std::mutex> g(mu);
        if (!partial.empty()) lines.push_back(partial);
        ended = true;
        cv.notify_all();
    }

    bool wait_for(const std::string &text, std::chrono::milliseconds timeout)
    {
        std::unique_lock<std::mutex> g(mu);
        return cv.wait_for(g, timeout, [&] {
            return ended || std::any_of(lines.begin(), lines.end(), [&](const std::string &l) {
                       return l.find(text) != std::string::npos;
                   });
        }) && std::any_of(lines.begin(), lines.end(), [&](const std::string &l) {
                   return l.find(text) != std::string::npos;
               });
    }

    int fd;
    std::mutex mu;
    std::condition_variable cv;
    std::vector<std::string> lines;
    bool ended = false;
    std::thread thread;
};

std::string ChildProcess::default_program() { return BMCSIM_PROGRAM; }

ChildProcess::ChildProcess(std::vector<std::string> arguments, std::chrono::milliseconds ready_timeout,
                           std::string program)
{
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("bmcsim: pipe failed");
    std::vector<std::string> argv_text{program};
    argv_text.insert(argv_text.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (auto &a : argv_text) argv.push_back(a.data());
    argv.push_back(nullptr);

    pid_ = ::fork();
    if (pid_ < 0) {
        ::close(out[0]);
        ::close(out[1]);
        throw std::runtime_error("bmcsim: fork failed");
    }
    if (pid_ == 0) {
        // The simulator goes with the test program that started it, even
        // when that one dies without running its destructors.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        ::dup2(out[1], STDOUT_FILENO);
        ::execv(argv[0], argv.data());
        const char msg[] = "bmcsim: cannot run the simulator program\n";
        if (::write(STDERR_FILENO, msg, sizeof msg - 1) < 0) { /* exiting anyway */ }
        ::_exit(127);
    }
    ::close(out[1]);
    reader_ = std::make_unique<Reader>(out[0]);
    if (!reader_->wait_for("listening on", ready_timeout)) {
        stop();
        std::string said;
        for (auto &l : output()) said += "\n  " + l;
        throw std::runtime_error("bmcsim: " + program + " did not start listening" + said);
    }
}

ChildProcess::~ChildProcess() { stop(); }

int ChildProcess::stop()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        bool done = false;
        for (int i = 0; i < 200 && !done; ++i) {
            pid_t r = ::waitpid(pid_, &status, WNOHANG);
            if (r == pid_ || (r < 0 && errno != EINTR)) done = true;
            else ::usleep(10000);
        }
        if (!done) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &status, 0);
        }
        status_ = status;
        pid_ = -1;
    }
    return status_;
}

std::vector<std::string> ChildProcess::output() const
{
    if (!reader_) return {};
    std::lock_guard<std::mutex> g(reader_->mu);
    return reader_->lines;
}

bool ChildProcess::wait_for_output(const std::string &text, std::chrono::milliseconds timeout) const
{
    return reader_ && reader_->wait_for(text, timeout);
}

}  // namespace bmcsim
