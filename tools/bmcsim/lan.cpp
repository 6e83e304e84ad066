// Get LAN Configuration Parameters for the simulator's LAN channel, and the
// platform file's lan section.
#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include <yaml-cpp/yaml.h>

#include "engine.h"
#include "platform_admin.h"

namespace bmcsim {

namespace detail {

namespace {

constexpr uint8_t kTransportNetFn = 0x0C, kGetLanConfig = 0x02;
constexpr uint8_t kOk = 0x00, kParameterNotSupported = 0x80;
constexpr uint8_t kRequestLengthInvalid = 0xC7, kInvalidDataField = 0xCC;
constexpr uint8_t kRevision = 0x11;

}  // namespace

bool Engine::lan_command(const IpmiRequest &rq, const Config &c, CommandResult &r)
{
    if (rq.netfn != kTransportNetFn || rq.cmd != kGetLanConfig) return false;
    auto answer = [&](uint8_t cc, const Bytes &data = {}) { r.response = response_to(rq, cc, data); };
    if (rq.data.size() != 4) return answer(kRequestLengthInvalid), true;
    const uint8_t channel = rq.data[0] & 0x0F;
    if (channel != (c.capabilities.channel & 0x0F) && channel != 0x0E) return answer(kInvalidDataField), true;
    if (rq.data[0] & 0x80) return answer(kOk, {kRevision}), true;  // revision only

    const LanParameters &lan = c.lan;
    Bytes d{kRevision};
    auto add = [&](const auto &bytes) { d.insert(d.end(), bytes.begin(), bytes.end()); };
    switch (rq.data[1]) {
    case 0: d.push_back(0x00); break;  // set complete
    case 1: d.push_back(lan.auth_type_support & 0x37); break;
    case 2: add(lan.auth_type_enables); break;
    case 3: {
        std::array<uint8_t, 4> ip{};
        if (lan.ip_address) ip = *lan.ip_address;
        else if (peer_.local_ip.is_v4()) {
            const uint32_t v = peer_.local_ip.v4();
            ip = {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 8),
                  static_cast<uint8_t>(v)};
        }
        add(ip);
        break;
    }
    case 4: d.push_back(lan.ip_source & 0x0F); break;
    case 5: add(lan.mac_address); break;
    case 6: add(lan.subnet_mask); break;
    case 12: add(lan.default_gateway); break;
    case 13: add(std::array<uint8_t, 6>{}); break;  // default gateway MAC address: not known
    case 14: add(std::array<uint8_t, 4>{}); break;  // no backup gateway
    case 15: add(std::array<uint8_t, 6>{}); break;
    case 20:
        d.push_back(static_cast<uint8_t>(lan.vlan_id));
        d.push_back(static_cast<uint8_t>((lan.vlan_id ? 0x80 : 0) | ((lan.vlan_id >> 8) & 0x0F)));
        break;
    case 21: d.push_back(0x00); break;  // VLAN priority 0
    case 22: d.push_back(static_cast<uint8_t>(std::min<size_t>(c.cipher_suites.size(), 16))); break;
    case 23:
        d.push_back(0x00);
        for (size_t i = 0; i < c.cipher_suites.size() && i < 16; ++i) d.push_back(static_cast<uint8_t>(c.cipher_suites[i]));
        break;
    case 24: {
        std::array<uint8_t, 16> levels{};
        for (size_t i = 0; i < c.cipher_suites.size() && i < 16; ++i) {
            levels[i] = c.channel_max_privilege & 0x0F;
            for (const auto &[suite, level] : lan.cipher_suite_privileges)
                if (suite == c.cipher_suites[i]) levels[i] = level & 0x0F;
        }
        d.push_back(0x00);
        for (size_t i = 0; i < 16; i += 2) d.push_back(static_cast<uint8_t>(levels[i] | (levels[i + 1] << 4)));
        break;
    }
    default: return answer(kParameterNotSupported), true;
    }
    answer(kOk, d);
    return true;
}

}  // namespace detail

namespace {

[[noreturn]] void bad(const YAML::Node &node, const std::string &what)
{
    throw std::runtime_error("line " + std::to_string(node.Mark().line + 1) + ": " + what);
}

std::string scalar(const YAML::Node &node, const std::string &key)
{
    if (!node.IsScalar()) bad(node, key + ": expected a value");
    return node.as<std::string>();
}

std::array<uint8_t, 4> ipv4(const YAML::Node &node, const std::string &key)
{
    const std::string text = scalar(node, key);
    unsigned a, b, c, d;
    char tail;
    if (std::sscanf(text.c_str(), "%3u.%3u.%3u.%3u%c", &a, &b, &c, &d, &tail) != 4 || a > 255 || b > 255 ||
        c > 255 || d > 255)
        bad(node, key + ": '" + text + "' is not an IPv4 address");
    return {static_cast<uint8_t>(a), static_cast<uint8_t>(b), static_cast<uint8_t>(c), static_cast<uint8_t>(d)};
}

std::array<uint8_t, 6> mac(const YAML::Node &node, const std::string &key)
{
    const std::string text = scalar(node, key);
    unsigned m[6];
    char tail;
    if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5], &tail) != 6 ||
        text.size() != 17)
        bad(node, key + ": '" + text + "' is not a MAC address (xx:xx:xx:xx:xx:xx)");
    std::array<uint8_t, 6> out{};
    for (int i = 0; i < 6; ++i) out[i] = static_cast<uint8_t>(m[i]);
    return out;
}

