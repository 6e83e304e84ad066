// The tool's sel and fru commands against OpenIPMI's ipmi_sim on 127.0.13.2,
// its SEL filled with sel_add and its FRU device 0 with mc_add_fru_data: what
// ipmitool and FreeIPMI print for the same BMC must be what the tool prints,
// field by field. The FRU image is written out byte by byte here (8-bit
// ASCII, BCD plus and 6-bit ASCII fields), independently of the tool's
// encoders.
#include <gtest/gtest.h>

#include <algorithm>

#include <filesystem>
#include <memory>

#include "ipmi_sim_peer.h"
#include "runner.h"
#include "sel_fru_clients.h"

namespace {

using simtest::output;

constexpr const char *kAddress = "127.0.13.2";

// An info area: version 1, its length, the fixed bytes, the fields (each a
// type/length byte and data), C1h, zero padding and the checksum.
std::vector<uint8_t> area(std::vector<uint8_t> fixed, const std::vector<std::vector<uint8_t>> &fields)
{
    std::vector<uint8_t> a(2 + fixed.size());
    a[0] = 0x01;
    std::copy(fixed.begin(), fixed.end(), a.begin() + 2);
    for (const auto &f : fields) a.insert(a.end(), f.begin(), f.end());
    a.push_back(0xC1);
    while ((a.size() + 1) % 8) a.push_back(0x00);
    a[1] = static_cast<uint8_t>((a.size() + 1) / 8);
    uint8_t sum = 0;
    for (uint8_t b : a) sum = static_cast<uint8_t>(sum + b);
    a.push_back(static_cast<uint8_t>(0x100 - sum));
    return a;
}

std::vector<uint8_t> text(const std::string &s)
{
    std::vector<uint8_t> f(1 + s.size());
    f[0] = static_cast<uint8_t>(0xC0 | s.size());
    std::copy(s.begin(), s.end(), f.begin() + 1);
    return f;
}

std::vector<uint8_t> fru_image()
{
    const auto chassis = area({0x11}, {text("CHS-77"), text("CSN-0042")});  // Main Server Chassis
    // Mfg date 0x0B2B40 minutes: 1997-05-23T07:28:00Z.
    const auto board = area({0x19, 0x40, 0x2B, 0x0B},
                            {text("Example Corp"), text("Mainboard 9"), text("BSN-123"), text("BPN-456"), text("")});
    // Serial number in BCD plus: "123456"; asset tag in 6-bit ASCII: "ABCD".
    const uint32_t abcd = 0x21u | (0x22u << 6) | (0x23u << 12) | (0x24u << 18);
    const auto product = area({0x19}, {text("Example Corp"), text("Server 9"), text("PPN-789"), text("2.1"),
                                       {0x43, 0x12, 0x34, 0x56},
                                       {0x83, static_cast<uint8_t>(abcd), static_cast<uint8_t>(abcd >> 8),
                                        static_cast<uint8_t>(abcd >> 16)},
                                       text("")});
    std::vector<uint8_t> image{0x01, 0x00, 0x01, static_cast<uint8_t>(1 + chassis.size() / 8),
                               static_cast<uint8_t>(1 + (chassis.size() + board.size()) / 8), 0x00, 0x00};
    uint8_t sum = 0;
    for (uint8_t b : image) sum = static_cast<uint8_t>(sum + b);
    image.push_back(static_cast<uint8_t>(0x100 - sum));
    for (const auto *a : {&chassis, &board, &product}) image.insert(image.end(), a->begin(), a->end());
    return image;
}

std::string emulator_commands()
{
    std::string cmds = "sel_enable 0x20 1000 0x0a\n";
    // Record type, then the 13 bytes after it: timestamp (ipmi_sim puts its
    // own), generator ID, EvM revision, sensor type, number, event dir/type,
    // event data.
    cmds += "sel_add 0x20 0x02 0 0 0 0 0x20 0x00 0x04 0x01 0x30 0x01 0x59 0x60 0x55\n";   // upper critical high
    cmds += "sel_add 0x20 0x02 0 0 0 0 0x20 0x00 0x04 0x07 0x41 0x6f 0x00 0xff 0xff\n";   // IERR
    cmds += "sel_add 0x20 0x02 0 0 0 0 0x20 0x00 0x04 0x08 0x42 0xef 0x01 0xff 0xff\n";   // failure, deasserted
    cmds += "sel_add 0x20 0x02 0 0 0 0 0x20 0x00 0x04 0x02 0x31 0x07 0x02 0xff 0xff\n";   // to critical
    cmds += "sel_add 0x20 0xc1 0 0 0 0 0x57 0x01 0x00 1 2 3 4 5 6\n";                     // OEM timestamped
    const auto image = fru_image();
    cmds += "mc_add_fru_data 0x20 0 " + std::to_string(image.size()) + " data";
    for (uint8_t b : image) cmds += " " + std::to_string(b);
    return cmds + "\n";
}

class SelFruIpmiSim : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        peer_ = std::make_unique<testkit::IpmiSimPeer>(std::string(kAddress), testkit::default_ipmi_sim_users(), true,
                                                       emulator_commands());
    }
    static void TearDownTestSuite() { peer_.reset(); }
    void SetUp() override
    {
        for (const char *p : {"ipmi_sim", "ipmitool", "ipmi-sel", "ipmi-fru"})
            ASSERT_FALSE(simtest::find_program(p).empty()) << p << " is not installed";
        cache_ = std::filesystem::temp_directory_path() / ("selfru-sim-" + std::to_string(::getpid()));
        std::filesystem::create_directories(cache_);
    }
    void TearDown() override { std::filesystem::remove_all(cache_); }

    nlohmann::json ours(void (*add)(CLI::App &, cli::Runner &), const std::vector<std::string> &args,
                        std::string *printed_text = nullptr)
    {
        std::string error;
        auto printed = selfru::rmcpp(peer, add, args, error);
        EXPECT_TRUE(printed) << error;
        if (!printed) return nullptr;
        if (printed_text) *printed_text = printed->text;
        return printed->json;
    }

    selfru::Peer peer{kAddress, "admin", "password", true, true};
    std::filesystem::path cache_;
    static std::unique_ptr<testkit::IpmiSimPeer> peer_;
};

