// chassis bootdev DEVICE [--persistent] [--efi] and chassis bootparam get N.
#include <cctype>
#include <cstdio>

#include "boot_options.h"
#include "options.h"
#include "runner.h"

namespace cli {

namespace {

using namespace rmcpp::commands;

std::string hex_bytes(const Bytes &b)
{
    std::string s;
    char two[3];
    for (uint8_t x : b) {
        std::snprintf(two, sizeof two, "%02x", x);
        s += two;
    }
    return s;
}

nlohmann::json boot_flags_json(const BootFlags &f)
{
    return {{"valid", f.valid},
            {"persistent", f.persistent},
            {"efi", f.efi},
            {"boot_device", boot_device_name(f.device)},
            {"boot_device_selector", f.device},
            {"boot_device_text", boot_device_text(f.device)},
            {"cmos_clear", f.cmos_clear},
            {"lock_keyboard", f.lock_keyboard},
            {"screen_blank", f.screen_blank},
            {"lock_reset_button", f.lock_reset},
            {"lock_power_button", f.lock_power},
            {"lock_sleep_button", f.lock_sleep},
            {"verbosity", f.verbosity},
            {"verbosity_text", verbosity_text(f.verbosity)},
            {"force_progress_event_traps", f.progress_traps},
            {"user_password_bypass", f.password_bypass},
            {"console_redirection", f.console_redirection},
            {"console_redirection_text", console_redirection_text(f.console_redirection)},
            {"bios_shared_mode_override", f.bios_shared_mode},
            {"bios_mux_control", f.bios_mux},
            {"bios_mux_control_text", bios_mux_text(f.bios_mux)},
            {"device_instance", f.device_instance}};
}

std::string boot_flags_text(const BootFlags &f)
{
    std::string t = " Boot Flags :\n";
    auto line = [&](const std::string &s) { t += "   - " + s + "\n"; };
    line(f.valid ? "Boot Flag Valid" : "Boot Flag Invalid");
    line(f.persistent ? "Options apply to all future boots" : "Options apply to only next boot");
    line(f.efi ? "BIOS EFI boot" : "BIOS PC Compatible (legacy) boot");
    if (f.cmos_clear) line("CMOS Clear");
    if (f.lock_keyboard) line("Lock Keyboard");
    line(std::string("Boot Device Selector : ") + boot_device_text(f.device));
    if (f.screen_blank) line("Screen blank");
    if (f.lock_reset) line("Lock out Reset buttons");
    if (f.lock_power) line("Lock out (power off/sleep request) via Power Button");
    line(std::string("BIOS verbosity : ") + verbosity_text(f.verbosity));
    if (f.progress_traps) line("Force progress event traps");
    if (f.password_bypass) line("User password bypass");
    if (f.lock_sleep) line("Lock Out Sleep Button");
    line(std::string("Console Redirection control : ") + console_redirection_text(f.console_redirection));
    if (f.bios_shared_mode) line("BIOS Shared Mode Override");
    line(std::string("BIOS Mux Control Override : ") + bios_mux_text(f.bios_mux));
    if (f.device_instance) line("Device Instance Selector : " + std::to_string(f.device_instance));
    return t;
}

Printed print_boot_param(const BootParameter &p)
{
    const auto &r = p.response;
    std::string t = "Boot parameter version: " + std::to_string(r.version) + "\n";
    t += "Boot parameter " + std::to_string(r.parameter) + " is " + (r.locked ? "invalid/locked" : "valid/unlocked") +
         "\n";
    t += "Boot parameter data: " + hex_bytes(r.data) + "\n";
    nlohmann::json j = {{"parameter", r.parameter},
                        {"version", r.version},
                        {"valid", !r.locked},
                        {"data", hex_bytes(r.data)}};
    if (p.set_in_progress) {
        std::string words = set_in_progress_text(*p.set_in_progress);
        for (char &c : words) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        t += " Set In Progress : " + words + "\n";
        j["set_in_progress"] = set_in_progress_text(*p.set_in_progress);
    }
    if (p.boot_flags) {
        t += boot_flags_text(*p.boot_flags);
        j["boot_flags"] = boot_flags_json(*p.boot_flags);
    }
    return {t, j};
}

struct BootdevArgs {
    std::string device;
    bool persistent = false;
    bool efi = false;
    std::string parameter;
};

}  // namespace

void add_boot_commands(CLI::App &chassis, Runner &runner)
{
    auto args = std::make_shared<BootdevArgs>();

    CLI::App *bootdev = chassis.add_subcommand("bootdev", "set the boot device of the next boot (or all boots)");
    bootdev->add_option("device", args->device, "pxe, disk, safe, diag, cdrom, bios or none")->required();
    bootdev->add_flag("--persistent", args->persistent, "apply to all future boots, not the next one only");
    bootdev->add_flag("--efi", args->efi, "EFI boot instead of PC compatible (legacy)");
    bootdev->callback([args, &runner] {
        const auto device = boot_device_from_name(args->device);
        if (!device) {
            runner.usage_error("bootdev takes pxe, disk, safe, diag, cdrom, bios or none: " + args->device);
            return;
        }
        const bool persistent = args->persistent, efi = args->efi;
        runner.in_session("chassis bootdev", [=](Transport &t) {
            set_boot_device(t, *device, persistent, efi);
            const char *name = boot_device_name(static_cast<uint8_t>(*device));
            return Printed{std::string("Set Boot Device to ") + name + "\n",
                           {{"boot_device", name}, {"persistent", persistent}, {"efi", efi}}};
        });
    });

    CLI::App *bootparam = chassis.add_subcommand("bootparam", "system boot options");
    bootparam->require_subcommand(1);
    CLI::App *get = bootparam->add_subcommand("get", "read a boot option parameter (5: boot flags)");
    get->add_option("parameter", args->parameter, "parameter number, 0 to 127")->required();
    get->callback([args, &runner] {
        const auto parameter = parse_byte(args->parameter);
        if (!parameter || *parameter > 0x7F) {
            runner.usage_error("boot parameter must be 0..127: " + args->parameter);
            return;
        }
        const uint8_t n = *parameter;
        runner.in_session("chassis bootparam get", [n](Transport &t) { return print_boot_param(get_boot_param(t, n)); });
    });
}

}  // namespace cli