uint8_t auth_types(const YAML::Node &node, const std::string &key)
{
    if (!node.IsSequence()) bad(node, key + ": expected a list of none, md2, md5, password, oem");
    uint8_t bits = 0;
    for (const auto &item : node) {
        const std::string name = scalar(item, key);
        if (name == "none") bits |= 0x01;
        else if (name == "md2") bits |= 0x02;
        else if (name == "md5") bits |= 0x04;
        else if (name == "password") bits |= 0x10;
        else if (name == "oem") bits |= 0x20;
        else bad(item, key + ": unknown authentication type '" + name + "'");
    }
    return bits;
}

uint8_t privilege(const YAML::Node &node, const std::string &key)
{
    const std::string name = scalar(node, key);
    static const std::pair<const char *, uint8_t> kLevels[] = {
        {"unused", 0}, {"callback", 1}, {"user", 2}, {"operator", 3}, {"administrator", 4}, {"oem", 5}};
    for (const auto &[n, level] : kLevels)
        if (name == n) return level;
    bad(node, key + ": expected unused, callback, user, operator, administrator or oem");
}

}  // namespace

void load_lan(const YAML::Node &section, Config &config)
{
    if (!section.IsMap()) bad(section, "lan: expected a mapping");
    LanParameters lan = config.lan;
    for (const auto &item : section) {
        const std::string key = item.first.as<std::string>();
        const YAML::Node &value = item.second;
        if (key == "ip_source") {
            const std::string s = scalar(value, key);
            if (s == "static") lan.ip_source = 1;
            else if (s == "dhcp") lan.ip_source = 2;
            else if (s == "bios") lan.ip_source = 3;
            else if (s == "other") lan.ip_source = 4;
            else if (s == "unspecified") lan.ip_source = 0;
            else bad(value, "ip_source: expected static, dhcp, bios, other or unspecified");
        } else if (key == "ip_address") {
            lan.ip_address = ipv4(value, key);
        } else if (key == "subnet_mask") {
            lan.subnet_mask = ipv4(value, key);
        } else if (key == "default_gateway") {
            lan.default_gateway = ipv4(value, key);
        } else if (key == "mac_address") {
            lan.mac_address = mac(value, key);
        } else if (key == "vlan_id") {
            int id = -1;
            try {
                id = value.as<int>();
            } catch (const YAML::Exception &) {
            }
            if (id < 0 || id > 4095) bad(value, "vlan_id: expected 0 (disabled) to 4095");
            lan.vlan_id = static_cast<uint16_t>(id);
        } else if (key == "auth_type_support") {
            lan.auth_type_support = auth_types(value, key);
        } else if (key == "auth_type_enables") {
            if (!value.IsMap()) bad(value, "auth_type_enables: expected callback, user, operator, admin, oem");
            static const char *kLevels[] = {"callback", "user", "operator", "admin", "oem"};
            for (const auto &level : value) {
                const std::string name = level.first.as<std::string>();
                size_t i = 0;
                while (i < 5 && name != kLevels[i]) ++i;
                if (i == 5) bad(level.first, "auth_type_enables: unknown level '" + name + "'");
                lan.auth_type_enables[i] = auth_types(level.second, "auth_type_enables." + name);
            }
        } else if (key == "cipher_suite_privileges") {
            if (!value.IsMap()) bad(value, "cipher_suite_privileges: expected suite: privilege pairs");
            lan.cipher_suite_privileges.clear();
            for (const auto &entry : value) {
                int suite = -1;
                try {
                    suite = entry.first.as<int>();
                } catch (const YAML::Exception &) {
                }
                if (suite < 0 || suite > 255) bad(entry.first, "cipher_suite_privileges: expected a suite number");
                lan.cipher_suite_privileges.emplace_back(suite, privilege(entry.second, "cipher suite " + std::to_string(suite)));
            }
        } else {
            bad(item.first, "lan: unknown key '" + key + "'");
        }
    }
    config.lan = lan;
}

}  // namespace bmcsim
