#include "progress.h"

#include <cmath>
#include <cstdio>

namespace cli {

std::string clock_text(double seconds)
{
    const long long s = seconds <= 0 ? 0 : static_cast<long long>(std::ceil(seconds));
    char text[32];
    if (s >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", s / 3600, s / 60 % 60, s % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", s / 60, s % 60);
    return text;
}

std::string progress_line(const Progress &p, size_t width)
{
    constexpr size_t kLeastBar = 10;
    std::string text = std::to_string(p.done) + "/" + std::to_string(p.total) + " hosts, " +
                       std::to_string(p.failed) + " failed, ";
    if (p.done == 0 || p.elapsed <= 0) {
        text += "? hosts/s, ? left";
    } else {
        const double rate = static_cast<double>(p.done) / p.elapsed;
        char number[32];
        std::snprintf(number, sizeof number, rate < 10 ? "%.1f" : "%.0f", rate);
        text += std::string(number) + " hosts/s, " + clock_text(static_cast<double>(p.total - p.done) / rate) + " left";
    }
    const size_t room = width > 0 ? width - 1 : 0;
    if (text.size() + 3 + kLeastBar > room) return text.substr(0, room);
    const size_t bar = room - text.size() - 3;
    const size_t filled = p.total == 0 ? bar : bar * p.done / p.total;
    std::string line = "[" + std::string(filled, '=');
    if (filled < bar) line += '>' + std::string(bar - filled - 1, ' ');
    return line + "] " + text;
}

}  // namespace cli
