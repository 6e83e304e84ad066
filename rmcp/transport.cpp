#include "transport.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstring>

#include "rmcpp.h"

namespace rmcpp::transport {

namespace {

// "[::1]" is how URLs and ipmitool users write an IPv6 literal.
std::string strip_brackets(const char *host)
{
    std::string h(host);
    if (h.size() >= 2 && h.front() == '[' && h.back() == ']') return h.substr(1, h.size() - 2);
    return h;
}

void set_port(sockaddr_storage &a, uint16_t port)
{
    if (a.ss_family == AF_INET6)
        reinterpret_cast<sockaddr_in6 &>(a).sin6_port = htons(port);
    else
        reinterpret_cast<sockaddr_in &>(a).sin_port = htons(port);
}

// A BMC reached over IPv4 loopback at 127.0.0.1 is answered from there, as
// init_socket binds it; everything else binds the wildcard of its family.
Endpoint local_for(const Endpoint &remote)
{
    Endpoint local;
    local.address.ss_family = remote.address.ss_family;
    if (remote.address.ss_family == AF_INET6) {
        auto &a = reinterpret_cast<sockaddr_in6 &>(local.address);
        a.sin6_addr = in6addr_any;
        local.length = sizeof(sockaddr_in6);
    } else {
        auto &a = reinterpret_cast<sockaddr_in &>(local.address);
        const auto &r = reinterpret_cast<const sockaddr_in &>(remote.address);
        a.sin_addr.s_addr = r.sin_addr.s_addr == htonl(INADDR_LOOPBACK) ? r.sin_addr.s_addr : htonl(INADDR_ANY);
        local.length = sizeof(sockaddr_in);
    }
    return local;
}

bool bind_to(int fd, Endpoint local, uint16_t port)
{
    set_port(local.address, port);
    return bind(fd, reinterpret_cast<const sockaddr *>(&local.address), local.length) == 0;
}

}  // namespace

int resolve(const char *host, uint16_t port, std::vector<Endpoint> &out)
{
    out.clear();
    const std::string name = strip_brackets(host);
    // A literal address is its own answer; getaddrinfo would give the same
    // one entry, after asking the kernel which address families are set up.
    Endpoint literal;
    auto &v4 = reinterpret_cast<sockaddr_in &>(literal.address);
    auto &v6 = reinterpret_cast<sockaddr_in6 &>(literal.address);
    if (inet_pton(AF_INET, name.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        literal.length = sizeof(sockaddr_in);
    } else if (inet_pton(AF_INET6, name.c_str(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        literal.length = sizeof(sockaddr_in6);
    }
    if (literal.length != 0) {
        set_port(literal.address, port);
        out.push_back(literal);
        return 0;
    }
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_protocol = IPPROTO_UDP;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo *list = nullptr;
    int r = getaddrinfo(name.c_str(), nullptr, &hints, &list);
    // AI_ADDRCONFIG hides loopback-only families (a host with only ::1 and
    // 127.0.0.1 configured); ask again without it before giving up.
    if (r != 0) {
        hints.ai_flags = 0;
        r = getaddrinfo(name.c_str(), nullptr, &hints, &list);
    }
    if (r != 0) {
        lib_log(3, "Could not resolve host %s: %s.\n", name.c_str(), gai_strerror(r));
        return RMCPP_ERR_RESOLVE;
    }
    for (const addrinfo *a = list; a != nullptr; a = a->ai_next) {
        if ((a->ai_family != AF_INET && a->ai_family != AF_INET6) || a->ai_addrlen > sizeof(sockaddr_storage))
            continue;
        Endpoint e;
        std::memcpy(&e.address, a->ai_addr, a->ai_addrlen);
        e.length = a->ai_addrlen;
        set_port(e.address, port);
        out.push_back(e);
    }
    freeaddrinfo(list);
    if (out.empty()) {
        lib_log(3, "Host %s has no IPv4 or IPv6 address.\n", name.c_str());
        return RMCPP_ERR_RESOLVE;
    }
    return 0;
}

Endpoint ipv4(uint32_t address, uint16_t port)
{
    Endpoint e;
    auto &a = reinterpret_cast<sockaddr_in &>(e.address);
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(address);
    a.sin_port = htons(port);
    e.length = sizeof(sockaddr_in);
    return e;
}

std::string to_text(const Endpoint &e)
{
    char text[INET6_ADDRSTRLEN] = "?";
    if (e.address.ss_family == AF_INET6)
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6 &>(e.address).sin6_addr, text, sizeof text);
    else
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in &>(e.address).sin_addr, text, sizeof text);
    return text;
}

int open_socket(const Endpoint &remote, uint16_t local_port, bool kernel_port, int &fd)
{
    fd = socket(remote.address.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (fd < 0) {
        lib_log(3, "Failed to make socket\n");
        return RMCPP_ERR_SOCKET;
    }
    const Endpoint local = local_for(remote);
    bool bound = false;
    if (local_port != 0)
        bound = bind_to(fd, local, local_port);
    else if (kernel_port)
        bound = bind_to(fd, local, 0);
    else
        for (uint16_t p = 7001; p <= 7099 && !bound; ++p) bound = bind_to(fd, local, p);
    if (!bound) {
        lib_log(3, "Failed to bind the socket\n");
        close(fd);
        fd = -1;
        return RMCPP_ERR_BIND;
    }
    if (connect(fd, reinterpret_cast<const sockaddr *>(&remote.address), remote.length) != 0) {
        lib_log(3, "Returned error from inner \"connect\".\n");
        close(fd);
        fd = -1;
        return RMCPP_ERR_SOCKET;
    }
    return 0;
}

}  // namespace rmcpp::transport
