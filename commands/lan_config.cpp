#include "lan_config.h"

#include "wire.h"

namespace rmcpp::commands {

using rmcpp::wire::Reader;

std::array<uint8_t, 4> build_get_lan_config(uint8_t channel, uint8_t parameter, uint8_t set_selector,
                                            uint8_t block_selector)
{
    return {static_cast<uint8_t>(channel & 0x0F), parameter, set_selector, block_selector};
}

std::optional<LanConfigResponse> decode_get_lan_config(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    LanConfigResponse resp;
    resp.revision = r.u8();
    if (!r.ok()) return std::nullopt;
    resp.data.resize(r.remaining());
    r.bytes(resp.data.data(), resp.data.size());
    if (!r.ok()) return std::nullopt;
    return resp;
}

namespace {

template <size_t N>
std::optional<std::array<uint8_t, N>> exact(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    std::array<uint8_t, N> out{};
    r.bytes(out.data(), out.size());
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    return out;
}

}  // namespace

std::optional<Ipv4> decode_lan_ipv4(const uint8_t *data, size_t length) { return exact<4>(data, length); }

std::optional<Mac> decode_lan_mac(const uint8_t *data, size_t length) { return exact<6>(data, length); }

std::optional<uint8_t> decode_lan_ip_source(const uint8_t *data, size_t length)
{
    auto b = exact<1>(data, length);
    if (!b) return std::nullopt;
    return (*b)[0] & 0x0F;
}

const char *ip_source_text(uint8_t source)
{
    switch (source) {
    case 0: return "Unspecified";
    case 1: return "Static Address";
    case 2: return "DHCP Address";
    case 3: return "BIOS Assigned Address";
    default: return "Other";
    }
}

std::optional<uint8_t> decode_lan_auth_type_support(const uint8_t *data, size_t length)
{
    auto b = exact<1>(data, length);
    if (!b) return std::nullopt;
    return (*b)[0] & 0x3F;
}

std::vector<std::string> auth_type_names(uint8_t bits)
{
    std::vector<std::string> names;
    if (bits & 0x01) names.push_back("NONE");
    if (bits & 0x02) names.push_back("MD2");
    if (bits & 0x04) names.push_back("MD5");
    if (bits & 0x10) names.push_back("PASSWORD");
    if (bits & 0x20) names.push_back("OEM");
    return names;
}

std::string auth_types_text(uint8_t bits)
{
    std::string text;
    for (const auto &n : auth_type_names(bits)) {
        if (!text.empty()) text += ' ';
        text += n;
    }
    return text;
}

std::optional<AuthTypeEnables> decode_lan_auth_type_enables(const uint8_t *data, size_t length)
{
    auto b = exact<5>(data, length);
    if (!b) return std::nullopt;
    AuthTypeEnables e;
    e.callback = (*b)[0] & 0x3F;
    e.user = (*b)[1] & 0x3F;
    e.operator_ = (*b)[2] & 0x3F;
    e.admin = (*b)[3] & 0x3F;
    e.oem = (*b)[4] & 0x3F;
    return e;
}

std::optional<VlanId> decode_lan_vlan_id(const uint8_t *data, size_t length)
{
    auto b = exact<2>(data, length);
    if (!b) return std::nullopt;
    VlanId v;
    v.enabled = ((*b)[1] & 0x80) != 0;
    v.id = static_cast<uint16_t>((*b)[0] | (((*b)[1] & 0x0F) << 8));
    return v;
}

std::optional<uint8_t> decode_lan_cipher_suite_entry_support(const uint8_t *data, size_t length)
{
    auto b = exact<1>(data, length);
    if (!b) return std::nullopt;
    return (*b)[0] & 0x1F;
}

std::optional<std::vector<uint8_t>> decode_lan_cipher_suite_entries(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    r.u8();  // reserved
    if (!r.ok() || r.remaining() > 16) return std::nullopt;
    std::vector<uint8_t> ids(r.remaining());
    r.bytes(ids.data(), ids.size());
    if (!r.ok()) return std::nullopt;
    return ids;
}

std::optional<std::array<uint8_t, 16>> decode_lan_cipher_suite_privileges(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    r.u8();  // reserved
    std::array<uint8_t, 16> levels{};
    for (size_t i = 0; i < 8; ++i) {
        const uint8_t b = r.u8();
        levels[2 * i] = b & 0x0F;
        levels[2 * i + 1] = b >> 4;
    }
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    return levels;
}

char cipher_suite_privilege_letter(uint8_t level)
{
    switch (level) {
    case 1: return 'c';
    case 2: return 'u';
    case 3: return 'o';
    case 4: return 'a';
    case 5: return 'O';
    default: return 'X';
    }
}

namespace {

const char *kStep = "Get LAN Configuration Parameters";

// The parameter's data, or nothing when the BMC does not support it.
std::optional<Bytes> get_parameter(Transport &t, uint8_t channel, uint8_t parameter)
{
    const auto rq = build_get_lan_config(channel, parameter);
    Bytes data;
    try {
        data = call(t, kStep, kTransportNetFn, kGetLanConfigCmd, Bytes(rq.begin(), rq.end()));
    } catch (const CommandError &e) {
        if (e.kind == CommandError::Kind::completion_code && e.completion_code == kCcLanParameterNotSupported)
            return std::nullopt;
        throw;
    }
    auto resp = decode_get_lan_config(data.data(), data.size());
    if (!resp)
        throw CommandError(CommandError::Kind::malformed, kStep, 0, 0,
                           std::string(kStep) + ": empty response for parameter " + std::to_string(parameter));
    return std::move(resp->data);
}

template <typename T, typename Decode>
LanValue<T> read(Transport &t, uint8_t channel, uint8_t parameter, Decode decode)
{
    LanValue<T> v;
    auto data = get_parameter(t, channel, parameter);
    if (!data) return v;
    v.supported = true;
    auto value = decode(data->data(), data->size());
    if (!value)
        throw CommandError(CommandError::Kind::malformed, kStep, 0, 0,
                           std::string(kStep) + ": parameter " + std::to_string(parameter) + " has " +
                               std::to_string(data->size()) + " bytes of data that do not decode");
    v.value = std::move(*value);
    return v;
}

std::optional<uint8_t> decode_set_in_progress_byte(const uint8_t *data, size_t length)
{
    auto b = exact<1>(data, length);
    if (!b) return std::nullopt;
    return (*b)[0] & 0x03;
}

}  // namespace

LanPrint lan_print(Transport &t, uint8_t channel)
{
    LanPrint p;
    p.channel = channel;
    p.set_in_progress = read<uint8_t>(t, channel, kLanSetInProgress, decode_set_in_progress_byte);
    p.auth_type_support = read<uint8_t>(t, channel, kLanAuthTypeSupport, decode_lan_auth_type_support);
    p.auth_type_enables = read<AuthTypeEnables>(t, channel, kLanAuthTypeEnables, decode_lan_auth_type_enables);
    p.ip_address_source = read<uint8_t>(t, channel, kLanIpAddressSource, decode_lan_ip_source);
    p.ip_address = read<Ipv4>(t, channel, kLanIpAddress, decode_lan_ipv4);
    p.subnet_mask = read<Ipv4>(t, channel, kLanSubnetMask, decode_lan_ipv4);
    p.mac_address = read<Mac>(t, channel, kLanMacAddress, decode_lan_mac);
    p.default_gateway = read<Ipv4>(t, channel, kLanDefaultGateway, decode_lan_ipv4);
    p.vlan_id = read<VlanId>(t, channel, kLanVlanId, decode_lan_vlan_id);
    p.cipher_suites =
        read<std::vector<uint8_t>>(t, channel, kLanCipherSuiteEntries, decode_lan_cipher_suite_entries);
    // Parameter 23 may carry more bytes than there are entries; parameter
    // 22 says how many count.
    if (p.cipher_suites.value) {
        auto count = read<uint8_t>(t, channel, kLanCipherSuiteEntrySupport, decode_lan_cipher_suite_entry_support);
        if (count.value && *count.value < p.cipher_suites.value->size()) p.cipher_suites.value->resize(*count.value);
    }
    p.cipher_suite_privileges =
        read<std::array<uint8_t, 16>>(t, channel, kLanCipherSuitePrivileges, decode_lan_cipher_suite_privileges);
    return p;
}

}  // namespace rmcpp::commands
