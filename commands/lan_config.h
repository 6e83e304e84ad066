// Get LAN Configuration Parameters (Transport network function): the
// parameters `lan print` shows, and the procedure that reads them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "transport.h"

namespace rmcpp::commands {

inline constexpr uint8_t kTransportNetFn = 0x0C;
inline constexpr uint8_t kSetLanConfigCmd = 0x01;
inline constexpr uint8_t kGetLanConfigCmd = 0x02;
// Completion code: the parameter is not supported.
inline constexpr uint8_t kCcLanParameterNotSupported = 0x80;

enum LanParameter : uint8_t {
    kLanSetInProgress = 0,
    kLanAuthTypeSupport = 1,
    kLanAuthTypeEnables = 2,
    kLanIpAddress = 3,
    kLanIpAddressSource = 4,
    kLanMacAddress = 5,
    kLanSubnetMask = 6,
    kLanDefaultGateway = 12,
    kLanVlanId = 20,
    kLanCipherSuiteEntrySupport = 22,
    kLanCipherSuiteEntries = 23,
    kLanCipherSuitePrivileges = 24,
};

// Channel (bits 3:0; bit 7 of the byte asks for the revision only),
// parameter, set and block selectors.
std::array<uint8_t, 4> build_get_lan_config(uint8_t channel, uint8_t parameter, uint8_t set_selector = 0,
                                            uint8_t block_selector = 0);

struct LanConfigResponse {
    uint8_t revision = 0;  // 11h
    Bytes data;
};

// At least the revision byte.
std::optional<LanConfigResponse> decode_get_lan_config(const uint8_t *data, size_t length);

using Ipv4 = std::array<uint8_t, 4>;
using Mac = std::array<uint8_t, 6>;

// Parameter data decoders: exact lengths.
std::optional<Ipv4> decode_lan_ipv4(const uint8_t *data, size_t length);  // 3, 6, 12
std::optional<Mac> decode_lan_mac(const uint8_t *data, size_t length);    // 5
std::optional<uint8_t> decode_lan_ip_source(const uint8_t *data, size_t length);  // 4: bits 3:0
// "Unspecified", "Static Address", "DHCP Address", "BIOS Assigned Address", "Other".
const char *ip_source_text(uint8_t source);

// Authentication types as bits: 0 none, 1 MD2, 2 MD5, 4 straight password,
// 5 OEM proprietary.
inline constexpr uint8_t kAuthTypeBits = 0x37;
std::optional<uint8_t> decode_lan_auth_type_support(const uint8_t *data, size_t length);  // 1: bits 5:0
// "NONE MD2 MD5 PASSWORD OEM" for the set bits, in that order, space-separated.
std::string auth_types_text(uint8_t bits);
std::vector<std::string> auth_type_names(uint8_t bits);

struct AuthTypeEnables {
    uint8_t callback = 0, user = 0, operator_ = 0, admin = 0, oem = 0;
    bool operator==(const AuthTypeEnables &) const = default;
};
std::optional<AuthTypeEnables> decode_lan_auth_type_enables(const uint8_t *data, size_t length);  // 5 bytes

struct VlanId {
    bool enabled = false;  // byte 2 bit 7
    uint16_t id = 0;       // 12 bits: byte 1, byte 2 bits 3:0
    bool operator==(const VlanId &) const = default;
};
std::optional<VlanId> decode_lan_vlan_id(const uint8_t *data, size_t length);  // 2 bytes

// Parameter 22: count of entries, bits 4:0.
std::optional<uint8_t> decode_lan_cipher_suite_entry_support(const uint8_t *data, size_t length);
// Parameter 23: a reserved byte, then up to 16 cipher suite IDs.
std::optional<std::vector<uint8_t>> decode_lan_cipher_suite_entries(const uint8_t *data, size_t length);
// Parameter 24: a reserved byte, then 8 bytes of 4-bit maximum privilege
// levels, entry 0 in bits 3:0 of the first.
std::optional<std::array<uint8_t, 16>> decode_lan_cipher_suite_privileges(const uint8_t *data, size_t length);
// 'X' unused, 'c' callback, 'u' user, 'o' operator, 'a' administrator, 'O' OEM.
char cipher_suite_privilege_letter(uint8_t level);

// A parameter as `lan print` reports it: the value, or that the BMC does
// not support it.
template <typename T>
struct LanValue {
    bool supported = false;
    std::optional<T> value;  // when supported
};

struct LanPrint {
    uint8_t channel = 0;
    LanValue<uint8_t> set_in_progress;  // bits 1:0
    LanValue<uint8_t> auth_type_support;
    LanValue<AuthTypeEnables> auth_type_enables;
    LanValue<uint8_t> ip_address_source;
    LanValue<Ipv4> ip_address;
    LanValue<Ipv4> subnet_mask;
    LanValue<Mac> mac_address;
    LanValue<Ipv4> default_gateway;
    LanValue<VlanId> vlan_id;
    LanValue<std::vector<uint8_t>> cipher_suites;       // the IDs, parameter 23
    LanValue<std::array<uint8_t, 16>> cipher_suite_privileges;
};

// Reads the parameters above. A parameter the BMC does not support
// (completion code 80h) is recorded as such; other refusals, failed
// exchanges and data that does not decode throw CommandError.
LanPrint lan_print(Transport &t, uint8_t channel);

}  // namespace rmcpp::commands
