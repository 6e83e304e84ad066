#include "hostrange.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <unordered_set>

namespace rmcpp::commands {

namespace {

// Longest number a range may hold: 18 digits fit in 64 bits.
constexpr size_t kMaxDigits = 18;

struct Range {
    uint64_t low = 0, high = 0;
    size_t width = 0;  // zero padding; 0: none
};

// A host as written: literal text and bracketed ranges in turn.
struct Part {
    std::string text;          // literal, when ranges is empty
    std::vector<Range> ranges; // the numbers of one bracket
};

[[noreturn]] void bad(const std::string &item, const std::string &why)
{
    throw HostrangeError("bad hostrange " + item + ": " + why);
}

std::string too_many(size_t limit)
{
    return "the hosts expand to more than " + std::to_string(limit) + ", the most one run takes";
}

bool digits_only(const std::string &s)
{
    return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool zero_padded(const std::string &digits) { return digits.size() > 1 && digits[0] == '0'; }

uint64_t number(const std::string &item, const std::string &digits)
{
    if (digits.empty()) bad(item, "a range needs a number on each side of '-'");
    if (!digits_only(digits)) bad(item, "'" + digits + "' is not a number");
    if (digits.size() > kMaxDigits) bad(item, "'" + digits + "' has more than " + std::to_string(kMaxDigits) + " digits");
    uint64_t v = 0;
    for (char c : digits) v = v * 10 + static_cast<uint64_t>(c - '0');
    return v;
}

// The inside of one bracket: "1-3,7,10-12".
std::vector<Range> ranges_of(const std::string &item, const std::string &inside)
{
    if (inside.empty()) bad(item, "empty brackets");
    std::vector<Range> out;
    size_t start = 0;
    for (;;) {
        const size_t comma = inside.find(',', start);
        const std::string element = inside.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (element.empty()) bad(item, "an empty element between commas in [" + inside + "]");
        const size_t dash = element.find('-');
        Range r;
        if (dash == std::string::npos) {
            r.low = r.high = number(item, element);
            r.width = zero_padded(element) ? element.size() : 0;
        } else {
            const std::string low = element.substr(0, dash), high = element.substr(dash + 1);
            r.low = number(item, low);
            r.high = number(item, high);
            if (r.high < r.low) bad(item, element + " counts down; write " + high + "-" + low);
            r.width = zero_padded(low) ? low.size() : zero_padded(high) ? high.size() : 0;
        }
        out.push_back(r);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return out;
}

// One host of the list, split into literal text and brackets.
std::vector<Part> parts_of(const std::string &item)
{
    std::vector<Part> parts;
    std::string text;
    size_t i = 0;
    while (i < item.size()) {
        const char c = item[i];
        if (c == ']') bad(item, "']' without '['");
        if (c != '[') {
            text += c;
            ++i;
            continue;
        }
        const size_t close = item.find(']', i + 1);
        if (close == std::string::npos) bad(item, "'[' is not closed");
        const std::string inside = item.substr(i + 1, close - i - 1);
        if (inside.find('[') != std::string::npos) bad(item, "'[' inside brackets");
        if (inside.find(':') != std::string::npos) {
            // An IPv6 literal: kept as it is, brackets and all.
            text += item.substr(i, close - i + 1);
        } else {
            if (!text.empty()) parts.push_back({text, {}});
            text.clear();
            parts.push_back({"", ranges_of(item, inside)});
        }
        i = close + 1;
    }
    if (!text.empty()) parts.push_back({text, {}});
    return parts;
}

uint64_t count_of(const std::vector<Range> &ranges, size_t limit)
{
    uint64_t n = 0;
    for (const Range &r : ranges) {
        n += r.high - r.low + 1;
        if (n > limit) return limit + 1;
    }
    return n;
}

std::string padded(uint64_t v, size_t width)
{
    std::string s = std::to_string(v);
    if (s.size() < width) s.insert(0, width - s.size(), '0');
    return s;
}

// Appends every host `parts` stands for, the last bracket counting fastest.
void expand_parts(const std::vector<Part> &parts, size_t at, const std::string &head, std::vector<std::string> &out)
{
    if (at == parts.size()) {
        out.push_back(head);
        return;
    }
    const Part &p = parts[at];
    if (p.ranges.empty()) return expand_parts(parts, at + 1, head + p.text, out);
    for (const Range &r : p.ranges)
        for (uint64_t v = r.low;; ++v) {
            expand_parts(parts, at + 1, head + padded(v, r.width), out);
            if (v == r.high) break;
        }
}

// Splits the list at the commas outside brackets.
std::vector<std::string> items_of(const std::string &list)
{
    std::vector<std::string> items;
    std::string item;
    bool inside = false;
    for (char c : list) {
        if (c == '[') inside = true;
        if (c == ']') inside = false;
        if (c == ',' && !inside) {
            items.push_back(item);
            item.clear();
            continue;
        }
        item += c;
    }
    items.push_back(item);
    return items;
}

std::string trimmed(const std::string &s)
{
    size_t b = 0, e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
    return s.substr(b, e - b);
}

// Appends the hosts of `list` not seen before.
void expand_into(const std::string &list, size_t limit, std::vector<std::string> &out,
                 std::unordered_set<std::string> &seen)
{
    for (const std::string &raw : items_of(list)) {
        const std::string item = trimmed(raw);
        if (item.empty()) throw HostrangeError("empty host in the list " + list);
        const std::vector<Part> parts = parts_of(item);
        uint64_t n = 1;
        for (const Part &p : parts) {
            if (p.ranges.empty()) continue;
            const uint64_t k = count_of(p.ranges, limit);
            n = k > limit || n * k > limit ? limit + 1 : n * k;
        }
        if (n > limit || out.size() + n > limit) throw HostrangeError(too_many(limit));
        std::vector<std::string> hosts;
        hosts.reserve(n);
        expand_parts(parts, 0, "", hosts);
        for (std::string &h : hosts)
            if (seen.insert(h).second) out.push_back(std::move(h));
    }
}

}  // namespace

std::vector<std::string> expand_hosts(const std::string &list, size_t limit)
{
    std::vector<std::string> out;
    std::unordered_set<std::string> seen;
    expand_into(list, limit, out, seen);
    return out;
}

std::vector<std::string> hosts_of_file_text(const std::string &text, size_t limit)
{
    std::vector<std::string> out;
    std::unordered_set<std::string> seen;
    size_t start = 0, line_number = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        ++line_number;
        const std::string line = trimmed(text.substr(start, end - start));
        start = end + 1;
        if (line.empty() || line[0] == '#') continue;
        try {
            expand_into(line, limit, out, seen);
        } catch (const HostrangeError &e) {
            throw HostrangeError("line " + std::to_string(line_number) + ": " + e.what());
        }
    }
    return out;
}

bool single_host(const std::string &list)
{
    if (list.find(',') != std::string::npos) return false;
    // Brackets holding a colon are an IPv6 literal, whole or mistyped ("[::1",
    // "::1]"): the host is checked, and refused, as one address.
    const bool ipv6 = list.find(':') != std::string::npos;
    for (size_t i = 0; i < list.size(); ++i) {
        if (list[i] == ']' && !ipv6) return false;
        if (list[i] != '[') continue;
        const size_t close = list.find(']', i + 1);
        const std::string inside = list.substr(i + 1, close == std::string::npos ? std::string::npos : close - i - 1);
        if (inside.find(':') == std::string::npos) return false;
        if (close == std::string::npos) break;
        i = close;
    }
    return true;
}

namespace {

// A host as prefix, number and suffix.
struct Numbered {
    std::string prefix, digits, suffix;
};

// The `from_end`-th run of digits of the host counted from its end (0: the
// last one).
std::optional<Numbered> numbered(const std::string &host, size_t from_end)
{
    if (host.find_first_of("[]:,") != std::string::npos) return std::nullopt;
    size_t end = host.size();
    for (size_t run = 0;; ++run) {
        while (end > 0 && !std::isdigit(static_cast<unsigned char>(host[end - 1]))) --end;
        if (end == 0) return std::nullopt;
        size_t begin = end;
        while (begin > 0 && std::isdigit(static_cast<unsigned char>(host[begin - 1]))) --begin;
        if (run == from_end) {
            if (end - begin > kMaxDigits) return std::nullopt;
            return Numbered{host.substr(0, begin), host.substr(begin, end - begin), host.substr(end)};
        }
        end = begin;
    }
}

// "1-3,7" for the ascending numbers given.
std::string ranges_text(const std::vector<uint64_t> &numbers, size_t width)
{
    std::string out;
    for (size_t i = 0; i < numbers.size();) {
        size_t j = i;
        while (j + 1 < numbers.size() && numbers[j + 1] == numbers[j] + 1) ++j;
        if (!out.empty()) out += ',';
        out += padded(numbers[i], width);
        if (j > i) out += "-" + padded(numbers[j], width);
        i = j + 1;
    }
    return out;
}


// The hosts in range form with the `from_end`-th number in brackets;
// nothing when no host has that many numbers.
std::optional<std::string> compress_on(const std::vector<std::string> &hosts, size_t from_end)
{
    // Widths written with leading zeros, per prefix and suffix.
    std::map<std::pair<std::string, std::string>, std::set<size_t>> padded_widths;
    std::vector<std::optional<Numbered>> split;
    split.reserve(hosts.size());
    bool any = false;
    for (const std::string &h : hosts) {
        split.push_back(numbered(h, from_end));
        if (split.back()) any = true;
        if (split.back() && zero_padded(split.back()->digits))
            padded_widths[{split.back()->prefix, split.back()->suffix}].insert(split.back()->digits.size());
    }
    // Groups in the order their first host appears: a literal host, or a
    // prefix, suffix and width (0: numbers without padding) with its numbers.
    struct Group {
        std::string literal;
        std::string prefix, suffix;
        size_t width = 0;
        std::set<uint64_t> numbers;
        std::string first;
    };
    std::vector<Group> groups;
    std::map<std::tuple<std::string, std::string, size_t>, size_t> index;
    std::set<std::string> literals;
    for (size_t i = 0; i < hosts.size(); ++i) {
        const auto &n = split[i];
        if (!n) {
            if (literals.insert(hosts[i]).second) groups.push_back({hosts[i], "", "", 0, {}, hosts[i]});
            continue;
        }
        const auto &widths = padded_widths[{n->prefix, n->suffix}];
        const size_t width = widths.count(n->digits.size()) ? n->digits.size() : 0;
        const auto key = std::make_tuple(n->prefix, n->suffix, width);
        auto it = index.find(key);
        if (it == index.end()) {
            it = index.emplace(key, groups.size()).first;
            groups.push_back({"", n->prefix, n->suffix, width, {}, hosts[i]});
        }
        uint64_t v = 0;
        for (char c : n->digits) v = v * 10 + static_cast<uint64_t>(c - '0');
        groups[it->second].numbers.insert(v);
    }
    if (!any && from_end > 0) return std::nullopt;
    std::string out;
    for (const Group &g : groups) {
        if (!out.empty()) out += ',';
        if (g.numbers.empty()) out += g.literal;
        else if (g.numbers.size() == 1) out += g.first;
        else
            out += g.prefix + "[" + ranges_text({g.numbers.begin(), g.numbers.end()}, g.width) + "]" + g.suffix;
    }
    return out;
}

}  // namespace

std::string compress_hosts(const std::vector<std::string> &hosts)
{
    // The number that varies may be any of the host's; the shortest form wins
    // ("bmc[01-64].dc1" rather than 64 hosts "bmc01.dc1"...).
    constexpr size_t kNumbersTried = 4;
    std::string best = *compress_on(hosts, 0);
    for (size_t k = 1; k < kNumbersTried; ++k) {
        const auto form = compress_on(hosts, k);
        if (form && form->size() < best.size()) best = *form;
    }
    return best;
}

}  // namespace rmcpp::commands
