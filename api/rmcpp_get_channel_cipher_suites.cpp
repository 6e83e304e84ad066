// Get Channel Cipher Suites before any session: find the BMC as session
// setup with options does, open a socket, ping unless told not to, and ask.
#include <unistd.h>

#include <cstddef>
#include <vector>

#include "GetChannelCipherSuites.h"
#include "options_input.h"
#include "rmcpp.h"
#include "transport.h"

namespace {

using rmcpp::options::refuse;
using rmcpp::transport::Endpoint;

// The members of the session record this call uses, checked with the same
// words as session setup checks them.
int check_param(const IPMI_SessionParam &param, uint32_t &port)
{
    switch (param.port_option) {
    case 0: port = 623; break;
    case 1: port = 664; break;
    default: return refuse("Invalid port option.\n");
    }
    if (param.slave_address & 1) return refuse("Invalid Slave Address connected to.\n");
    if (param.lun > 3) return refuse("Invalid LUN connected to.\n");
    if (param.retry_count == 0) return refuse("Invalid retry number = 0.\n");
    if (param.timeout_sec == 0) return refuse("Invalid timeout = 0.\n");
    return 0;
}

int ask(const Endpoint &endpoint, const IPMI_SessionParam &param, const RMCPP_SessionOptions &o, uint8_t channel,
        RMCPP_ChannelCipherSuites &out)
{
    int fd = -1;
    int r = rmcpp::transport::open_socket(endpoint, param.local_port, (o.flags & RMCPP_OPT_KERNEL_PORT) != 0, fd);
    if (r != 0) return r;
    const struct timeval ping_limit = {param.timeout_sec, 0};
    if ((o.flags & RMCPP_OPT_NO_PING) == 0 && RMCP_PingPong(fd, param.retry_count, &ping_limit) != 0) {
        lib_log(3, "Failed to ping-pong.\n");
        r = RMCPP_ERR_PING;
    } else {
        r = rmcpp::ciphers::get_channel_cipher_suites(fd, param, channel, (o.flags & RMCPP_OPT_STRICT_PEER) != 0,
                                                      out);
    }
    close(fd);
    return r;
}

}  // namespace

extern "C" {

RMCPP_API int rmcpp_get_channel_cipher_suites(const IPMI_SessionParam *param, const RMCPP_SessionOptions *options,
                                              uint8_t channel, RMCPP_ChannelCipherSuites *out)
{
    if (param == nullptr || out == nullptr) return refuse("Null input data.\n");
    RMCPP_SessionOptions o;
    int r = rmcpp::options::read(options, o);
    if (r != 0) return r;
    uint32_t port = 0;
    r = check_param(*param, port);
    if (r != 0) return r;
    if (channel > 0x0F) return refuse("Invalid channel number.\n");
    if (rmcpp::ciphers::capacity(*out) < 0) {
        lib_log(3, "Insufficient buffer size.\n");
        return RMCPP_ERR_BUFFER;
    }

    std::vector<Endpoint> endpoints;
    r = rmcpp::options::endpoints(*param, o, port, endpoints);
    if (r != 0) return r;

    out->count = 0;
    for (size_t i = 0; i < endpoints.size(); ++i) {
        r = ask(endpoints[i], *param, o, channel, *out);
        if (r == 0 || i + 1 == endpoints.size() || !rmcpp::options::worth_next_address(r)) break;
        lib_log(1, "No answer from %s; trying the next address.\n", rmcpp::transport::to_text(endpoints[i]).c_str());
    }
    if (r != 0) lib_log(3, "Failed to get the channel's cipher suites.\n");
    return r;
}

}  // extern "C"
