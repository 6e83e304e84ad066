#include <gtest/gtest.h>

#include "fru_area.h"
#include "runner_testkit.h"
#include "scripted_transport_testkit.h"

namespace {

using rmcpp::commands::Bytes;
using rmcpp::commands::Reply;
using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

std::vector<uint8_t> sample_image()
{
    rmcpp::commands::FruContents c;
    c.chassis = rmcpp::commands::FruChassisFields{0x17, "CH-PART-1", "CH-SER-1"};
    // 1997-05-23T07:28:00Z
    c.board = rmcpp::commands::FruBoardFields{0x0B2B40, "Acme", "Board X", "BSN-1", "BPN-1", ""};
    c.product = rmcpp::commands::FruProductFields{"Acme", "Server Y", "PPN-1", "1.0", "PSN-1", "Asset-7", ""};
    return *rmcpp::commands::encode_fru(c);
}

// Answers Get FRU Inventory Area Info and Read FRU Data from an image.
std::function<Reply(const Request &)> device(std::vector<uint8_t> image)
{
    return [image](const Request &rq) -> Reply {
        if (rq.cmd == 0x10) return {0, 0, {static_cast<uint8_t>(image.size()), static_cast<uint8_t>(image.size() >> 8), 0}};
        const size_t offset = rq.data.at(1) | (rq.data.at(2) << 8);
        const size_t n = std::min<size_t>(rq.data.at(3), image.size() - offset);
        Bytes d{static_cast<uint8_t>(n)};
        d.insert(d.end(), image.begin() + offset, image.begin() + offset + n);
        return {0, 0, d};
    };
}

struct FruPrint : ::testing::Test {
    ScriptedTransport t;
    cli::testkit::CapturingRunner runner{t};
    CLI::App app;
    FruPrint() { cli::add_fru_commands(app, runner); }
};

TEST_F(FruPrint, PrintsIpmitoolsLayoutAndTheSameValuesAsJson)
{
    t.answer = device(sample_image());
    cli::testkit::parse(app, {"fru", "print"});
    ASSERT_TRUE(runner.printed) << (runner.error ? runner.error->what() : "");
    EXPECT_EQ(runner.printed->text,
              "FRU Device Description : Builtin FRU Device (ID 0)\n"
              " Chassis Type          : Rack Mount Chassis\n"
              " Chassis Part Number   : CH-PART-1\n"
              " Chassis Serial        : CH-SER-1\n"
              " Board Mfg Date        : 1997-05-23T07:28:00Z\n"
              " Board Mfg             : Acme\n"
              " Board Product         : Board X\n"
              " Board Serial          : BSN-1\n"
              " Board Part Number     : BPN-1\n"
              " Product Manufacturer  : Acme\n"
              " Product Name          : Server Y\n"
              " Product Part Number   : PPN-1\n"
              " Product Version       : 1.0\n"
              " Product Serial        : PSN-1\n"
              " Product Asset Tag     : Asset-7\n");
    const auto &j = runner.printed->json;
    EXPECT_EQ(j["device_id"], 0);
    EXPECT_EQ(j["chassis"]["type"], "Rack Mount Chassis");
    EXPECT_EQ(j["chassis"]["type_code"], 0x17);
    EXPECT_EQ(j["chassis"]["part_number"], "CH-PART-1");
    EXPECT_EQ(j["chassis"]["serial"], "CH-SER-1");
    EXPECT_EQ(j["board"]["mfg_date"], "1997-05-23T07:28:00Z");
    EXPECT_EQ(j["board"]["manufacturer"], "Acme");
    EXPECT_EQ(j["board"]["product"], "Board X");
    EXPECT_EQ(j["board"]["serial"], "BSN-1");
    EXPECT_EQ(j["board"]["part_number"], "BPN-1");
    EXPECT_EQ(j["product"]["manufacturer"], "Acme");
    EXPECT_EQ(j["product"]["name"], "Server Y");
    EXPECT_EQ(j["product"]["part_number"], "PPN-1");
    EXPECT_EQ(j["product"]["version"], "1.0");
    EXPECT_EQ(j["product"]["serial"], "PSN-1");
    EXPECT_EQ(j["product"]["asset_tag"], "Asset-7");
    EXPECT_TRUE(j["damage"].empty());
    EXPECT_EQ(runner.sessions, (std::vector<std::string>{"fru print"}));
}

TEST_F(FruPrint, AsksTheDeviceGiven)
{
    t.answer = device(sample_image());
    cli::testkit::parse(app, {"fru", "print", "7"});
    ASSERT_TRUE(runner.printed);
    EXPECT_EQ(t.asked.at(0), (Request{0x0A, 0x10, {7}}));
    EXPECT_EQ(runner.printed->text.substr(0, 40), "FRU Device Description : FRU Device (ID ");
    EXPECT_EQ(runner.printed->json["device_id"], 7);
}

TEST_F(FruPrint, AnIdOutOfRangeIsAUsageError)
{
    for (const char *bad : {"255", "-1", "x", "3a", ""}) {
        ScriptedTransport none;
        cli::testkit::CapturingRunner r{none};
        CLI::App a;
        cli::add_fru_commands(a, r);
        cli::testkit::parse(a, {"fru", "print", bad});
        EXPECT_TRUE(r.usage) << bad;
        EXPECT_EQ(r.exit_status(), 2) << bad;
        EXPECT_TRUE(r.sessions.empty()) << bad;
    }
    cli::testkit::parse(app, {"fru", "print", "0x10"});
    EXPECT_FALSE(runner.usage);
    EXPECT_EQ(t.asked.at(0).data, (Bytes{0x10}));
}

TEST_F(FruPrint, ADamagedAreaIsShownAndTheRestStillPrinted)
{
    auto image = sample_image();
    image.back() ^= 0xFF;  // product area checksum
    t.answer = device(image);
    cli::testkit::parse(app, {"fru", "print"});
    ASSERT_TRUE(runner.printed);
    EXPECT_EQ(runner.exit_status(), 0);
    const std::string &text = runner.printed->text;
    EXPECT_NE(text.find(" Board Mfg             : Acme\n"), std::string::npos);
    EXPECT_NE(text.find(" Damaged product area: checksum is wrong (byte " + std::to_string(image.size() - 1) + ")\n"),
              std::string::npos);
    const auto &damage = runner.printed->json["damage"];
    ASSERT_EQ(damage.size(), 1u);
    EXPECT_EQ(damage[0]["area"], "product");
    EXPECT_EQ(damage[0]["problem"], "bad_checksum");
    EXPECT_EQ(damage[0]["offset"], image.size() - 1);
}

TEST_F(FruPrint, OnlyTheAreasPresentArePrinted)
{
    rmcpp::commands::FruContents c;
    c.board = rmcpp::commands::FruBoardFields{0, "M", "P", "S", "N", ""};
    t.answer = device(*rmcpp::commands::encode_fru(c));
    cli::testkit::parse(app, {"fru", "print"});
    ASSERT_TRUE(runner.printed);
    EXPECT_EQ(runner.printed->text,
              "FRU Device Description : Builtin FRU Device (ID 0)\n"
              " Board Mfg Date        : Unspecified\n"
              " Board Mfg             : M\n"
              " Board Product         : P\n"
              " Board Serial          : S\n"
              " Board Part Number     : N\n");
    EXPECT_EQ(runner.printed->json["chassis"], nullptr);
    EXPECT_EQ(runner.printed->json["product"], nullptr);
    EXPECT_EQ(runner.printed->json["board"]["mfg_date"], nullptr);
}

TEST_F(FruPrint, ARefusedDeviceIsAnError)
{
    t.queue(0xCB);
    cli::testkit::parse(app, {"fru", "print", "3"});
    EXPECT_FALSE(runner.printed);
    ASSERT_TRUE(runner.error);
    EXPECT_EQ(runner.error->completion_code, 0xCB);
}

}  // namespace
