#include "boot_options.h"

#include <gtest/gtest.h>

#include "scripted_transport_testkit.h"

using namespace rmcpp::commands;
using rmcpp::commands::testkit::Request;
using rmcpp::commands::testkit::ScriptedTransport;

namespace {

Request set_request(Bytes data) { return {kChassisNetFn, kSetSystemBootOptionsCmd, std::move(data)}; }

}  // namespace

TEST(BootFlags, DecodesEveryField)
{
    const Bytes d = {0xE0, 0xD7, 0xDF, 0x0A, 0x1F};
    auto f = decode_boot_flags(d.data(), d.size());
    ASSERT_TRUE(f);
    EXPECT_TRUE(f->valid);
    EXPECT_TRUE(f->persistent);
    EXPECT_TRUE(f->efi);
    EXPECT_TRUE(f->cmos_clear);
    EXPECT_TRUE(f->lock_keyboard);
    EXPECT_EQ(f->device, 0x5);
    EXPECT_TRUE(f->screen_blank);
    EXPECT_TRUE(f->lock_reset);
    EXPECT_TRUE(f->lock_power);
    EXPECT_EQ(f->verbosity, 2);
    EXPECT_TRUE(f->progress_traps);
    EXPECT_TRUE(f->password_bypass);
    EXPECT_TRUE(f->lock_sleep);
    EXPECT_EQ(f->console_redirection, 3);
    EXPECT_TRUE(f->bios_shared_mode);
    EXPECT_EQ(f->bios_mux, 2);
    EXPECT_EQ(f->device_instance, 0x1F);
}

TEST(BootFlags, NextBootPxeLegacy)
{
    const Bytes d = {0x80, 0x04, 0x00, 0x00, 0x00};
    auto f = decode_boot_flags(d.data(), d.size());
    ASSERT_TRUE(f);
    EXPECT_TRUE(f->valid);
    EXPECT_FALSE(f->persistent);
    EXPECT_FALSE(f->efi);
    EXPECT_EQ(f->device, static_cast<uint8_t>(BootDevice::Pxe));
    EXPECT_EQ(encode_boot_flags(*f), (std::array<uint8_t, 5>{0x80, 0x04, 0x00, 0x00, 0x00}));
}

TEST(BootFlags, EncodeIsDecodesTwin)
{
    const Bytes d = {0xE0, 0xD7, 0xDF, 0x0A, 0x1F};
    auto f = decode_boot_flags(d.data(), d.size());
    ASSERT_TRUE(f);
    const auto back = encode_boot_flags(*f);
    EXPECT_EQ(Bytes(back.begin(), back.end()), d);
}

TEST(BootFlags, RefusesWrongLengths)
{
    const Bytes d = {0x80, 0x04, 0x00, 0x00, 0x00, 0x00};
    for (size_t n = 0; n < d.size(); ++n)
        if (n != 5) {
            EXPECT_FALSE(decode_boot_flags(d.data(), n)) << n;
        }
    EXPECT_FALSE(decode_boot_flags(d.data(), d.size()));
    EXPECT_FALSE(decode_boot_flags(nullptr, 5));
}

TEST(BootDevice, NamesAndSelectors)
{
    EXPECT_EQ(boot_device_from_name("pxe"), BootDevice::Pxe);
    EXPECT_EQ(boot_device_from_name("disk"), BootDevice::Disk);
    EXPECT_EQ(boot_device_from_name("safe"), BootDevice::DiskSafeMode);
    EXPECT_EQ(boot_device_from_name("diag"), BootDevice::Diagnostic);
    EXPECT_EQ(boot_device_from_name("cdrom"), BootDevice::CdDvd);
    EXPECT_EQ(boot_device_from_name("bios"), BootDevice::BiosSetup);
    EXPECT_EQ(boot_device_from_name("none"), BootDevice::NoOverride);
    EXPECT_FALSE(boot_device_from_name("floppy"));
    EXPECT_FALSE(boot_device_from_name("PXE"));
    EXPECT_STREQ(boot_device_name(0x1), "pxe");
    EXPECT_STREQ(boot_device_name(0xA), "reserved");
    EXPECT_STREQ(boot_device_text(0x1), "Force PXE");
    EXPECT_STREQ(boot_device_text(0x0), "No override");
}