std::unique_ptr<testkit::IpmiSimPeer> SelFruIpmiSim::peer_;

TEST_F(SelFruIpmiSim, IpmitoolSelListAndElistShowTheToolsEntries)
{
    const auto json = ours(cli::add_sel_commands, {"sel", "list"});
    ASSERT_EQ(json.size(), 5u);
    for (const char *list : {"list", "elist"}) {
        const auto r = selfru::ipmitool(peer, {"sel", list});
        ASSERT_EQ(r.exit_code, 0) << output(r);
        const auto printed = selfru::entry_lines(r.out);
        ASSERT_EQ(printed.size(), json.size()) << r.out;
        for (size_t i = 0; i < printed.size(); ++i) selfru::expect_same_entry(printed[i], json[i]);
    }
}

TEST_F(SelFruIpmiSim, IpmitoolSelInfoShowsTheToolsFigures)
{
    std::string text;
    const auto json = ours(cli::add_sel_commands, {"sel", "info"}, &text);
    const auto r = selfru::ipmitool(peer, {"sel", "info"});
    ASSERT_EQ(r.exit_code, 0) << output(r);
    EXPECT_EQ(selfru::field(r.out, "Version").substr(0, 3), json["version"]);
    EXPECT_EQ(selfru::field(r.out, "Entries"), "5");
    EXPECT_EQ(json["entries"], 5);
    EXPECT_EQ(selfru::field(r.out, "Free Space"), std::to_string(json["free_space"].get<int>()) + " bytes");
    EXPECT_EQ(selfru::field(r.out, "Percent Used"), std::to_string(json["percent_used"].get<int>()) + "%");
    EXPECT_EQ(selfru::field(r.out, "Overflow"), json["overflow"].get<bool>() ? "true" : "false");
    EXPECT_EQ(selfru::field(r.out, "Supported Cmds"), selfru::field(text, "Supported Cmds"));
}

