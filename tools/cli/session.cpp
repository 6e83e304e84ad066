#include "session.h"

#include <algorithm>
#include <cstring>

namespace cli {

using rmcpp::commands::Bytes;

const char *const kStandardKeysHint =
    "; the session was set up but its first message got no answer: the BMC probably keys the integrity code "
    "the standard way (K1); try --standard-keys";

RMCPP_SessionOptions session_options(const Options &o)
{
    RMCPP_SessionOptions so{};
    so.size = sizeof so;
    if (o.no_ping) so.flags |= RMCPP_OPT_NO_PING;
    if (!o.port_range) so.flags |= RMCPP_OPT_KERNEL_PORT;
    if (!o.lenient) so.flags |= RMCPP_OPT_STRICT_PEER;
    so.host = o.host.c_str();
    so.port = o.port;
    so.key_mode = o.standard_keys ? RMCPP_KEYS_STANDARD : RMCPP_KEYS_LIBRARY;
    so.random_source = o.library_random ? RMCPP_RANDOM_LIBRARY : RMCPP_RANDOM_KERNEL;
    return so;
}

void fill_param(const Options &o, int suite, IPMI_SessionParam &p)
{
    std::memset(&p, 0, sizeof p);
    p.port_option = o.port == 664 ? 1 : 0;
    p.user_name = o.user.c_str();
    p.user_password = o.password ? o.password->c_str() : nullptr;
    p.privilege_level = o.privilege;
    p.cipher_suite_id = suite;
    p.user_lookup_option = o.name_only ? 1 : 0;
    p.two_key_login_option = o.kg ? 1 : 0;
    p.server_key = o.kg ? o.kg->c_str() : nullptr;
    p.slave_address = o.target;
    p.lun = o.lun;
    p.local_port = 0;
    p.retry_count = static_cast<uint16_t>(o.attempts);
    p.timeout_sec = static_cast<uint16_t>(o.timeout);
}

bool unreachable(int code)
{
    return code == RMCPP_ERR_RESOLVE || code == RMCPP_ERR_PING || code == RMCPP_ERR_SOCKET ||
           code == RMCPP_ERR_BIND;
}

int choose_suite(const Options &o, int &suite)
{
    suite = 3;
    if (o.cipher_suite) {
        suite = *o.cipher_suite;
        return 0;
    }
    IPMI_SessionParam p;
    fill_param(o, 3, p);
    const RMCPP_SessionOptions so = session_options(o);
    RMCPP_ChannelCipherSuites list{};
    list.size = sizeof list;
    const int r = rmcpp_get_channel_cipher_suites(&p, &so, 0x0E, &list);
    if (unreachable(r)) return r;
    // A list longer than the record holds still counts the suites that fit.
    if (r != 0 && !(r == RMCPP_ERR_BUFFER && list.count > 0)) return 0;
    const uint32_t count = std::min<uint32_t>(list.count, RMCPP_MAX_CIPHER_SUITES);
    bool offers_17 = false;
    for (uint32_t i = 0; i < count; ++i) offers_17 = offers_17 || list.suites[i].id == 17;
    if (offers_17) suite = 17;
    return 0;
}

Session::~Session()
{
    if (open_) IPMI_CloseSession(&p_);
}

int Session::open()
{
    int r = choose_suite(o_, suite_);
    if (r != 0) return r;
    fill_param(o_, suite_, p_);
    const RMCPP_SessionOptions so = session_options(o_);
    r = rmcpp_setup_session(&p_, &so);
    open_ = r == 0;
    return r;
}

int Session::exchange(uint8_t netfn, uint8_t cmd, const Bytes &data, uint8_t &cc, Bytes &response)
{
    return exchange_to(o_.lun, netfn, cmd, data, cc, response);
}

rmcpp::commands::Reply Session::exchange_lun(uint8_t lun, uint8_t netfn, uint8_t cmd, const Bytes &data)
{
    rmcpp::commands::Reply reply;
    reply.result = exchange_to(lun, netfn, cmd, data, reply.completion_code, reply.data);
    return reply;
}

int Session::exchange_to(uint8_t lun, uint8_t netfn, uint8_t cmd, const Bytes &data, uint8_t &cc, Bytes &response)
{
    const IPMI_MsgHeader h = {netfn, 0x81, cmd, 0, static_cast<uint8_t>(seq_++ & 0x3F),
                              static_cast<uint8_t>(netfn + 1), o_.target, static_cast<uint8_t>(lun & 0x03)};
    Bytes request(data.size() + 7);
    int length = 0;
    int r = MakeIPMIRequest(&h, data.data(), static_cast<int>(data.size()), request.data(),
                            static_cast<int>(request.size()), &length);
    if (r != 0) return r;
    uint8_t buffer[1024];
    uint32_t received = 0, released = 0;
    r = IPMI_Message_IF(&p_, request.data(), static_cast<uint32_t>(length), buffer, sizeof buffer, &received, 0,
                        &released, o_.attempts, o_.timeout);
    if (released) open_ = false;
    if (r != 0) return r;
    answered_ = true;
    if (received < 8) return RMCPP_ERR_HEADER;
    cc = buffer[6];
    response.assign(buffer + 7, buffer + received - 1);
    return 0;
}

rmcpp::commands::Reply Session::exchange(uint8_t netfn, uint8_t cmd, const Bytes &data)
{
    constexpr uint8_t kInsufficientPrivilege = 0xD4;
    rmcpp::commands::Reply reply;
    reply.result = exchange(netfn, cmd, data, reply.completion_code, reply.data);
    if (reply.result == 0 && reply.completion_code == kInsufficientPrivilege && !raised_ && raise_privilege())
        reply.result = exchange(netfn, cmd, data, reply.completion_code, reply.data);
    return reply;
}

bool Session::raise_privilege()
{
    constexpr uint8_t kUser = 2, kNetFnApp = 0x06, kSetSessionPrivilegeLevel = 0x3B;
    raised_ = true;
    const int level = o_.privilege != 0 ? o_.privilege : static_cast<int>(p_.granted_privilege);
    if (level <= kUser) return false;
    uint8_t cc = 0;
    Bytes data;
    return exchange(kNetFnApp, kSetSessionPrivilegeLevel, {static_cast<uint8_t>(level)}, cc, data) == 0 && cc == 0;
}

int Session::close()
{
    if (!open_) return 0;
    open_ = false;
    const int r = IPMI_CloseSession(&p_);
    if (r == 0) answered_ = true;
    return r;
}

std::string Session::hint(int code) const
{
    const bool no_answer = code == RMCPP_ERR_RETRY_OVER || code == RMCPP_ERR_TIMEOUT;
    if (no_answer && !answered_ && (suite_ == 2 || suite_ == 3) && !o_.standard_keys) return kStandardKeysHint;
    return "";
}

}  // namespace cli