TEST(SetInProgress, DecodesBits)
{
    const Bytes d = {0xFE};
    EXPECT_EQ(decode_set_in_progress(d.data(), 1), SetInProgress::CommitWrite);
    EXPECT_FALSE(decode_set_in_progress(d.data(), 0));
    const Bytes two = {0x01, 0x00};
    EXPECT_FALSE(decode_set_in_progress(two.data(), 2));
}

TEST(GetSystemBootOptions, BuildsAndDecodes)
{
    EXPECT_EQ(build_get_system_boot_options(5), (Bytes{0x05, 0x00, 0x00}));
    EXPECT_EQ(build_get_system_boot_options(0x85, 1, 2), (Bytes{0x05, 0x01, 0x02}));
    const Bytes d = {0x01, 0x85, 0x80, 0x08, 0x00, 0x00, 0x00};
    auto r = decode_get_system_boot_options(d.data(), d.size());
    ASSERT_TRUE(r);
    EXPECT_EQ(r->version, 1);
    EXPECT_TRUE(r->locked);
    EXPECT_EQ(r->parameter, 5);
    EXPECT_EQ(r->data, (Bytes{0x80, 0x08, 0x00, 0x00, 0x00}));
    EXPECT_FALSE(decode_get_system_boot_options(d.data(), 1));
}

TEST(SetSystemBootOptions, Builds)
{
    const uint8_t flags[5] = {0xC0, 0x08, 0, 0, 0};
    EXPECT_EQ(build_set_system_boot_options(5, flags, 5), (Bytes{0x05, 0xC0, 0x08, 0, 0, 0}));
    const uint8_t one = 0x01;
    EXPECT_EQ(build_set_system_boot_options(0, &one, 1, true), (Bytes{0x80, 0x01}));
}

TEST(GetBootParam, ReadsBootFlags)
{
    ScriptedTransport t;
    t.queue(0x00, {0x01, 0x05, 0xA0, 0x18, 0x00, 0x00, 0x00});
    auto p = get_boot_param(t, 5);
    ASSERT_EQ(t.asked.size(), 1u);
    EXPECT_EQ(t.asked[0], (Request{kChassisNetFn, kGetSystemBootOptionsCmd, {0x05, 0x00, 0x00}}));
    ASSERT_TRUE(p.boot_flags);
    EXPECT_TRUE(p.boot_flags->efi);
    EXPECT_EQ(p.boot_flags->device, static_cast<uint8_t>(BootDevice::BiosSetup));
    EXPECT_FALSE(p.response.locked);
}

TEST(GetBootParam, ShortBootFlagsAreMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x01, 0x05, 0x80, 0x04});
    try {
        get_boot_param(t, 5);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::malformed);
        EXPECT_EQ(e.step, "Get System Boot Options");
    }
}

TEST(GetBootParam, OtherParameterAnsweredIsMalformed)
{
    ScriptedTransport t;
    t.queue(0x00, {0x01, 0x04, 0x00, 0x00});
    EXPECT_THROW(get_boot_param(t, 5), CommandError);
}

TEST(GetBootParam, UnsupportedParameterThrowsCompletionCode)
{
    ScriptedTransport t;
    t.queue(0x80);
    try {
        get_boot_param(t, 5);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::completion_code);
        EXPECT_EQ(e.completion_code, 0x80);
    }
}

