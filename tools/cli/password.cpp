#include "password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace cli {

std::optional<std::string> password_from_environment(std::string &problem)
{
    const char *p = std::getenv("IPMI_PASSWORD");
    if (p == nullptr) {
        problem = "-E given but IPMI_PASSWORD is not set";
        return std::nullopt;
    }
    return std::string(p);
}

std::optional<std::string> password_from_file(const std::string &path, std::string &problem)
{
    std::ifstream in(path);
    if (!in) {
        problem = "cannot read password file " + path;
        return std::nullopt;
    }
    std::string line;
    std::getline(in, line);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

namespace {

void write_all(int fd, const char *text)
{
    size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t n = ::write(fd, text, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        text += n;
        left -= static_cast<size_t>(n);
    }
}

// One line from the terminal; false at end of input or on a read error.
bool read_line(int fd, std::string &line)
{
    for (;;) {
        char c = 0;
        const ssize_t n = ::read(fd, &c, 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return !line.empty();
        if (c == '\n' || c == '\r') return true;
        line += c;
    }
}

}  // namespace

std::optional<std::string> password_from_terminal(std::string &problem)
{
    const int fd = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        problem = std::string("-a needs a terminal to ask for the password (/dev/tty: ") + std::strerror(errno) +
                  "); use -P, -E or -f instead";
        return std::nullopt;
    }
    termios saved{};
    const bool is_terminal = tcgetattr(fd, &saved) == 0;
    if (is_terminal) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(fd, TCSAFLUSH, &quiet);
    }
    write_all(fd, "Password: ");
    std::string line;
    const bool got = read_line(fd, line);
    if (is_terminal) tcsetattr(fd, TCSAFLUSH, &saved);
    write_all(fd, "\n");
    ::close(fd);
    if (!got) {
        problem = "-a: no password was typed";
        return std::nullopt;
    }
    return line;
}

}  // namespace cli
