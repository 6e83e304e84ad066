// Metric families as Prometheus's text exposition format (version 0.0.4)
// carries them: one family per name, with its HELP and TYPE lines, then its
// samples. Collectors fill families; render_text() writes them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace exporter {

enum class MetricType { gauge, counter, histogram, untyped };

struct Label {
    std::string name;
    std::string value;
};

struct Sample {
    std::string suffix;  // "" or, for histograms, "_bucket", "_sum", "_count"
    std::vector<Label> labels;
    double value = 0;
};

struct Family {
    std::string name;
    std::string help;
    MetricType type = MetricType::gauge;
    std::vector<Sample> samples;
};

// Families in the order they were first added; adding a name that is
// already there returns that family, so every name appears once.
class Families {
public:
    Family &family(const std::string &name, const std::string &help, MetricType type);
    void add(const std::string &name, const std::string &help, MetricType type, std::vector<Label> labels,
             double value);
    const std::vector<Family> &all() const { return families_; }
    std::vector<Family> &all() { return families_; }
    void append(const Families &other);

private:
    std::vector<Family> families_;
};

// Label values escape backslash, double quote and line feed; HELP texts
// escape backslash and line feed.
std::string escape_label_value(std::string_view value);
std::string escape_help(std::string_view help);
bool valid_metric_name(std::string_view name);
bool valid_label_name(std::string_view name);
// Sample values: integers without a fraction, NaN, +Inf, -Inf as the
// format spells them.
std::string format_value(double value);

std::string render_text(const Families &families);

// Observations counted into buckets by upper bound, written as a histogram
// family: one cumulative _bucket sample per bound and +Inf (label le), then
// _sum and _count.
class Histogram {
public:
    explicit Histogram(std::vector<double> upper_bounds);
    void observe(double value);
    void add_to(Families &families, const std::string &name, const std::string &help,
                const std::vector<Label> &labels = {}) const;
    uint64_t count() const { return count_; }
    double sum() const { return sum_; }

private:
    std::vector<double> bounds_;
    std::vector<uint64_t> counts_;  // per bucket, not cumulative; the last is +Inf
    uint64_t count_ = 0;
    double sum_ = 0;
};

inline constexpr const char *kContentType = "text/plain; version=0.0.4; charset=utf-8";

}  // namespace exporter
