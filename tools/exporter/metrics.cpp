// Metric families and Prometheus's text exposition format, version 0.0.4.
#include "metrics.h"

#include <charconv>
#include <cmath>
#include <stdexcept>

namespace exporter {

namespace {

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

const char *type_word(MetricType type)
{
    switch (type) {
    case MetricType::gauge: return "gauge";
    case MetricType::counter: return "counter";
    case MetricType::histogram: return "histogram";
    case MetricType::untyped: return "untyped";
    }
    return "untyped";
}

void check_labels(const std::string &family, const std::vector<Label> &labels)
{
    for (size_t i = 0; i < labels.size(); ++i) {
        if (!valid_label_name(labels[i].name))
            throw std::invalid_argument("metric " + family + ": invalid label name \"" + labels[i].name + "\"");
        for (size_t j = 0; j < i; ++j)
            if (labels[j].name == labels[i].name)
                throw std::invalid_argument("metric " + family + ": label " + labels[i].name + " given twice");
    }
}

}  // namespace

bool valid_metric_name(std::string_view name)
{
    if (name.empty())
        return false;
    for (size_t i = 0; i < name.size(); ++i) {
        char c = name[i];
        bool ok = is_letter(c) || c == '_' || c == ':' || (i > 0 && is_digit(c));
        if (!ok)
            return false;
    }
    return true;
}

bool valid_label_name(std::string_view name)
{
    if (name.empty())
        return false;
    // Names beginning with two underscores are Prometheus's own.
    if (name.size() >= 2 && name[0] == '_' && name[1] == '_')
        return false;
    for (size_t i = 0; i < name.size(); ++i) {
        char c = name[i];
        bool ok = is_letter(c) || c == '_' || (i > 0 && is_digit(c));
        if (!ok)
            return false;
    }
    return true;
}

std::string escape_label_value(std::string_view value)
{
    std::string out;
    out.reserve(value.size());
    for (char c : value) {
        switch (c) {
        case '\\': out += "\\\\"; break;
        case '"': out += "\\\""; break;
        case '\n': out += "\\n"; break;
        default: out += c;
        }
    }
    return out;
}

std::string escape_help(std::string_view help)
{
    std::string out;
    out.reserve(help.size());
    for (char c : help) {
        switch (c) {
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        default: out += c;
        }
    }
    return out;
}

std::string format_value(double value)
{
    if (std::isnan(value))
        return "NaN";
    if (std::isinf(value))
        return value > 0 ? "+Inf" : "-Inf";
    // Whole numbers that a double holds exactly print without a fraction or
    // exponent.
    if (value == std::trunc(value) && std::fabs(value) < 9007199254740992.0) {
        long long whole = static_cast<long long>(value);
        return std::to_string(whole);
    }
    // Anything else: the shortest text that reads back as the same double.
    char buffer[64];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (ec != std::errc())
        throw std::runtime_error("sample value cannot be formatted");
    return std::string(buffer, end);
}

Family &Families::family(const std::string &name, const std::string &help, MetricType type)
{
    for (Family &f : families_)
        if (f.name == name)
            return f;
    if (!valid_metric_name(name))
        throw std::invalid_argument("invalid metric name \"" + name + "\"");
    families_.push_back(Family{name, help, type, {}});
    return families_.back();
}

void Families::add(const std::string &name, const std::string &help, MetricType type, std::vector<Label> labels,
                   double value)
{
    Family &f = family(name, help, type);
    check_labels(name, labels);
    f.samples.push_back(Sample{"", std::move(labels), value});
}

void Families::append(const Families &other)
{
    for (const Family &src : other.all()) {
        Family &dst = family(src.name, src.help, src.type);
        dst.samples.insert(dst.samples.end(), src.samples.begin(), src.samples.end());
    }
}

std::string render_text(const Families &families)
{
    std::string out;
    for (const Family &f : families.all()) {
        if (!valid_metric_name(f.name))
            throw std::invalid_argument("invalid metric name \"" + f.name + "\"");
        out += "# HELP " + f.name + " " + escape_help(f.help) + "\n";
        out += "# TYPE " + f.name + " " + type_word(f.type) + "\n";
        for (const Sample &s : f.samples) {
            if (!s.suffix.empty() && s.suffix != "_bucket" && s.suffix != "_sum" && s.suffix != "_count")
                throw std::invalid_argument("metric " + f.name + ": invalid sample suffix \"" + s.suffix + "\"");
            check_labels(f.name, s.labels);
            out += f.name;
            out += s.suffix;
            if (!s.labels.empty()) {
                out += '{';
                for (size_t i = 0; i < s.labels.size(); ++i) {
                    if (i > 0)
                        out += ',';
                    out += s.labels[i].name + "=\"" + escape_label_value(s.labels[i].value) + "\"";
                }
                out += '}';
            }
            out += ' ';
            out += format_value(s.value);
            out += '\n';
        }
    }
    return out;
}

Histogram::Histogram(std::vector<double> upper_bounds) : bounds_(std::move(upper_bounds))
{
    for (size_t i = 0; i < bounds_.size(); ++i)
        if (std::isnan(bounds_[i]) || (i > 0 && bounds_[i] <= bounds_[i - 1]))
            throw std::invalid_argument("histogram bounds must rise");
    counts_.assign(bounds_.size() + 1, 0);
}

void Histogram::observe(double value)
{
    size_t i = 0;
    while (i < bounds_.size() && value > bounds_[i])
        ++i;
    ++counts_[i];
    ++count_;
    sum_ += value;
}

void Histogram::add_to(Families &families, const std::string &name, const std::string &help,
                       const std::vector<Label> &labels) const
{
    Family &f = families.family(name, help, MetricType::histogram);
    uint64_t cumulative = 0;
    for (size_t i = 0; i <= bounds_.size(); ++i) {
        cumulative += counts_[i];
        std::vector<Label> with_le = labels;
        with_le.push_back({"le", i < bounds_.size() ? format_value(bounds_[i]) : "+Inf"});
        f.samples.push_back(Sample{"_bucket", std::move(with_le), static_cast<double>(cumulative)});
    }
    f.samples.push_back(Sample{"_sum", labels, sum_});
    f.samples.push_back(Sample{"_count", labels, static_cast<double>(count_)});
}

}  // namespace exporter