TEST(SetBootDevice, HandshakeAroundTheBootFlags)
{
    ScriptedTransport t;
    for (int i = 0; i < 4; ++i) t.queue(0x00);
    set_boot_device(t, BootDevice::Pxe, true, true);
    ASSERT_EQ(t.asked.size(), 4u);
    EXPECT_EQ(t.asked[0], set_request({0x00, 0x01}));
    EXPECT_EQ(t.asked[1], set_request({0x05, 0xE0, 0x04, 0x00, 0x00, 0x00}));
    EXPECT_EQ(t.asked[2], set_request({0x00, 0x02}));
    EXPECT_EQ(t.asked[3], set_request({0x00, 0x00}));
}

TEST(SetBootDevice, NextBootOnlyLegacyNone)
{
    ScriptedTransport t;
    for (int i = 0; i < 4; ++i) t.queue(0x00);
    set_boot_device(t, BootDevice::NoOverride, false, false);
    ASSERT_EQ(t.asked.size(), 4u);
    EXPECT_EQ(t.asked[1], set_request({0x05, 0x80, 0x00, 0x00, 0x00, 0x00}));
}

TEST(SetBootDevice, CommitWriteRefusedStillCompletes)
{
    ScriptedTransport t;
    t.queue(0x00);
    t.queue(0x00);
    t.queue(0x80);
    t.queue(0x00);
    set_boot_device(t, BootDevice::Disk, false, false);
    ASSERT_EQ(t.asked.size(), 4u);
    EXPECT_EQ(t.asked[3], set_request({0x00, 0x00}));
}

TEST(SetBootDevice, FailedWriteStillLeavesSetComplete)
{
    ScriptedTransport t;
    t.queue(0x00);
    t.queue(0xD5);  // not supported in present state
    t.queue(0x00);
    try {
        set_boot_device(t, BootDevice::CdDvd, false, false);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.completion_code, 0xD5);
        EXPECT_EQ(e.step, "Set System Boot Options");
    }
    ASSERT_EQ(t.asked.size(), 3u);
    EXPECT_EQ(t.asked[2], set_request({0x00, 0x00}));
}

TEST(SetBootDevice, LostExchangeReportsTheFirstFailure)
{
    ScriptedTransport t;
    t.queue(0x00);
    t.replies.push_back({-3, 0, {}});
    // nothing queued: the set-complete exchange fails too
    try {
        set_boot_device(t, BootDevice::Diagnostic, false, false);
        FAIL() << "no error";
    } catch (const CommandError &e) {
        EXPECT_EQ(e.kind, CommandError::Kind::exchange);
        EXPECT_EQ(e.result, -3);
    }
    ASSERT_EQ(t.asked.size(), 3u);
    EXPECT_EQ(t.asked[2], set_request({0x00, 0x00}));
}

TEST(SetBootDevice, WithoutSetInProgressWritesFlagsAlone)
{
    ScriptedTransport t;
    t.queue(0x80);
    t.queue(0x00);
    set_boot_device(t, BootDevice::BiosSetup, true, false);
    ASSERT_EQ(t.asked.size(), 2u);
    EXPECT_EQ(t.asked[1], set_request({0x05, 0xC0, 0x18, 0x00, 0x00, 0x00}));
}

TEST(SetBootDevice, OtherRefusalOfSetInProgressStops)
{
    ScriptedTransport t;
    t.queue(0x81);  // set in progress already
    EXPECT_THROW(set_boot_device(t, BootDevice::Pxe, false, false), CommandError);
    EXPECT_EQ(t.asked.size(), 1u);
}

TEST(BootFlagWords, ValuesWithoutMeaningAreFlagErrors)
{
    EXPECT_STREQ(verbosity_text(1), "Request Quiet Display");
    EXPECT_STREQ(verbosity_text(3), "Flag error");
    EXPECT_STREQ(console_redirection_text(1), "Suppress (skip) console redirection if enabled");
    EXPECT_STREQ(console_redirection_text(3), "Flag error");
    EXPECT_STREQ(bios_mux_text(2), "Requests BIOS to force mux to system at conclusion of POST/start of OS boot");
    EXPECT_STREQ(bios_mux_text(3), "Flag error");
    EXPECT_STREQ(bios_mux_text(7), "Flag error");
}
