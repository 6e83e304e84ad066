// The sensor list, read over a real session from rmcpp-bmcsim running the
// sample platform on 127.0.12.10, says what ipmitool and FreeIPMI print for
// the same simulator.
#include <gtest/gtest.h>

#include <memory>

#include "bmcsim_clients.h"
#include "sdr_peers.h"
#include "session.h"

namespace {

using namespace std::chrono_literals;

constexpr const char *kBmc = "127.0.12.10";

class SdrBmcsim : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        sim_ = std::make_unique<bmcsim::ChildProcess>(std::vector<std::string>{
            "--address", kBmc, "--standard-keys", "--user", "admin:secret:4", "--platform", BMCSIM_SAMPLE_PLATFORM});
    }
    static void TearDownTestSuite() { sim_.reset(); }

    static std::vector<rmcpp::commands::SensorListEntry> ours(rmcpp::commands::SdrFilter filter)
    {
        cli::Options o;
        o.host = kBmc;
        o.user = "admin";
        o.password = "secret";
        o.cipher_suite = 3;
        o.standard_keys = true;
        cli::Session s(o);
        EXPECT_EQ(s.open(), 0);
        return rmcpp::commands::sensor_list(s, filter);
    }

    static testkit::ProgramResult ipmitool(std::vector<std::string> command)
    {
        std::vector<std::string> a{"ipmitool", "-I", "lanplus", "-H", kBmc, "-U", "admin", "-P", "secret", "-C", "3"};
        a.insert(a.end(), command.begin(), command.end());
        return testkit::run_program(a, 20s);
    }

    static testkit::ProgramResult ipmi_sensors(const simtest::TempDir &home)
    {
        const std::string conf = home.path() + "/freeipmi.conf";
        std::fclose(std::fopen(conf.c_str(), "w"));
        return testkit::run_program({"ipmi-sensors", "-D", "LAN_2_0", "-h", kBmc, "-u", "admin", "-p", "secret", "-I",
                                     "3", "--config-file", conf, "--sdr-cache-directory", home.path(), "--quiet-cache",
                                     "--output-sensor-thresholds", "--comma-separated-output"},
                                    20s, {{"HOME", home.path()}});
    }

    // Our list before and after the peer's run, until both agree (the
    // sample's live readings move now and then).
    template <typename Peer>
    static std::pair<std::vector<rmcpp::commands::SensorListEntry>, testkit::ProgramResult> steady(
        rmcpp::commands::SdrFilter filter, Peer peer)
    {
        for (int attempt = 0;; ++attempt) {
            auto before = ours(filter);
            auto printed = peer();
            auto after = ours(filter);
            if (cli::sdr_list_text(before) == cli::sdr_list_text(after) || attempt == 3) return {before, printed};
        }
    }

    static std::unique_ptr<bmcsim::ChildProcess> sim_;
};

std::unique_ptr<bmcsim::ChildProcess> SdrBmcsim::sim_;

TEST_F(SdrBmcsim, SampleSensorsAsOurListHasThem)
{
    const auto list = ours(rmcpp::commands::SdrFilter::all);
    ASSERT_EQ(list.size(), 7u);
    EXPECT_EQ(list[0].name, "CPU Temp");
    EXPECT_EQ(list[0].unit, "degrees C");
    EXPECT_EQ(list[1].name, "Inlet Temp");
    ASSERT_TRUE(list[1].reading);
    EXPECT_DOUBLE_EQ(*list[1].reading, 24);
    EXPECT_EQ(list[3].name, "12V");
    ASSERT_TRUE(list[3].reading);
    EXPECT_NEAR(*list[3].reading, 12.06, 1e-9);
    EXPECT_EQ(list[5].name, "PCH Temp");
    EXPECT_EQ(list[5].state, rmcpp::commands::SensorState::no_reading);
    EXPECT_EQ(list[6].name, "PSU1 Status");
    EXPECT_EQ(list[6].discrete_states, 0x0001);
}

TEST_F(SdrBmcsim, SameAsIpmitoolSdrList)
{
    auto [list, r] = steady(rmcpp::commands::SdrFilter::sensors, [] { return ipmitool({"sdr", "list"}); });
    ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
    sdrtest::expect_as_ipmitool_sdr_list(list, r.out);
}

TEST_F(SdrBmcsim, SameAsIpmitoolSdrListFullAndCompact)
{
    auto [full, rf] = steady(rmcpp::commands::SdrFilter::full, [] { return ipmitool({"sdr", "list", "full"}); });
    ASSERT_EQ(rf.exit_code, 0) << rf.out << rf.err;
    EXPECT_EQ(full.size(), 6u);
    sdrtest::expect_as_ipmitool_sdr_list(full, rf.out);
    auto [compact, rc] = steady(rmcpp::commands::SdrFilter::compact, [] { return ipmitool({"sdr", "list", "compact"}); });
    ASSERT_EQ(rc.exit_code, 0) << rc.out << rc.err;
    EXPECT_EQ(compact.size(), 1u);
    sdrtest::expect_as_ipmitool_sdr_list(compact, rc.out);
}

TEST_F(SdrBmcsim, SameAsIpmitoolSensorList)
{
    auto [list, r] = steady(rmcpp::commands::SdrFilter::all, [] { return ipmitool({"sensor", "list"}); });
    ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
    sdrtest::expect_as_ipmitool_sensor_list(list, r.out);
}

TEST_F(SdrBmcsim, SameAsFreeIpmiSensors)
{
    simtest::TempDir home;
    auto [list, r] = steady(rmcpp::commands::SdrFilter::all, [&] { return ipmi_sensors(home); });
    ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
    sdrtest::expect_as_ipmi_sensors(list, r.out);
}

}  // namespace
