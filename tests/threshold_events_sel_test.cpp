// A sensor whose reading is past its upper thresholds: reading it makes the
// simulator (127.0.12.40) log the threshold events in its SEL, which our
// SEL list and ipmitool's read back the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "bmcsim.h"
#include "event_text.h"
#include "platform_file.h"
#include "run_program.h"
#include "sel_list.h"
#include "sensor_list.h"
#include "session.h"

namespace {

constexpr const char *kBmc = "127.0.12.40";

constexpr const char *kPlatform = R"(
sensors:
  - name: Hot Spot
    number: 0x33
    type: Temperature
    unit: degrees C
    thresholds: {unc: 70, ucr: 80}
    reading: 85
)";

cli::Options options()
{
    cli::Options o;
    o.host = kBmc;
    o.user = "admin";
    o.password = "secret";
    o.cipher_suite = 3;
    o.standard_keys = true;
    return o;
}

TEST(ThresholdEventsSel, ReadingPastTheUpperThresholdsLogsTheirEventsOnce)
{
    bmcsim::Config c;
    c.address = kBmc;
    c.users = {{"admin", "secret", 4, true}};
    c.standard_keys = true;  // as ipmitool keys suites 1 to 3
    bmcsim::load_platform_text(kPlatform, "platform", c);
    bmcsim::Simulator sim(c);
    sim.start();

    const cli::Options o = options();
    cli::Session s(o);
    ASSERT_EQ(s.open(), 0);
    EXPECT_TRUE(rmcpp::commands::read_sel(s).empty());
    const auto sensors = rmcpp::commands::sensor_list(s, rmcpp::commands::SdrFilter::all);
    ASSERT_EQ(sensors.size(), 1u);
    // A second sample finds nothing new to log.
    (void)rmcpp::commands::sensor_list(s, rmcpp::commands::SdrFilter::all);

    const auto entries = rmcpp::commands::read_sel(s);
    ASSERT_EQ(entries.size(), 2u);
    std::vector<uint8_t> offsets;
    for (const auto &e : entries) {
        const auto &r = e.record;
        EXPECT_EQ(r.sensor_number, 0x33);
        EXPECT_EQ(r.sensor_type, 0x01);
        EXPECT_EQ(r.event_type, 0x01);
        EXPECT_FALSE(r.deassertion);
        EXPECT_EQ(r.event_data[1], 85);  // trigger reading (M 1, B 0: the raw value)
        offsets.push_back(r.offset);
    }
    std::sort(offsets.begin(), offsets.end());
    EXPECT_EQ(offsets, (std::vector<uint8_t>{0x07, 0x09}));  // upper non-critical and critical going high
    s.close();

    const auto printed = testkit::run_program({"ipmitool", "-I", "lanplus", "-H", kBmc, "-U", "admin", "-P", "secret",
                                               "-C", "3", "sel", "list"},
                                              std::chrono::seconds(20));
    ASSERT_EQ(printed.exit_code, 0) << printed.err;
    for (const uint8_t offset : offsets) {
        const std::string words(rmcpp::commands::event_description(0x01, 0x01, offset));
        EXPECT_NE(printed.out.find(words), std::string::npos) << words << " not in:\n" << printed.out;
    }
    sim.stop();
}

}  // namespace
