// The simulator's platform-file sections for boot options and LAN
// parameters, loaded from YAML strings.
#include <gtest/gtest.h>

#include <yaml-cpp/yaml.h>

#include <stdexcept>

#include "bmcsim.h"
#include "platform_admin.h"

namespace {

std::string error_of(void (*load)(const YAML::Node &, bmcsim::Config &), const std::string &yaml)
{
    bmcsim::Config c;
    try {
        load(YAML::Load(yaml), c);
    } catch (const std::runtime_error &e) {
        return e.what();
    }
    return "no error";
}

TEST(PlatformBoot, SetsTheBootFlags)
{
    bmcsim::Config c;
    bmcsim::load_boot(YAML::Load("device: pxe\nvalid: true\npersistent: true\nefi: true\n"), c);
    EXPECT_EQ(c.boot.boot_flags, (std::array<uint8_t, 5>{0xE0, 0x04, 0x00, 0x00, 0x00}));
    bmcsim::load_boot(YAML::Load("device: bios\npersistent: false\nefi: false\n"), c);
    EXPECT_EQ(c.boot.boot_flags, (std::array<uint8_t, 5>{0x80, 0x18, 0x00, 0x00, 0x00}));
}

TEST(PlatformBoot, ErrorsNameTheLine)
{
    EXPECT_EQ(error_of(bmcsim::load_boot, "valid: true\ndevice: floppy\n"),
              "line 2: boot device: expected none, pxe, disk, safe, diag, cdrom or bios");
    EXPECT_EQ(error_of(bmcsim::load_boot, "efi: maybe\n"), "line 1: efi: expected true or false");
    EXPECT_EQ(error_of(bmcsim::load_boot, "device: pxe\n\nwhen: now\n"), "line 3: boot: unknown key 'when'");
    EXPECT_EQ(error_of(bmcsim::load_boot, "- pxe\n"), "line 1: boot: expected a mapping");
}

TEST(PlatformLan, SetsEveryParameter)
{
    bmcsim::Config c;
    bmcsim::load_lan(YAML::Load("ip_source: dhcp\n"
                                "ip_address: 10.1.2.3\n"
                                "subnet_mask: 255.255.0.0\n"
                                "default_gateway: 10.1.0.1\n"
                                "mac_address: 02:AB:cd:00:11:22\n"
                                "vlan_id: 4095\n"
                                "auth_type_support: [none, md2, md5, password, oem]\n"
                                "auth_type_enables: {callback: [], user: [md5], admin: [password, none]}\n"
                                "cipher_suite_privileges: {3: operator, 17: user}\n"),
                     c);
    EXPECT_EQ(c.lan.ip_source, 2);
    ASSERT_TRUE(c.lan.ip_address);
    EXPECT_EQ(*c.lan.ip_address, (std::array<uint8_t, 4>{10, 1, 2, 3}));
    EXPECT_EQ(c.lan.subnet_mask, (std::array<uint8_t, 4>{255, 255, 0, 0}));
    EXPECT_EQ(c.lan.default_gateway, (std::array<uint8_t, 4>{10, 1, 0, 1}));
    EXPECT_EQ(c.lan.mac_address, (std::array<uint8_t, 6>{0x02, 0xAB, 0xCD, 0x00, 0x11, 0x22}));
    EXPECT_EQ(c.lan.vlan_id, 4095);
    EXPECT_EQ(c.lan.auth_type_support, 0x37);
    // operator and OEM keep their defaults.
    EXPECT_EQ(c.lan.auth_type_enables, (std::array<uint8_t, 5>{0x00, 0x04, 0x15, 0x11, 0x00}));
    EXPECT_EQ(c.lan.cipher_suite_privileges, (std::vector<std::pair<int, uint8_t>>{{3, 3}, {17, 2}}));
}

TEST(PlatformLan, ErrorsNameTheLine)
{
    EXPECT_EQ(error_of(bmcsim::load_lan, "subnet_mask: 255.255.0.0\nip_address: 10.1.2\n"),
              "line 2: ip_address: '10.1.2' is not an IPv4 address");
    EXPECT_EQ(error_of(bmcsim::load_lan, "ip_address: 10.1.2.300\n"),
              "line 1: ip_address: '10.1.2.300' is not an IPv4 address");
    EXPECT_EQ(error_of(bmcsim::load_lan, "mac_address: 02:00:00:00:00\n"),
              "line 1: mac_address: '02:00:00:00:00' is not a MAC address (xx:xx:xx:xx:xx:xx)");
    EXPECT_EQ(error_of(bmcsim::load_lan, "\n\nvlan_id: 4096\n"), "line 3: vlan_id: expected 0 (disabled) to 4095");
    EXPECT_EQ(error_of(bmcsim::load_lan, "ip_source: manual\n"),
              "line 1: ip_source: expected static, dhcp, bios, other or unspecified");
    EXPECT_EQ(error_of(bmcsim::load_lan, "auth_type_support:\n  - md5\n  - rsa\n"),
              "line 3: auth_type_support: unknown authentication type 'rsa'");
    EXPECT_EQ(error_of(bmcsim::load_lan, "auth_type_enables: {root: [md5]}\n"),
              "line 1: auth_type_enables: unknown level 'root'");
    EXPECT_EQ(error_of(bmcsim::load_lan, "cipher_suite_privileges:\n  3: king\n"),
              "line 2: cipher suite 3: expected unused, callback, user, operator, administrator or oem");
    EXPECT_EQ(error_of(bmcsim::load_lan, "gateway: 1.2.3.4\n"), "line 1: lan: unknown key 'gateway'");
}

TEST(PlatformAdminSample, LoadsBothSections)
{
    const YAML::Node file = YAML::LoadFile(RMCPP_SAMPLE_PLATFORM_ADMIN);
    bmcsim::Config c;
    bmcsim::load_boot(file["boot"], c);
    bmcsim::load_lan(file["lan"], c);
    EXPECT_EQ(c.boot.boot_flags, (std::array<uint8_t, 5>{}));
    EXPECT_FALSE(c.lan.ip_address);
    EXPECT_EQ(c.lan.default_gateway, (std::array<uint8_t, 4>{192, 168, 0, 1}));
    EXPECT_EQ(c.lan.auth_type_enables, (std::array<uint8_t, 5>{0x04, 0x14, 0x14, 0x15, 0x00}));
    EXPECT_EQ(c.lan.cipher_suite_privileges, (std::vector<std::pair<int, uint8_t>>{{3, 4}, {17, 4}}));
}

}  // namespace
