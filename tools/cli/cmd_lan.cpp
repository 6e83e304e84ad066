// lan print [CHANNEL]
#include <cstdio>
#include <memory>

#include "lan_config.h"
#include "options.h"
#include "runner.h"
#include "user_access.h"

namespace cli {

namespace {

using namespace rmcpp::commands;

constexpr const char *kNotAvailable = "Not Available";

std::string ipv4_text(const Ipv4 &ip)
{
    char s[16];
    std::snprintf(s, sizeof s, "%u.%u.%u.%u", ip[0], ip[1], ip[2], ip[3]);
    return s;
}

std::string mac_text(const Mac &m)
{
    char s[18];
    std::snprintf(s, sizeof s, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    return s;
}

// A parameter's text and JSON value; "Not Available" / null when the BMC
// does not support it.
template <typename T, typename Text, typename Json>
void field(std::string &t, nlohmann::json &j, const char *label, const char *key, const LanValue<T> &v, Text text,
           Json json)
{
    char head[40];
    std::snprintf(head, sizeof head, "%-24s: ", label);
    t += head;
    if (v.value) {
        t += text(*v.value) + "\n";
        j[key] = json(*v.value);
    } else {
        t += std::string(kNotAvailable) + "\n";
        j[key] = nullptr;
    }
}

std::string set_in_progress_words(uint8_t s)
{
    switch (s) {
    case 0: return "Set Complete";
    case 1: return "Set In Progress";
    case 2: return "Commit Write";
    default: return "Reserved";
    }
}

Printed print_lan(const LanPrint &p)
{
    std::string t;
    nlohmann::json j = {{"channel", p.channel}};

    field(t, j, "Set in Progress", "set_in_progress", p.set_in_progress, set_in_progress_words, set_in_progress_words);
    field(
        t, j, "Auth Type Support", "auth_type_support", p.auth_type_support,
        [](uint8_t b) { return auth_types_text(b); }, [](uint8_t b) { return auth_type_names(b); });
    if (p.auth_type_enables.value) {
        const AuthTypeEnables &e = *p.auth_type_enables.value;
        const std::pair<const char *, uint8_t> levels[] = {
            {"Callback", e.callback}, {"User", e.user}, {"Operator", e.operator_}, {"Admin", e.admin}, {"OEM", e.oem}};
        bool first = true;
        for (const auto &[name, bits] : levels) {
            char row[80];
            std::snprintf(row, sizeof row, "%-24s: %-9s: ", first ? "Auth Type Enable" : "", name);
            std::string line = row + auth_types_text(bits);
            while (!line.empty() && line.back() == ' ') line.pop_back();
            t += line + "\n";
            first = false;
        }
        j["auth_type_enables"] = {{"callback", auth_type_names(e.callback)},
                                  {"user", auth_type_names(e.user)},
                                  {"operator", auth_type_names(e.operator_)},
                                  {"admin", auth_type_names(e.admin)},
                                  {"oem", auth_type_names(e.oem)}};
    } else {
        field(t, j, "Auth Type Enable", "auth_type_enables", p.auth_type_enables, [](auto) { return std::string(); },
              [](auto) { return nlohmann::json(); });
    }
    field(
        t, j, "IP Address Source", "ip_address_source", p.ip_address_source,
        [](uint8_t s) { return std::string(ip_source_text(s)); }, [](uint8_t s) { return ip_source_text(s); });
    field(t, j, "IP Address", "ip_address", p.ip_address, ipv4_text, ipv4_text);
    field(t, j, "Subnet Mask", "subnet_mask", p.subnet_mask, ipv4_text, ipv4_text);
    field(t, j, "MAC Address", "mac_address", p.mac_address, mac_text, mac_text);
    field(t, j, "Default Gateway IP", "default_gateway_ip", p.default_gateway, ipv4_text, ipv4_text);
    field(
        t, j, "802.1q VLAN ID", "vlan_id", p.vlan_id,
        [](const VlanId &v) { return v.enabled ? std::to_string(v.id) : std::string("Disabled"); },
        [](const VlanId &v) { return v.enabled ? nlohmann::json(v.id) : nlohmann::json(nullptr); });
    field(
        t, j, "RMCP+ Cipher Suites", "cipher_suites", p.cipher_suites,
        [](const std::vector<uint8_t> &ids) {
            std::string s;
            for (uint8_t id : ids) s += (s.empty() ? "" : ",") + std::to_string(id);
            return s;
        },
        [](const std::vector<uint8_t> &ids) { return ids; });
    field(
        t, j, "Cipher Suite Priv Max", "cipher_suite_privileges", p.cipher_suite_privileges,
        [](const std::array<uint8_t, 16> &levels) {
            std::string s;
            for (uint8_t l : levels) s += cipher_suite_privilege_letter(l);
            s += "\n                        :     X=Cipher Suite Unused";
            s += "\n                        :     c=CALLBACK";
            s += "\n                        :     u=USER";
            s += "\n                        :     o=OPERATOR";
            s += "\n                        :     a=ADMIN";
            s += "\n                        :     O=OEM";
            return s;
        },
        [&p](const std::array<uint8_t, 16> &levels) {
            // By entry, with the suite ID when parameter 23 gave one.
            nlohmann::json a = nlohmann::json::array();
            const auto &ids = p.cipher_suites.value;
            for (size_t i = 0; i < levels.size(); ++i) {
                if (levels[i] == 0) continue;
                nlohmann::json e = {{"entry", i}, {"max_privilege", privilege_limit_text(levels[i])}};
                e["cipher_suite"] = ids && i < ids->size() ? nlohmann::json((*ids)[i]) : nlohmann::json(nullptr);
                a.push_back(e);
            }
            return a;
        });
    return {t, j};
}

}  // namespace

void add_lan_commands(CLI::App &app, Runner &runner)
{
    CLI::App *lan = app.add_subcommand("lan", "LAN configuration");
    lan->require_subcommand(1);
    add_channel_subcommand(*lan, "print", "show the LAN configuration of CHANNEL (default 1)",
                           "channel number, 0 to 15", 1, runner, "lan print",
                           [](Transport &t, uint8_t channel) { return print_lan(lan_print(t, channel)); });
}

}  // namespace cli
