// The address lists --address takes: single addresses, IPv4 ranges given by
// their ends, and hostranges with numeric brackets.
#include <arpa/inet.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "hostrange.h"

namespace bmcsim {

namespace {

[[noreturn]] void refuse(const std::string &what) { throw std::invalid_argument(what); }

// Commas inside brackets belong to the bracket ("127.0.19.[1-3,7]").
std::vector<std::string> items_of(const std::string &list)
{
    std::vector<std::string> items;
    std::string cur;
    int depth = 0;
    for (char ch : list) {
        if (ch == '[') ++depth;
        if (ch == ']' && depth > 0) --depth;
        if (ch == ',' && depth == 0) {
            items.push_back(cur);
            cur.clear();
        } else {
            cur += ch;
        }
    }
    items.push_back(cur);
    return items;
}

bool ipv4_of(const std::string &text, uint32_t &ip)
{
    in_addr a{};
    if (::inet_pton(AF_INET, text.c_str(), &a) != 1) return false;
    ip = ntohl(a.s_addr);
    return true;
}

std::string ipv4_text(uint32_t ip)
{
    return std::to_string(ip >> 24) + "." + std::to_string((ip >> 16) & 0xFF) + "." + std::to_string((ip >> 8) & 0xFF) +
           "." + std::to_string(ip & 0xFF);
}

void add(std::vector<std::string> &out, std::string address)
{
    if (out.size() >= kMaxAddresses)
        refuse("more than " + std::to_string(kMaxAddresses) + " addresses in one simulator");
    out.push_back(std::move(address));
}

// "127.1.0.1-127.1.39.16": every IPv4 address from the first to the last.
void ipv4_range(const std::string &item, size_t dash, std::vector<std::string> &out)
{
    uint32_t first = 0, last = 0;
    const std::string a = item.substr(0, dash), b = item.substr(dash + 1);
    if (!ipv4_of(a, first) || !ipv4_of(b, last))
        refuse("'" + item + "' is not a range of IPv4 addresses (FIRST-LAST, e.g. 127.1.0.1-127.1.39.16)");
    if (last < first) refuse("range '" + item + "' ends before it starts");
    if (last - first >= kMaxAddresses)
        refuse("range '" + item + "' holds more than " + std::to_string(kMaxAddresses) + " addresses");
    for (uint64_t ip = first; ip <= last; ++ip) add(out, ipv4_text(static_cast<uint32_t>(ip)));
}

}  // namespace

std::vector<std::string> expand_addresses(const std::string &list)
{
    std::vector<std::string> out;
    for (const std::string &item : items_of(list)) {
        if (item.empty()) refuse("empty address in '" + list + "'");
        if (item.find(':') != std::string::npos) {
            // IPv6, with or without brackets: taken as written.
            add(out, item);
            continue;
        }
        if (item.find(']') != std::string::npos && item.find('[') == std::string::npos)
            refuse("']' without '[' in '" + item + "'");
        if (item.find('[') != std::string::npos) {
            // The tool's hostranges, so both programs read a range alike.
            try {
                for (auto &a : rmcpp::commands::expand_hosts(item)) add(out, std::move(a));
            } catch (const rmcpp::commands::HostrangeError &e) {
                refuse(e.what());
            }
            continue;
        }
        const size_t dash = item.find('-');
        if (dash != std::string::npos) ipv4_range(item, dash, out);
        else add(out, item);
    }
    return out;
}

}  // namespace bmcsim
