// The exporter's metric families in Prometheus's text exposition format:
// escaping, HELP/TYPE lines, one family per name, sample values.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "metrics.h"

namespace {

using exporter::Families;
using exporter::MetricType;

TEST(Exposition, LabelValuesEscapeBackslashQuoteAndLineFeed)
{
    EXPECT_EQ(exporter::escape_label_value("plain"), "plain");
    EXPECT_EQ(exporter::escape_label_value("a\\b"), "a\\\\b");
    EXPECT_EQ(exporter::escape_label_value("say \"hi\""), "say \\\"hi\\\"");
    EXPECT_EQ(exporter::escape_label_value("two\nlines"), "two\\nlines");
    // Other characters, tabs and UTF-8 included, pass as they are.
    EXPECT_EQ(exporter::escape_label_value("t\tab \xc2\xb0" "C"), "t\tab \xc2\xb0" "C");
}

TEST(Exposition, HelpEscapesBackslashAndLineFeedButNotQuotes)
{
    EXPECT_EQ(exporter::escape_help("a\\b"), "a\\\\b");
    EXPECT_EQ(exporter::escape_help("x\ny"), "x\\ny");
    EXPECT_EQ(exporter::escape_help("\"quoted\""), "\"quoted\"");
}

TEST(Exposition, EscapedSampleLineInTheRenderedText)
{
    Families f;
    f.add("ipmi_sensor_value", "Reading \\ in\nunits", MetricType::gauge,
          {{"name", "CPU \"1\"\\Temp\nx"}, {"type", "Temperature"}}, 45);
    EXPECT_EQ(exporter::render_text(f),
              "# HELP ipmi_sensor_value Reading \\\\ in\\nunits\n"
              "# TYPE ipmi_sensor_value gauge\n"
              "ipmi_sensor_value{name=\"CPU \\\"1\\\"\\\\Temp\\nx\",type=\"Temperature\"} 45\n");
}

TEST(Exposition, HelpAndTypeComeBeforeTheFamilysSamples)
{
    Families f;
    f.add("ipmi_up", "1 when the BMC answered.", MetricType::gauge, {}, 1);
    f.add("rmcpp_exporter_probes_total", "Probes.", MetricType::counter, {{"module", "default"}}, 3);
    f.add("rmcpp_exporter_probes_total", "Probes.", MetricType::counter, {{"module", "other"}}, 4);
    f.add("odd", "Untyped.", MetricType::untyped, {}, 0);
    EXPECT_EQ(exporter::render_text(f),
              "# HELP ipmi_up 1 when the BMC answered.\n"
              "# TYPE ipmi_up gauge\n"
              "ipmi_up 1\n"
              "# HELP rmcpp_exporter_probes_total Probes.\n"
              "# TYPE rmcpp_exporter_probes_total counter\n"
              "rmcpp_exporter_probes_total{module=\"default\"} 3\n"
              "rmcpp_exporter_probes_total{module=\"other\"} 4\n"
              "# HELP odd Untyped.\n"
              "# TYPE odd untyped\n"
              "odd 0\n");
}

TEST(Exposition, OneFamilyPerNameEvenWhenAddedApart)
{
    Families f;
    f.add("ipmi_sensor_value", "Reading.", MetricType::gauge, {{"name", "A"}}, 1);
    f.add("ipmi_up", "Up.", MetricType::gauge, {}, 1);
    // Added again after another family, and again with another help text:
    // the samples join the first family.
    f.add("ipmi_sensor_value", "Reading.", MetricType::gauge, {{"name", "B"}}, 2);
    f.add("ipmi_sensor_value", "Other words.", MetricType::gauge, {{"name", "C"}}, 3);
    ASSERT_EQ(f.all().size(), 2u);
    EXPECT_EQ(exporter::render_text(f),
              "# HELP ipmi_sensor_value Reading.\n"
              "# TYPE ipmi_sensor_value gauge\n"
              "ipmi_sensor_value{name=\"A\"} 1\n"
              "ipmi_sensor_value{name=\"B\"} 2\n"
              "ipmi_sensor_value{name=\"C\"} 3\n"
              "# HELP ipmi_up Up.\n"
              "# TYPE ipmi_up gauge\n"
              "ipmi_up 1\n");
}

TEST(Exposition, AppendMergesFamiliesByName)
{
    Families a, b;
    a.add("x_total", "X.", MetricType::counter, {{"k", "1"}}, 1);
    b.add("y", "Y.", MetricType::gauge, {}, 5);
    b.add("x_total", "X.", MetricType::counter, {{"k", "2"}}, 2);
    a.append(b);
    ASSERT_EQ(a.all().size(), 2u);
    EXPECT_EQ(a.all()[0].name, "x_total");
    EXPECT_EQ(a.all()[0].samples.size(), 2u);
    EXPECT_EQ(a.all()[1].name, "y");
}

TEST(Exposition, ValuesAsTheFormatSpellsThem)
{
    EXPECT_EQ(exporter::format_value(0), "0");
    EXPECT_EQ(exporter::format_value(-0.0), "0");
    EXPECT_EQ(exporter::format_value(42), "42");
    EXPECT_EQ(exporter::format_value(-7), "-7");
    EXPECT_EQ(exporter::format_value(3000), "3000");
    EXPECT_EQ(exporter::format_value(4294967296.0), "4294967296");
    EXPECT_EQ(exporter::format_value(12.06), "12.06");
    EXPECT_EQ(exporter::format_value(0.5), "0.5");
    EXPECT_EQ(exporter::format_value(-2.25), "-2.25");
    EXPECT_EQ(exporter::format_value(0.1), "0.1");
    EXPECT_EQ(exporter::format_value(std::numeric_limits<double>::quiet_NaN()), "NaN");
    EXPECT_EQ(exporter::format_value(std::numeric_limits<double>::infinity()), "+Inf");
    EXPECT_EQ(exporter::format_value(-std::numeric_limits<double>::infinity()), "-Inf");
}

TEST(Exposition, FractionsReadBackAsTheSameDouble)
{
    for (double v : {1.0 / 3.0, 3.32, 1e-9, 6.02214076e23, -0.001, 1e300}) {
        std::string text = exporter::format_value(v);
        EXPECT_EQ(std::stod(text), v) << text;
    }
}

TEST(Exposition, InvalidMetricNamesAreRefused)
{
    Families f;
    for (const char *bad : {"", "1abc", "ipmi-up", "ipmi up", "ipmi.up", "ipmi_up{", "\xc2\xb0" "C"}) {
        EXPECT_FALSE(exporter::valid_metric_name(bad)) << bad;
        EXPECT_THROW(f.add(bad, "h", MetricType::gauge, {}, 1), std::invalid_argument) << bad;
    }
    EXPECT_TRUE(f.all().empty());
    for (const char *good : {"ipmi_up", "_x", "a:b_c9", ":colon"})
        EXPECT_TRUE(exporter::valid_metric_name(good)) << good;
}

TEST(Exposition, InvalidLabelNamesAreRefused)
{
    for (const char *bad : {"", "9x", "a-b", "a:b", "__reserved", "a b"})
        EXPECT_FALSE(exporter::valid_label_name(bad)) << bad;
    for (const char *good : {"name", "_x", "le", "firmware_revision", "a9"})
        EXPECT_TRUE(exporter::valid_label_name(good)) << good;
    Families f;
    EXPECT_THROW(f.add("ipmi_up", "h", MetricType::gauge, {{"bad-label", "v"}}, 1), std::invalid_argument);
    EXPECT_THROW(f.add("ipmi_up", "h", MetricType::gauge, {{"a", "1"}, {"a", "2"}}, 1), std::invalid_argument);
}

TEST(Exposition, RenderRefusesAFamilyWithABadNameOrSuffix)
{
    Families f;
    f.all().push_back(exporter::Family{"bad name", "h", MetricType::gauge, {{"", {}, 1}}});
    EXPECT_THROW(exporter::render_text(f), std::invalid_argument);
    Families g;
    g.all().push_back(exporter::Family{"good", "h", MetricType::gauge, {{"_max", {}, 1}}});
    EXPECT_THROW(exporter::render_text(g), std::invalid_argument);
}

TEST(Exposition, HistogramBucketsSumAndCount)
{
    exporter::Histogram h({0.25, 1, 2.5});
    h.observe(0.125);
    h.observe(0.25);  // on a bound: counts in that bucket
    h.observe(2);
    h.observe(30);
    Families f;
    h.add_to(f, "rmcpp_exporter_probe_duration_seconds", "Probe durations.", {{"module", "m"}});
    EXPECT_EQ(exporter::render_text(f),
              "# HELP rmcpp_exporter_probe_duration_seconds Probe durations.\n"
              "# TYPE rmcpp_exporter_probe_duration_seconds histogram\n"
              "rmcpp_exporter_probe_duration_seconds_bucket{module=\"m\",le=\"0.25\"} 2\n"
              "rmcpp_exporter_probe_duration_seconds_bucket{module=\"m\",le=\"1\"} 2\n"
              "rmcpp_exporter_probe_duration_seconds_bucket{module=\"m\",le=\"2.5\"} 3\n"
              "rmcpp_exporter_probe_duration_seconds_bucket{module=\"m\",le=\"+Inf\"} 4\n"
              "rmcpp_exporter_probe_duration_seconds_sum{module=\"m\"} 32.375\n"
              "rmcpp_exporter_probe_duration_seconds_count{module=\"m\"} 4\n");
}

TEST(Exposition, HistogramBoundsMustRise)
{
    EXPECT_THROW(exporter::Histogram({1, 1}), std::invalid_argument);
    EXPECT_THROW(exporter::Histogram({2, 1}), std::invalid_argument);
}

}  // namespace
