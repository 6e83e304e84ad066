// Get and Set System Boot Options (Chassis network function): the
// set-in-progress parameter (0), the boot flags (5), and the procedures that
// read a parameter and set the next boot device.
//
// Decoders take the response data after the completion code and give nothing
// when it is short, too long or malformed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "transport.h"

namespace rmcpp::commands {

inline constexpr uint8_t kChassisNetFn = 0x00;
inline constexpr uint8_t kSetSystemBootOptionsCmd = 0x08;
inline constexpr uint8_t kGetSystemBootOptionsCmd = 0x09;

inline constexpr uint8_t kBootParamSetInProgress = 0;
inline constexpr uint8_t kBootParamBootFlags = 5;
inline constexpr size_t kBootFlagsSize = 5;
// Completion code of both commands: the parameter is not supported.
inline constexpr uint8_t kCcBootParameterNotSupported = 0x80;

enum class SetInProgress : uint8_t {
    SetComplete = 0,
    SetInProgress = 1,
    CommitWrite = 2,
    Reserved = 3,
};

// Boot device selector, boot flags data 2 bits 5:2.
enum class BootDevice : uint8_t {
    NoOverride = 0x0,
    Pxe = 0x1,
    Disk = 0x2,
    DiskSafeMode = 0x3,
    Diagnostic = 0x4,
    CdDvd = 0x5,
    BiosSetup = 0x6,
    RemoteFloppy = 0x7,
    RemoteCdDvd = 0x8,
    RemotePrimaryMedia = 0x9,
    RemoteDisk = 0xB,
    Floppy = 0xF,
};

// The tool's names: pxe, disk, safe, diag, cdrom, bios, none.
std::optional<BootDevice> boot_device_from_name(const std::string &name);
// "pxe" ... for the named ones, "remote-floppy" ..., "reserved" otherwise.
const char *boot_device_name(uint8_t selector);
// The selector in words ("Force PXE", "No override", ...).
const char *boot_device_text(uint8_t selector);

struct BootFlags {
    // Data 1
    bool valid = false;       // bit 7
    bool persistent = false;  // bit 6: all future boots, else the next one only
    bool efi = false;         // bit 5: EFI boot, else PC compatible (legacy)
    // Data 2
    bool cmos_clear = false;      // bit 7
    bool lock_keyboard = false;   // bit 6
    uint8_t device = 0;           // bits 5:2, BootDevice
    bool screen_blank = false;    // bit 1
    bool lock_reset = false;      // bit 0
    // Data 3
    bool lock_power = false;            // bit 7
    uint8_t verbosity = 0;              // bits 6:5: 0 default, 1 quiet, 2 verbose
    bool progress_traps = false;        // bit 4: force progress event traps
    bool password_bypass = false;       // bit 3
    bool lock_sleep = false;            // bit 2
    uint8_t console_redirection = 0;    // bits 1:0: 0 BIOS setting, 1 suppress, 2 enable
    // Data 4
    bool bios_shared_mode = false;  // bit 3
    uint8_t bios_mux = 0;           // bits 2:0
    // Data 5
    uint8_t device_instance = 0;  // bits 4:0

    bool operator==(const BootFlags &) const = default;
};

// Exactly five bytes. Reserved bits are ignored.
std::optional<BootFlags> decode_boot_flags(const uint8_t *data, size_t length);
std::array<uint8_t, kBootFlagsSize> encode_boot_flags(const BootFlags &flags);

// The two-bit and three-bit fields in words; "Flag error" for the values
// that mean nothing.
const char *verbosity_text(uint8_t verbosity);
const char *console_redirection_text(uint8_t control);
const char *bios_mux_text(uint8_t mux);

// One byte, bits 1:0.
std::optional<SetInProgress> decode_set_in_progress(const uint8_t *data, size_t length);
const char *set_in_progress_text(SetInProgress state);

// ---- Get System Boot Options ----------------------------------------------

Bytes build_get_system_boot_options(uint8_t parameter, uint8_t set_selector = 0, uint8_t block_selector = 0);

struct BootOptionsResponse {
    uint8_t version = 0;     // parameter version, 1
    bool locked = false;     // bit 7 of byte 2: parameter invalid / locked
    uint8_t parameter = 0;   // bits 6:0 of byte 2
    Bytes data;              // the parameter data
};

// At least the two header bytes.
std::optional<BootOptionsResponse> decode_get_system_boot_options(const uint8_t *data, size_t length);

// ---- Set System Boot Options ----------------------------------------------

// `mark_invalid` sets bit 7 of the parameter byte (mark invalid / locked).
Bytes build_set_system_boot_options(uint8_t parameter, const uint8_t *data, size_t length, bool mark_invalid = false);

// ---- Procedures -----------------------------------------------------------

struct BootParameter {
    BootOptionsResponse response;
    std::optional<SetInProgress> set_in_progress;  // parameter 0
    std::optional<BootFlags> boot_flags;           // parameter 5
};

// Reads one parameter; parameters 0 and 5 are decoded (malformed data for
// them throws CommandError kind malformed).
BootParameter get_boot_param(Transport &t, uint8_t parameter);

// Sets the boot device: set in progress, boot flags (valid, persistence,
// EFI, device; everything else 0), commit write, set complete. A BMC that
// does not support parameter 0 is written to without the handshake; one
// that refuses commit write is not held to it. Set complete is sent even
// when a step before it fails; that first failure is what is thrown.
void set_boot_device(Transport &t, BootDevice device, bool persistent, bool efi);

}  // namespace rmcpp::commands
