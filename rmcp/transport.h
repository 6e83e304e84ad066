// Finding the BMC by name or literal and opening a UDP socket to it, IPv4
// or IPv6, for sessions set up with options.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

namespace rmcpp::transport {

struct Endpoint {
    sockaddr_storage address{};
    socklen_t length = 0;
};

// The addresses of `host` (a name, an IPv4 literal, or an IPv6 literal with
// or without brackets) at UDP `port`, in getaddrinfo's order. Returns 0, or
// RMCPP_ERR_RESOLVE with the reason logged.
int resolve(const char *host, uint16_t port, std::vector<Endpoint> &out);

// An IPv4 endpoint from a host-order address, as IPMI_SessionParam holds it.
Endpoint ipv4(uint32_t address, uint16_t port);

// The endpoint as text: "192.0.2.1" or "2001:db8::1".
std::string to_text(const Endpoint &e);

// A UDP socket of the endpoint's family, bound and connected to it. The
// local port is `local_port` when non-zero; otherwise the kernel's choice
// when `kernel_port` is set, else the first free of 7001..7099. Returns 0,
// RMCPP_ERR_SOCKET or RMCPP_ERR_BIND, with the reason logged.
int open_socket(const Endpoint &remote, uint16_t local_port, bool kernel_port, int &fd);

}  // namespace rmcpp::transport
