#include "run_program.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace testkit {

int open_descriptors()
{
    int n = 0;
    DIR *d = opendir("/proc/self/fd");
    while (readdir(d) != nullptr) ++n;
    closedir(d);
    return n;
}

ProgramResult run_program(const std::vector<std::string> &argv, std::chrono::milliseconds limit,
                          const std::map<std::string, std::string> &environment)
{
    ProgramResult result;
    int out[2], err[2];
    // Close-on-exec, so programs run at once from several threads do not hold
    // each other's pipes open (dup2 gives the child its own ends without it).
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return result;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        close(out[0]);
        close(err[0]);
        for (const auto &[name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
        std::vector<char *> args;
        for (const auto &a : argv) args.push_back(const_cast<char *>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open_pipes = 2;
    while (open_pipes > 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            result.timed_out = true;
            kill(pid, SIGKILL);
            break;
        }
        if (poll(fds, 2, static_cast<int>(left.count())) <= 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
            char buffer[4096];
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n <= 0) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_pipes;
            } else {
                (i == 0 ? result.out : result.err).append(buffer, static_cast<size_t>(n));
            }
        }
    }
    for (auto &f : fds)
        if (f.fd >= 0) close(f.fd);
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status)) result.exit_code = WEXITSTATUS(status);
    return result;
}

}  // namespace testkit
