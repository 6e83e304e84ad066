#include "boot_options.h"

#include "wire.h"

namespace rmcpp::commands {

using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

namespace {

struct DeviceName {
    const char *name;
    BootDevice device;
};

constexpr DeviceName kDeviceNames[] = {
    {"none", BootDevice::NoOverride}, {"pxe", BootDevice::Pxe},   {"disk", BootDevice::Disk},
    {"safe", BootDevice::DiskSafeMode}, {"diag", BootDevice::Diagnostic}, {"cdrom", BootDevice::CdDvd},
    {"bios", BootDevice::BiosSetup},
};

}  // namespace

std::optional<BootDevice> boot_device_from_name(const std::string &name)
{
    for (const auto &d : kDeviceNames)
        if (name == d.name) return d.device;
    return std::nullopt;
}

const char *boot_device_name(uint8_t selector)
{
    for (const auto &d : kDeviceNames)
        if (selector == static_cast<uint8_t>(d.device)) return d.name;
    switch (static_cast<BootDevice>(selector)) {
    case BootDevice::RemoteFloppy: return "remote-floppy";
    case BootDevice::RemoteCdDvd: return "remote-cdrom";
    case BootDevice::RemotePrimaryMedia: return "remote-primary";
    case BootDevice::RemoteDisk: return "remote-disk";
    case BootDevice::Floppy: return "floppy";
    default: return "reserved";
    }
}

const char *boot_device_text(uint8_t selector)
{
    switch (selector) {
    case 0x0: return "No override";
    case 0x1: return "Force PXE";
    case 0x2: return "Force Boot from default Hard-Drive";
    case 0x3: return "Force Boot from default Hard-Drive, request Safe-Mode";
    case 0x4: return "Force Boot from Diagnostic Partition";
    case 0x5: return "Force Boot from CD/DVD";
    case 0x6: return "Force Boot into BIOS Setup";
    case 0x7: return "Force Boot from remotely connected Floppy/primary removable media";
    case 0x8: return "Force Boot from remotely connected CD/DVD";
    case 0x9: return "Force Boot from primary remote media";
    case 0xB: return "Force Boot from remotely connected Hard-Drive";
    case 0xF: return "Force Boot from Floppy/primary removable media";
    default: return "Reserved";
    }
}

std::optional<BootFlags> decode_boot_flags(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    const uint8_t d1 = r.u8(), d2 = r.u8(), d3 = r.u8(), d4 = r.u8(), d5 = r.u8();
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    BootFlags f;
    f.valid = (d1 & 0x80) != 0;
    f.persistent = (d1 & 0x40) != 0;
    f.efi = (d1 & 0x20) != 0;
    f.cmos_clear = (d2 & 0x80) != 0;
    f.lock_keyboard = (d2 & 0x40) != 0;
    f.device = (d2 >> 2) & 0x0F;
    f.screen_blank = (d2 & 0x02) != 0;
    f.lock_reset = (d2 & 0x01) != 0;
    f.lock_power = (d3 & 0x80) != 0;
    f.verbosity = (d3 >> 5) & 0x03;
    f.progress_traps = (d3 & 0x10) != 0;
    f.password_bypass = (d3 & 0x08) != 0;
    f.lock_sleep = (d3 & 0x04) != 0;
    f.console_redirection = d3 & 0x03;
    f.bios_shared_mode = (d4 & 0x08) != 0;
    f.bios_mux = d4 & 0x07;
    f.device_instance = d5 & 0x1F;
    return f;
}

std::array<uint8_t, kBootFlagsSize> encode_boot_flags(const BootFlags &f)
{
    std::array<uint8_t, kBootFlagsSize> out{};
    Writer w(out.data(), out.size());
    w.u8(static_cast<uint8_t>((f.valid ? 0x80 : 0) | (f.persistent ? 0x40 : 0) | (f.efi ? 0x20 : 0)));
    w.u8(static_cast<uint8_t>((f.cmos_clear ? 0x80 : 0) | (f.lock_keyboard ? 0x40 : 0) | ((f.device & 0x0F) << 2) |
                              (f.screen_blank ? 0x02 : 0) | (f.lock_reset ? 0x01 : 0)));
    w.u8(static_cast<uint8_t>((f.lock_power ? 0x80 : 0) | ((f.verbosity & 0x03) << 5) | (f.progress_traps ? 0x10 : 0) |
                              (f.password_bypass ? 0x08 : 0) | (f.lock_sleep ? 0x04 : 0) |
                              (f.console_redirection & 0x03)));
    w.u8(static_cast<uint8_t>((f.bios_shared_mode ? 0x08 : 0) | (f.bios_mux & 0x07)));
    w.u8(f.device_instance & 0x1F);
    return out;
}

const char *verbosity_text(uint8_t verbosity)
{
    switch (verbosity & 0x03) {
    case 0: return "System Default";
    case 1: return "Request Quiet Display";
    case 2: return "Request Verbose Display";
    default: return "Flag error";
    }
}

const char *console_redirection_text(uint8_t control)
{
    switch (control & 0x03) {
    case 0: return "Console redirection occurs per BIOS configuration setting (default)";
    case 1: return "Suppress (skip) console redirection if enabled";
    case 2: return "Request console redirection be enabled";
    default: return "Flag error";
    }
}

const char *bios_mux_text(uint8_t mux)
{
    switch (mux & 0x07) {
    case 0: return "BIOS uses recommended setting of the mux at the end of POST";
    case 1: return "Requests BIOS to force mux to BMC at conclusion of POST/start of OS boot";
    case 2: return "Requests BIOS to force mux to system at conclusion of POST/start of OS boot";
    default: return "Flag error";
    }
}

std::optional<SetInProgress> decode_set_in_progress(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    const uint8_t b = r.u8();
    if (!r.ok() || r.remaining() != 0) return std::nullopt;
    return static_cast<SetInProgress>(b & 0x03);
}

const char *set_in_progress_text(SetInProgress state)
{
    switch (state) {
    case SetInProgress::SetComplete: return "Set Complete";
    case SetInProgress::SetInProgress: return "Set In Progress";
    case SetInProgress::CommitWrite: return "Commit Write";
    case SetInProgress::Reserved: break;
    }
    return "Reserved";
}

Bytes build_get_system_boot_options(uint8_t parameter, uint8_t set_selector, uint8_t block_selector)
{
    Bytes out(3);
    Writer w(out.data(), out.size());
    w.u8(parameter & 0x7F).u8(set_selector).u8(block_selector);
    return out;
}

std::optional<BootOptionsResponse> decode_get_system_boot_options(const uint8_t *data, size_t length)
{
    if (!data) return std::nullopt;
    Reader r(data, length);
    BootOptionsResponse resp;
    resp.version = r.u8();
    const uint8_t valid = r.u8();
    if (!r.ok()) return std::nullopt;
    resp.locked = (valid & 0x80) != 0;
    resp.parameter = valid & 0x7F;
    resp.data.resize(r.remaining());
    r.bytes(resp.data.data(), resp.data.size());
    if (!r.ok()) return std::nullopt;
    return resp;
}

Bytes build_set_system_boot_options(uint8_t parameter, const uint8_t *data, size_t length, bool mark_invalid)
{
    Bytes out(1 + length);
    Writer w(out.data(), out.size());
    w.u8(static_cast<uint8_t>((mark_invalid ? 0x80 : 0) | (parameter & 0x7F)));
    if (length) w.bytes(data, length);
    return out;
}

BootParameter get_boot_param(Transport &t, uint8_t parameter)
{
    const std::string step = "Get System Boot Options";
    const Bytes data = call(t, step, kChassisNetFn, kGetSystemBootOptionsCmd, build_get_system_boot_options(parameter));
    auto resp = decode_get_system_boot_options(data.data(), data.size());
    auto malformed = [&](const std::string &why) {
        return CommandError(CommandError::Kind::malformed, step, 0, 0, step + ": " + why);
    };
    if (!resp) throw malformed("response shorter than 2 bytes");
    if (resp->parameter != (parameter & 0x7F))
        throw malformed("answered parameter " + std::to_string(resp->parameter) + " for " +
                        std::to_string(parameter));
    BootParameter out;
    out.response = *resp;
    if (parameter == kBootParamSetInProgress) {
        out.set_in_progress = decode_set_in_progress(resp->data.data(), resp->data.size());
        if (!out.set_in_progress) throw malformed("set in progress is not 1 byte");
    } else if (parameter == kBootParamBootFlags) {
        out.boot_flags = decode_boot_flags(resp->data.data(), resp->data.size());
        if (!out.boot_flags) throw malformed("boot flags are not 5 bytes");
    }
    return out;
}

namespace {

void set_param(Transport &t, uint8_t parameter, const uint8_t *data, size_t length)
{
    call(t, "Set System Boot Options", kChassisNetFn, kSetSystemBootOptionsCmd,
         build_set_system_boot_options(parameter, data, length));
}

void set_progress(Transport &t, SetInProgress state)
{
    const uint8_t b = static_cast<uint8_t>(state);
    set_param(t, kBootParamSetInProgress, &b, 1);
}

bool is_refusal(const CommandError &e)
{
    return e.kind == CommandError::Kind::completion_code &&
           (e.completion_code == kCcBootParameterNotSupported || e.completion_code == 0xCC);
}

}  // namespace

void set_boot_device(Transport &t, BootDevice device, bool persistent, bool efi)
{
    bool handshake = true;
    try {
        set_progress(t, SetInProgress::SetInProgress);
    } catch (const CommandError &e) {
        if (!is_refusal(e)) throw;
        handshake = false;  // no set-in-progress parameter on this BMC
    }
    BootFlags flags;
    flags.valid = true;
    flags.persistent = persistent;
    flags.efi = efi;
    flags.device = static_cast<uint8_t>(device);
    const auto bytes = encode_boot_flags(flags);
    try {
        set_param(t, kBootParamBootFlags, bytes.data(), bytes.size());
        if (handshake) {
            try {
                set_progress(t, SetInProgress::CommitWrite);
            } catch (const CommandError &e) {
                if (!is_refusal(e)) throw;  // commit write is optional
            }
        }
    } catch (const CommandError &) {
        if (handshake) {
            try {
                set_progress(t, SetInProgress::SetComplete);
            } catch (const CommandError &) {
                // the first failure is the one reported
            }
        }
        throw;
    }
    if (handshake) set_progress(t, SetInProgress::SetComplete);
}

}  // namespace rmcpp::commands
