// The session's UDP socket: bound locally, connected to the managed system.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "arguments.h"
#include "interleave.h"
#include "rmcpp.h"

namespace {

sockaddr_in ipv4(uint32_t address, uint32_t port)
{
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(address);
    a.sin_port = htons(static_cast<uint16_t>(port));
    return a;
}

bool bind_to(int fd, sockaddr_in local, uint16_t port)
{
    local.sin_port = htons(port);
    return bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) == 0;
}

}  // namespace

extern "C" {

RMCPP_API int init_socket(int *socket_fd, uint32_t address, uint32_t port, uint16_t local_port)
{
    if (socket_fd == nullptr) return rmcpp::args::null_input();
    if (port > 0xFFFF) {
        lib_log(3, "Invalid port number = %u.\n", port);
        return RMCPP_ERR_INVALID;
    }
    *socket_fd = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (*socket_fd < 0) {
        lib_log(3, "Failed to make socket\n");
        return 33;
    }
    const sockaddr_in remote = ipv4(address, port);

    // A managed system reached over loopback is answered from loopback.
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = address == 0x7F000001u ? inet_addr("127.0.0.1") : htonl(INADDR_ANY);

    bool bound = false;
    if (local_port != 0) {
        bound = bind_to(*socket_fd, local, local_port);
    } else {
        for (uint16_t p = 7001; p <= 7099 && !bound; ++p) bound = bind_to(*socket_fd, local, p);
    }
    if (!bound) {
        lib_log(3, "Failed to bind the socket\n");
        close(*socket_fd);
        return 40;
    }
    if (connect(*socket_fd, reinterpret_cast<const sockaddr *>(&remote), sizeof remote) != 0) {
        lib_log(3, "Returned error from inner \"connect\".\n");
        close(*socket_fd);
        return 33;
    }
    return 0;
}

RMCPP_API int Send_RMCP(int socket_fd, const uint8_t *buffer, uint32_t length, int flags)
{
    if (buffer == nullptr) return rmcpp::args::null_input();
    const ssize_t sent = send(socket_fd, buffer, length, flags);
    if (sent == -1) {
        lib_log(3, "Failed to send RMCP packet\n");
        return 1;
    }
    if (sent != static_cast<ssize_t>(length)) {
        lib_log(3, "Number of sent paket = %d (expected %d)\n", static_cast<int>(sent), static_cast<int>(length));
        return 1;
    }
    return 0;
}

// The wait uses poll, not select: an fd_set holds only descriptors below
// FD_SETSIZE, and a long-running host may well have more open than that.
// A datagram longer than the buffer is never handed on cut: it is consumed,
// its full size is stored through `length` and the result is 2, so callers
// can tell it from a socket error by a length above their buffer size.
RMCPP_API int Receive_RMCP(int socket_fd, uint8_t *buffer, uint32_t *length, int flags, const struct timeval *limit)
{
    // Refused with the code of a failed receive, as a closed descriptor is.
    if (rmcpp::args::any_null(buffer, length, limit)) {
        rmcpp::args::null_input();
        return 2;
    }
    if (socket_fd < 0) {
        lib_log(3, "Invalid socket descriptor = %d.\n", socket_fd);
        return 2;
    }
    struct pollfd readable = {socket_fd, POLLIN, 0};
    // ppoll leaves the caller's limit alone and, like select, carries whole
    // seconds out of the microseconds and refuses a negative limit instead
    // of waiting forever.
    const struct timespec wait = {limit->tv_sec + limit->tv_usec / 1000000,
                                  static_cast<long>(limit->tv_usec % 1000000) * 1000};
    const int ready = rmcpp::interleave::wait_readable(readable, wait);
    if (ready < 0) return 2;
    if (ready == 0) {
        lib_log(1, "Timeout, could not receive any packet.\n");
        return 1;
    }
    // A closed descriptor: select failed on it without a message.
    if (readable.revents & POLLNVAL) return 2;
    // A pending socket error made select report the descriptor readable;
    // recv then reports the error itself.
    if ((readable.revents & (POLLIN | POLLERR | POLLHUP)) == 0) {
        lib_log(3, "Unknown descripter returned from select.\n");
        return 2;
    }
    const uint32_t size = *length;
    const ssize_t n = recv(socket_fd, buffer, size, flags | MSG_TRUNC);
    if (n < 0) {
        lib_log(3, "Returned error from inner [ recv ].\n");
        return 2;
    }
    if (n == 0) {
        lib_log(1, "Could not receive packet.\n");
        return 2;
    }
    *length = static_cast<uint32_t>(n);
    return static_cast<size_t>(n) > size ? 2 : 0;
}

}  // extern "C"
