#include "lan_config.h"

#include <gtest/gtest.h>

#include <map>

#include "scripted_transport_testkit.h"

using namespace rmcpp::commands;
using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

TEST(GetLanConfig, BuildsRequest)
{
    EXPECT_EQ(build_get_lan_config(1, 3), (std::array<uint8_t, 4>{0x01, 0x03, 0x00, 0x00}));
    EXPECT_EQ(build_get_lan_config(0xF2, 23, 1, 2), (std::array<uint8_t, 4>{0x02, 23, 0x01, 0x02}));
}

TEST(GetLanConfig, DecodesRevisionAndData)
{
    const Bytes d = {0x11, 192, 168, 1, 10};
    auto r = decode_get_lan_config(d.data(), d.size());
    ASSERT_TRUE(r);
    EXPECT_EQ(r->revision, 0x11);
    EXPECT_EQ(r->data, (Bytes{192, 168, 1, 10}));
    EXPECT_FALSE(decode_get_lan_config(d.data(), 0));
}

TEST(LanParameters, AddressesAndSource)
{
    const Bytes ip = {10, 0, 0, 7};
    EXPECT_EQ(decode_lan_ipv4(ip.data(), 4), (Ipv4{10, 0, 0, 7}));
    EXPECT_FALSE(decode_lan_ipv4(ip.data(), 3));
    const Bytes mac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
    EXPECT_EQ(decode_lan_mac(mac.data(), 6), (Mac{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}));
    EXPECT_FALSE(decode_lan_mac(mac.data(), 7));
    const Bytes src = {0xF2};
    EXPECT_EQ(decode_lan_ip_source(src.data(), 1), std::optional<uint8_t>(2));
    EXPECT_STREQ(ip_source_text(1), "Static Address");
    EXPECT_STREQ(ip_source_text(2), "DHCP Address");
    EXPECT_STREQ(ip_source_text(7), "Other");
}

TEST(LanParameters, AuthenticationTypes)
{
    const Bytes support = {0x17};
    EXPECT_EQ(decode_lan_auth_type_support(support.data(), 1), std::optional<uint8_t>(0x17));
    EXPECT_EQ(auth_types_text(0x37), "NONE MD2 MD5 PASSWORD OEM");
    EXPECT_EQ(auth_types_text(0x14), "MD5 PASSWORD");
    EXPECT_EQ(auth_types_text(0), "");
    const Bytes enables = {0x01, 0x06, 0x14, 0x16, 0x00};
    auto e = decode_lan_auth_type_enables(enables.data(), enables.size());
    ASSERT_TRUE(e);
    EXPECT_EQ(e->callback, 0x01);
    EXPECT_EQ(e->user, 0x06);
    EXPECT_EQ(e->operator_, 0x14);
    EXPECT_EQ(e->admin, 0x16);
    EXPECT_EQ(e->oem, 0x00);
    EXPECT_FALSE(decode_lan_auth_type_enables(enables.data(), 4));
}

TEST(LanParameters, VlanId)
{
    const Bytes on = {0x2C, 0x81};
    auto v = decode_lan_vlan_id(on.data(), 2);
    ASSERT_TRUE(v);
    EXPECT_TRUE(v->enabled);
    EXPECT_EQ(v->id, 0x12C);
    const Bytes off = {0x00, 0x00};
    v = decode_lan_vlan_id(off.data(), 2);
    ASSERT_TRUE(v);
    EXPECT_FALSE(v->enabled);
    EXPECT_FALSE(decode_lan_vlan_id(on.data(), 1));
}

TEST(LanParameters, CipherSuites)
{
    const Bytes entries = {0x00, 0, 1, 2, 3, 17};
    EXPECT_EQ(decode_lan_cipher_suite_entries(entries.data(), entries.size()),
              std::optional<std::vector<uint8_t>>({0, 1, 2, 3, 17}));
    EXPECT_EQ(decode_lan_cipher_suite_entries(entries.data(), 1), std::optional<std::vector<uint8_t>>(std::vector<uint8_t>{}));
    EXPECT_FALSE(decode_lan_cipher_suite_entries(entries.data(), 0));
    const Bytes too_many(18, 0);
    EXPECT_FALSE(decode_lan_cipher_suite_entries(too_many.data(), too_many.size()));

    const Bytes privs = {0x00, 0x44, 0x34, 0x00, 0x00, 0x00, 0x00, 0x00, 0x52};
    auto p = decode_lan_cipher_suite_privileges(privs.data(), privs.size());
    ASSERT_TRUE(p);
    EXPECT_EQ((*p)[0], 4);
    EXPECT_EQ((*p)[1], 4);
    EXPECT_EQ((*p)[2], 4);
    EXPECT_EQ((*p)[3], 3);
    EXPECT_EQ((*p)[14], 2);
    EXPECT_EQ((*p)[15], 5);
    EXPECT_FALSE(decode_lan_cipher_suite_privileges(privs.data(), 8));
    const Bytes support = {0xE5};
    EXPECT_EQ(decode_lan_cipher_suite_entry_support(support.data(), 1), std::optional<uint8_t>(5));
    EXPECT_EQ(cipher_suite_privilege_letter(0), 'X');
    EXPECT_EQ(cipher_suite_privilege_letter(1), 'c');
    EXPECT_EQ(cipher_suite_privilege_letter(2), 'u');
    EXPECT_EQ(cipher_suite_privilege_letter(3), 'o');
    EXPECT_EQ(cipher_suite_privilege_letter(4), 'a');
    EXPECT_EQ(cipher_suite_privilege_letter(5), 'O');
}

