// Records the IPv4 addresses the library binds: connect() rewrites what
// getsockname reports, so the binding itself is observed. A program that
// includes this header replaces bind() for itself and for the library.
#pragma once

#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <vector>

inline std::vector<sockaddr_in> &bind_calls()
{
    static std::vector<sockaddr_in> calls;
    return calls;
}

extern "C" int bind(int fd, const sockaddr *address, socklen_t length)
{
    using Bind = int (*)(int, const sockaddr *, socklen_t);
    static const Bind real = reinterpret_cast<Bind>(dlsym(RTLD_NEXT, "bind"));
    if (address->sa_family == AF_INET) bind_calls().push_back(*reinterpret_cast<const sockaddr_in *>(address));
    return real(fd, address, length);
}
