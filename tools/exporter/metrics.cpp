#include "metrics.h"

namespace exporter {

Family &Families::family(const std::string &name, const std::string &help, MetricType type)
{
    for (Family &f : families_)
        if (f.name == name) return f;
    families_.push_back(Family{name, help, type, {}});
    return families_.back();
}

void Families::add(const std::string &name, const std::string &help, MetricType type, std::vector<Label> labels,
                   double value)
{
    family(name, help, type).samples.push_back(Sample{"", std::move(labels), value});
}

void Families::append(const Families &other)
{
    for (const Family &f : other.families_) {
        Family &mine = family(f.name, f.help, f.type);
        mine.samples.insert(mine.samples.end(), f.samples.begin(), f.samples.end());
    }
}

}  // namespace exporter