namespace {

// A BMC with the given parameters; others are not supported.
ScriptedTransport bmc(std::map<uint8_t, Bytes> params)
{
    ScriptedTransport t;
    t.answer = [params](const Request &rq) -> Reply {
        auto it = params.find(rq.data.at(1));
        if (it == params.end()) return {0, 0x80, {}};
        Bytes d = {0x11};
        d.insert(d.end(), it->second.begin(), it->second.end());
        return {0, 0, d};
    };
    return t;
}

}  // namespace

TEST(LanPrint, ReadsEveryParameter)
{
    auto t = bmc({{0, {0x00}},
                  {1, {0x15}},
                  {2, {0x00, 0x04, 0x04, 0x14, 0x00}},
                  {3, {192, 168, 0, 9}},
                  {4, {0x01}},
                  {5, {0x02, 0x00, 0x00, 0xAA, 0xBB, 0xCC}},
                  {6, {255, 255, 255, 0}},
                  {12, {192, 168, 0, 1}},
                  {20, {0x05, 0x80}},
                  {22, {0x03}},
                  {23, {0x00, 1, 3, 17, 0}},
                  {24, {0x00, 0x34, 0x04, 0, 0, 0, 0, 0, 0}}});
    auto p = lan_print(t, 1);
    for (const auto &rq : t.asked) {
        EXPECT_EQ(rq.netfn, kTransportNetFn);
        EXPECT_EQ(rq.cmd, kGetLanConfigCmd);
        EXPECT_EQ(rq.data.at(0), 0x01);
    }
    EXPECT_EQ(p.set_in_progress.value, std::optional<uint8_t>(0));
    EXPECT_EQ(p.auth_type_support.value, std::optional<uint8_t>(0x15));
    ASSERT_TRUE(p.auth_type_enables.value);
    EXPECT_EQ(p.auth_type_enables.value->admin, 0x14);
    EXPECT_EQ(p.ip_address_source.value, std::optional<uint8_t>(1));
    EXPECT_EQ(p.ip_address.value, (Ipv4{192, 168, 0, 9}));
    EXPECT_EQ(p.subnet_mask.value, (Ipv4{255, 255, 255, 0}));
    EXPECT_EQ(p.mac_address.value, (Mac{0x02, 0x00, 0x00, 0xAA, 0xBB, 0xCC}));
    EXPECT_EQ(p.default_gateway.value, (Ipv4{192, 168, 0, 1}));
    ASSERT_TRUE(p.vlan_id.value);
    EXPECT_TRUE(p.vlan_id.value->enabled);
    EXPECT_EQ(p.vlan_id.value->id, 5);
    // Parameter 22 counts three of the four bytes after the reserved one.
    EXPECT_EQ(p.cipher_suites.value, (std::vector<uint8_t>{1, 3, 17}));
    ASSERT_TRUE(p.cipher_suite_privileges.value);
    EXPECT_EQ((*p.cipher_suite_privileges.value)[0], 4);
    EXPECT_EQ((*p.cipher_suite_privileges.value)[1], 3);
    EXPECT_EQ((*p.cipher_suite_privileges.value)[2], 4);
}

TEST(LanPrint, UnsupportedParametersAreShownAsSuch)
{
    auto t = bmc({{3, {10, 1, 2, 3}}});
    auto p = lan_print(t, 2);
    EXPECT_TRUE(p.ip_address.supported);
    EXPECT_EQ(p.ip_address.value, (Ipv4{10, 1, 2, 3}));
    EXPECT_FALSE(p.set_in_progress.supported);
    EXPECT_FALSE(p.mac_address.supported);
    EXPECT_FALSE(p.mac_address.value);
    EXPECT_FALSE(p.vlan_id.supported);
    EXPECT_FALSE(p.cipher_suites.supported);
    EXPECT_FALSE(p.cipher_suite_privileges.supported);
}

TEST(LanPrint, MalformedParameterThrows)
{
    auto t = bmc({{3, {10, 1, 2}}});
    try {
        lan_print(t, 1);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
        EXPECT_EQ(e.step, "Get LAN Configuration Parameters");
    }
}

TEST(LanPrint, OtherRefusalThrows)
{
    ScriptedTransport t;
    t.queue(0xCC);
    try {
        lan_print(t, 9);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.completion_code, 0xCC);
    }
}

TEST(LanPrint, EmptyAnswerThrows)
{
    ScriptedTransport t;
    t.queue(0x00, {});
    EXPECT_THROW(lan_print(t, 1), CommandError);
}
