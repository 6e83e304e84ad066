#include "options_input.h"

#include <cstring>

namespace rmcpp::options {

namespace {

constexpr uint32_t kKnownFlags = RMCPP_OPT_NO_PING | RMCPP_OPT_KERNEL_PORT | RMCPP_OPT_STRICT_PEER;

}  // namespace

int refuse(const char *message)
{
    lib_log(3, "%s", message);
    return RMCPP_ERR_INVALID;
}

// Members beyond the caller's size count as zero, and a newer caller's
// members this library does not know must be zero, or the record is refused
// rather than half obeyed.
int read(const RMCPP_SessionOptions *given, RMCPP_SessionOptions &out)
{
    std::memset(&out, 0, sizeof out);
    if (given == nullptr || given->size == 0) return 0;
    const uint32_t size = given->size;
    if (size < sizeof out.size) return refuse("Invalid size of session options.\n");
    std::memcpy(&out, given, size < sizeof out ? size : sizeof out);
    const auto *bytes = reinterpret_cast<const uint8_t *>(given);
    for (uint32_t i = sizeof out; i < size; ++i)
        if (bytes[i] != 0) return refuse("Unknown member set in session options.\n");
    out.size = sizeof out;
    if ((out.flags & ~kKnownFlags) != 0) return refuse("Unknown flag in session options.\n");
    if (out.key_mode > RMCPP_KEYS_STANDARD) return refuse("Invalid key mode in session options.\n");
    if (out.random_source > RMCPP_RANDOM_KERNEL) return refuse("Invalid random source in session options.\n");
    if (out.host != nullptr && out.host[0] == '\0') return refuse("Empty host name.\n");
    return 0;
}

int endpoints(const IPMI_SessionParam &param, const RMCPP_SessionOptions &o, uint32_t port,
              std::vector<transport::Endpoint> &out)
{
    const uint16_t p = o.port != 0 ? o.port : static_cast<uint16_t>(port);
    if (o.host != nullptr) return transport::resolve(o.host, p, out);
    out.assign(1, transport::ipv4(param.bmc_address, p));
    return 0;
}

bool worth_next_address(int r)
{
    return r == RMCPP_ERR_SOCKET || r == RMCPP_ERR_BIND || r == RMCPP_ERR_PING || r == RMCPP_ERR_RETRY_OVER ||
           r == RMCPP_ERR_TIMEOUT || r == RMCPP_ERR_RECEIVE;
}

}  // namespace rmcpp::options