TEST_F(SelFruIpmiSim, FreeipmiSelShowsTheToolsEntries)
{
    const auto json = ours(cli::add_sel_commands, {"sel", "list"});
    const auto r = selfru::freeipmi(peer, "ipmi-sel",
                                    {"--ignore-sdr-cache", "--comma-separated-output", "--no-header-output", "-vv"},
                                    cache_.string());
    ASSERT_EQ(r.exit_code, 0) << output(r);
    const auto printed = selfru::lines(r.out);
    ASSERT_EQ(printed.size(), json.size()) << r.out;
    for (size_t i = 0; i < printed.size(); ++i) {
        const auto f = selfru::split(printed[i], ',');
        const auto &e = json[i];
        ASSERT_GE(f.size(), 7u) << printed[i];
        EXPECT_EQ(std::stoul(f[0]), e["record_id"].get<unsigned>());
        // ipmi_sim stamps its records with seconds since it started.
        EXPECT_EQ(f[1], "PostInit");
        EXPECT_EQ(e["timestamp"], nullptr);
        if (e["kind"] != "system_event") {
            EXPECT_EQ(f[4], "N/A");
            continue;
        }
        EXPECT_EQ(f[3], "Sensor #" + std::to_string(e["sensor_number"].get<int>()) + " (Generator ID 20h)");
        EXPECT_EQ(f[4], e["sensor_type"]);
        EXPECT_EQ(f[5], e["direction"] == "Asserted" ? "Assertion Event" : "Deassertion Event");
    }
}

TEST_F(SelFruIpmiSim, FreeipmiSelInfoShowsTheToolsFigures)
{
    const auto json = ours(cli::add_sel_commands, {"sel", "info"});
    const auto r = selfru::freeipmi(peer, "ipmi-sel", {"--ignore-sdr-cache", "--info"}, cache_.string());
    ASSERT_EQ(r.exit_code, 0) << output(r);
    EXPECT_EQ(selfru::field(r.out, "SEL version"), json["version"]);
    EXPECT_EQ(selfru::field(r.out, "Number of log entries"), std::to_string(json["entries"].get<int>()));
    EXPECT_EQ(selfru::field(r.out, "Free space remaining"), std::to_string(json["free_space"].get<int>()) + " bytes");
    EXPECT_EQ(selfru::field(r.out, "Delete SEL Command"), "supported");
    EXPECT_EQ(selfru::field(r.out, "Reserve SEL Command"), "supported");
    EXPECT_EQ(json["supported_commands"], (nlohmann::json{"Delete", "Reserve"}));
}

TEST_F(SelFruIpmiSim, IpmitoolFruPrintShowsTheToolsFields)
{
    std::string text;
    const auto json = ours(cli::add_fru_commands, {"fru", "print", "0"}, &text);
    EXPECT_TRUE(json["damage"].empty()) << json.dump();
    const auto r = selfru::ipmitool(peer, {"fru", "print", "0"});
    ASSERT_EQ(r.exit_code, 0) << output(r);
    size_t compared = 0;
    for (const std::string &line : selfru::lines(text)) {
        const size_t colon = line.find(" : ");
        std::string label = line.substr(0, colon);
        label.erase(0, label.find_first_not_of(' '));
        label.erase(label.find_last_not_of(' ') + 1);
        const std::string value = line.substr(colon + 3);
        if (label == "FRU Device Description") continue;
        const std::string theirs = selfru::field(r.out, label);
        if (label == "Board Mfg Date") {
            std::tm tm{};
            std::istringstream in(theirs);
            in >> std::get_time(&tm, "%a %b %d %H:%M:%S %Y");
            EXPECT_EQ(selfru::iso(tm), value) << theirs;
        } else {
            EXPECT_EQ(theirs, value) << label;
        }
        ++compared;
    }
    EXPECT_EQ(compared, 14u) << text;
    EXPECT_EQ(json["chassis"]["type"], "Main Server Chassis");
    EXPECT_EQ(json["product"]["serial"], "123456");
    EXPECT_EQ(json["product"]["asset_tag"], "ABCD");
}

TEST_F(SelFruIpmiSim, FreeipmiFruShowsTheToolsFields)
{
    const auto json = ours(cli::add_fru_commands, {"fru", "print"});
    const auto r = selfru::freeipmi(peer, "ipmi-fru", {"--ignore-sdr-cache", "--device-id=0"}, cache_.string());
    ASSERT_EQ(r.exit_code, 0) << output(r);
    // FreeIPMI prints an error for the BCD plus serial number; ipmitool's
    // reading of it is compared above.
    selfru::expect_ipmi_fru_fields(r.out, json, {"FRU Product Serial Number"});
}

TEST_F(SelFruIpmiSim, AMissingFruDeviceIsAnError)
{
    std::string error;
    EXPECT_FALSE(selfru::rmcpp(peer, cli::add_fru_commands, {"fru", "print", "9"}, error));
    EXPECT_NE(error.find("Get FRU Inventory Area Info"), std::string::npos) << error;
}

}  // namespace
