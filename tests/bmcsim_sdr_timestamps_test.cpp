// The simulator's Get SDR Repository Info: its most recent addition and
// erase timestamps stay at 0 for the repository it starts with and move
// when records are added or go, so consoles caching the repository can
// tell when to read it again.
#include <gtest/gtest.h>

#include <ctime>

#include "sdr_repository.h"
#include "sdr_store.h"

namespace {

namespace cmd = rmcpp::commands;
using bmcsim::Config;
using bmcsim::SimSensor;

SimSensor sensor(const std::string &name, uint8_t number)
{
    SimSensor s;
    s.name = name;
    s.number = number;
    s.base_unit = 1;
    s.unc = 80;
    s.reading.value = 40;
    return s;
}

cmd::SdrRepositoryInfo info(bmcsim::detail::SdrRepository &sdr, const Config &c)
{
    uint8_t cc = 0xFF;
    bmcsim::Bytes out;
    EXPECT_TRUE(sdr.handle(0x0A, cmd::get_sdr_repository_info_cmd, {}, c, 0, cc, out));
    EXPECT_EQ(cc, 0);
    cmd::SdrRepositoryInfo i;
    EXPECT_TRUE(cmd::decode_get_sdr_repository_info(out, i));
    return i;
}

TEST(SimulatedSdrTimestamps, MoveWhenRecordsAreAddedOrGo)
{
    Config c;
    c.sensors = {sensor("A", 1), sensor("B", 2)};
    bmcsim::detail::SdrRepository sdr;
    const auto first = info(sdr, c);
    EXPECT_EQ(first.last_addition, 0u);
    EXPECT_EQ(first.last_erase, 0u);

    // A reading that changes is no change of the repository.
    c.sensors[0].reading.value = 50;
    EXPECT_EQ(info(sdr, c), first);

    const uint32_t before = static_cast<uint32_t>(std::time(nullptr));
    c.sensors.push_back(sensor("C", 3));
    const auto added = info(sdr, c);
    EXPECT_GE(added.last_addition, before);
    EXPECT_EQ(added.last_erase, 0u);

    c.sensors.erase(c.sensors.begin() + 2);
    const auto erased = info(sdr, c);
    EXPECT_EQ(erased.last_addition, added.last_addition);
    EXPECT_GT(erased.last_erase, added.last_addition);

    // A changed record is one gone and one added, at a later second still.
    c.sensors[1].unc = 70;
    const auto changed = info(sdr, c);
    EXPECT_GT(changed.last_addition, erased.last_erase);
    EXPECT_EQ(changed.last_erase, changed.last_addition);
}

}  // namespace
