#include "event_text.h"

#include <array>
#include <cstddef>

namespace rmcpp::commands {

namespace {

using Text = std::string_view;

// Indexed by sensor type code, 00h-2Ch.
constexpr std::array<Text, 0x2D> kSensorTypeNames = {
    "",                                            // 00h reserved
    "Temperature",                                 // 01h
    "Voltage",                                     // 02h
    "Current",                                     // 03h
    "Fan",                                         // 04h
    "Physical Security (Chassis Intrusion)",       // 05h
    "Platform Security Violation Attempt",         // 06h
    "Processor",                                   // 07h
    "Power Supply",                                // 08h
    "Power Unit",                                  // 09h
    "Cooling Device",                              // 0Ah
    "Other Units-based Sensor",                    // 0Bh
    "Memory",                                      // 0Ch
    "Drive Slot (Bay)",                            // 0Dh
    "POST Memory Resize",                          // 0Eh
    "System Firmware Progress",                    // 0Fh
    "Event Logging Disabled",                      // 10h
    "Watchdog 1",                                  // 11h
    "System Event",                                // 12h
    "Critical Interrupt",                          // 13h
    "Button / Switch",                             // 14h
    "Module / Board",                              // 15h
    "Microcontroller / Coprocessor",               // 16h
    "Add-in Card",                                 // 17h
    "Chassis",                                     // 18h
    "Chip Set",                                    // 19h
    "Other FRU",                                   // 1Ah
    "Cable / Interconnect",                        // 1Bh
    "Terminator",                                  // 1Ch
    "System Boot / Restart Initiated",             // 1Dh
    "Boot Error",                                  // 1Eh
    "Base OS Boot / Installation Status",          // 1Fh
    "OS Stop / Shutdown",                          // 20h
    "Slot / Connector",                            // 21h
    "System ACPI Power State",                     // 22h
    "Watchdog 2",                                  // 23h
    "Platform Alert",                              // 24h
    "Entity Presence",                             // 25h
    "Monitor ASIC / IC",                           // 26h
    "LAN",                                         // 27h
    "Management Subsystem Health",                 // 28h
    "Battery",                                     // 29h
    "Session Audit",                               // 2Ah
    "Version Change",                              // 2Bh
    "FRU State",                                   // 2Ch
};

constexpr Text kThreshold[] = {
    "Lower Non-critical going low",     "Lower Non-critical going high",
    "Lower Critical going low",         "Lower Critical going high",
    "Lower Non-recoverable going low",  "Lower Non-recoverable going high",
    "Upper Non-critical going low",     "Upper Non-critical going high",
    "Upper Critical going low",         "Upper Critical going high",
    "Upper Non-recoverable going low",  "Upper Non-recoverable going high",
};

constexpr Text kUsageState[] = {"Transition to Idle", "Transition to Active", "Transition to Busy"};
constexpr Text kDigitalState[] = {"State Deasserted", "State Asserted"};
constexpr Text kPredictiveFailure[] = {
    "Predictive Failure Deasserted",
    "Predictive Failure Asserted",
};
constexpr Text kLimit[] = {"Limit Not Exceeded", "Limit Exceeded"};
constexpr Text kPerformance[] = {"Performance Met", "Performance Lags"};
constexpr Text kSeverity[] = {
    "Transition to OK",
    "Transition to Non-critical from OK",
    "Transition to Critical from less severe",
    "Transition to Non-recoverable from less severe",
    "Transition to Non-critical from more severe",
    "Transition to Critical from Non-recoverable",
    "Transition to Non-recoverable",
    "Monitor",
    "Informational",
};
constexpr Text kPresence[] = {
    "Device Absent",
    "Device Present",
};
constexpr Text kEnabled[] = {"Device Disabled", "Device Enabled"};
constexpr Text kAvailability[] = {
    "Transition to Running",
    "Transition to In Test",
    "Transition to Power Off",
    "Transition to On Line",
    "Transition to Off Line",
    "Transition to Off Duty",
    "Transition to Degraded",
    "Transition to Power Save",
    "Install Error",
};
constexpr Text kRedundancy[] = {
    "Fully Redundant",
    "Redundancy Lost",
    "Redundancy Degraded",
    "Non-Redundant: Sufficient from Redundant",
    "Non-Redundant: Sufficient from Insufficient",
    "Non-Redundant: Insufficient Resources",
    "Redundancy Degraded from Fully Redundant",
    "Redundancy Degraded from Non-Redundant",
};
constexpr Text kAcpiDeviceState[] = {"D0 Power State", "D1 Power State", "D2 Power State", "D3 Power State"};

constexpr Text kPhysicalSecurity[] = {
    "General Chassis intrusion",
    "Drive Bay intrusion",
    "I/O Card area intrusion",
    "Processor area intrusion",
    "System unplugged from LAN",
    "Unauthorized dock",
    "FAN area intrusion",
};
constexpr Text kProcessor[] = {
    "IERR",
    "Thermal Trip",
    "FRB1/BIST failure",
    "FRB2/Hang in POST failure",
    "FRB3/Processor startup/init failure",
    "Configuration Error",
    "SM BIOS Uncorrectable CPU-complex Error",
    "Presence detected",
    "Disabled",
    "Terminator presence detected",
    "Throttled",
    "Uncorrectable machine check exception",
    "Correctable machine check error",
};
constexpr Text kPowerSupply[] = {
    "Presence detected",
    "Failure detected",
    "Predictive failure",
    "Power Supply AC lost",
    "AC lost or out-of-range",
    "AC out-of-range, but present",
    "Config Error",
    "Power Supply Inactive",
};
constexpr Text kPowerUnit[] = {
    "Power off/down",
    "Power cycle",
    "240VA power down",
    "Interlock power down",
    "AC lost",
    "Soft-power control failure",
    "Failure detected",
    "Predictive failure",
};
constexpr Text kMemory[] = {
    "Correctable ECC",
    "Uncorrectable ECC",
    "Parity",
    "Memory Scrub Failed",
    "Memory Device Disabled",
    "Correctable ECC logging limit reached",
    "Presence Detected",
    "Configuration Error",
    "Spare",
    "Throttled",
    "Critical Overtemperature",
};
constexpr Text kDriveSlot[] = {
    "Drive Present",
    "Drive Fault",
    "Predictive Failure",
    "Hot Spare",
    "Parity Check In Progress",
    "In Critical Array",
    "In Failed Array",
    "Rebuild In Progress",
    "Rebuild Aborted",
};
constexpr Text kFirmwareProgress[] = {
    "System Firmware Error (POST Error)",
    "System Firmware Hang",
    "System Firmware Progress",
};
constexpr Text kEventLoggingDisabled[] = {
    "Correctable memory error logging disabled",
    "Event logging disabled",
    "Log area reset/cleared",
    "All event logging disabled",
    "Log full",
    "Log almost full",
    "Correctable Machine Check Error Logging Disabled",
};
constexpr Text kSystemEvent[] = {
    "System Reconfigured",
    "OEM System boot event",
    "Undetermined system hardware failure",
    "Entry added to auxiliary log",
    "PEF Action",
    "Timestamp Clock Sync",
};
constexpr Text kCriticalInterrupt[] = {
    "NMI/Diag Interrupt",
    "Bus Timeout",
    "I/O Channel check NMI",
    "Software NMI",
    "PCI PERR",
    "PCI SERR",
    "EISA failsafe timeout",
    "Bus Correctable error",
    "Bus Uncorrectable error",
    "Fatal NMI",
    "Bus Fatal Error",
    "Bus Degraded",
};
constexpr Text kButtonSwitch[] = {
    "Power Button pressed",
    "Sleep Button pressed",
    "Reset Button pressed",
    "FRU Latch",
    "FRU Service",
};
constexpr Text kAcpiPowerState[] = {
    "S0/G0: working",
    "S1: sleeping with system hw & processor context maintained",
    "S2: sleeping, processor context lost",
    "S3: sleeping, processor & hw context lost, memory retained",
    "S4: non-volatile sleep/suspend-to-disk",
    "S5/G2: soft-off",
    "S4/S5: soft-off",
    "G3: mechanical off",
    "Sleeping in S1/S2/S3 state",
    "G1: sleeping",
    "S5: entered by override",
    "Legacy ON state",
    "Legacy OFF state",
    "",
    "Unknown",
};
constexpr Text kWatchdog2[] = {
    "Timer expired",
    "Hard reset",
    "Power down",
    "Power cycle",
    "",
    "",
    "",
    "",
    "Timer interrupt",
};
constexpr Text kEntityPresence[] = {
    "Present",
    "Absent",
    "Disabled",
};
constexpr Text kBattery[] = {
    "Low",
    "Failed",
    "Presence Detected",
};
constexpr Text kSessionAudit[] = {
    "Session Activated",
    "Session Deactivated",
    "Invalid Username or Password",
    "Invalid password disable",
};

constexpr Text kPlatformSecurity[] = {
    "Front Panel Lockout violation attempted",
    "Pre-boot password violation - user password",
    "Pre-boot password violation - setup password",
    "Pre-boot password violation - network boot password",
    "Other pre-boot password violation",
    "Out-of-band access password violation",
};
constexpr Text kWatchdog1[] = {
    "BIOS Reset",
    "OS Reset",
    "OS Shut Down",
    "OS Power Down",
    "OS Power Cycle",
    "OS NMI/Diag Interrupt",
    "OS Expired",
    "OS pre-timeout Interrupt",
};
constexpr Text kChipSet[] = {
    "Soft Power Control Failure",
    "Thermal Trip",
};
constexpr Text kCable[] = {
    "Connected",
    "Config Error",
};
constexpr Text kSystemBoot[] = {
    "Initiated by power up",
    "Initiated by hard reset",
    "Initiated by warm reset",
    "User requested PXE boot",
    "Automatic boot to diagnostic",
    "OS initiated hard reset",
    "OS initiated warm reset",
    "System Restart",
};
constexpr Text kBootError[] = {
    "No bootable media",
    "Non-bootable disk in drive",
    "PXE server not found",
    "Invalid boot sector",
    "Timeout waiting for selection",
};
constexpr Text kOsBoot[] = {
    "A: boot completed",
    "C: boot completed",
    "PXE boot completed",
    "Diagnostic boot completed",
    "CD-ROM boot completed",
    "ROM boot completed",
    "boot completed - device not specified",
    "Installation started",
    "Installation completed",
    "Installation aborted",
    "Installation failed",
};
constexpr Text kOsStop[] = {
    "Error during system startup",
    "Run-time critical stop",
    "OS graceful stop",
    "OS graceful shutdown",
    "PEF initiated soft shutdown",
    "Agent not responding",
};
constexpr Text kSlotConnector[] = {
    "Fault Status",
    "Identify Status",
    "Device Installed",
    "Ready for Device Installation",
    "Ready for Device Removal",
    "Slot Power is Off",
    "Device Removal Request",
    "Interlock",
    "Slot is Disabled",
    "Spare Device",
};
constexpr Text kPlatformAlert[] = {
    "Platform generated page",
    "Platform generated LAN alert",
    "Platform Event Trap generated",
    "Platform generated SNMP trap, OEM format",
};
constexpr Text kLan[] = {
    "Heartbeat Lost",
    "Heartbeat",
};
constexpr Text kManagementHealth[] = {
    "Sensor access degraded or unavailable",
    "Controller access degraded or unavailable",
    "Management controller off-line",
    "Management controller unavailable",
    "Sensor failure",
    "FRU failure",
};
constexpr Text kVersionChange[] = {
    "Hardware change detected",
    "",
    "Hardware incompatibility detected",
    "Firmware or software incompatibility detected",
    "Invalid or unsupported hardware version",
    "Invalid or unsupported firmware or software version",
    "Hardware change success",
};
constexpr Text kFruState[] = {
    "Not Installed",
    "Inactive",
    "Activation Requested",
    "Activation in Progress",
    "Active",
    "Deactivation Requested",
    "Deactivation in Progress",
    "Communication lost",
};

struct Table {
    uint8_t code;
    const Text *texts;
    size_t count;
};

template <size_t N>
constexpr Table table(uint8_t code, const Text (&texts)[N])
{
    return {code, texts, N};
}

// Generic discrete tables by event/reading type code.
constexpr Table kGenericTables[] = {
    table(0x02, kUsageState),   table(0x03, kDigitalState), table(0x04, kPredictiveFailure),
    table(0x05, kLimit),        table(0x06, kPerformance),  table(0x07, kSeverity),
    table(0x08, kPresence),     table(0x09, kEnabled),      table(0x0A, kAvailability),
    table(0x0B, kRedundancy),   table(0x0C, kAcpiDeviceState),
};

// Sensor-specific tables by sensor type code.
constexpr Table kSensorSpecificTables[] = {
    table(0x05, kPhysicalSecurity),
    table(0x06, kPlatformSecurity),
    table(0x07, kProcessor),
    table(0x08, kPowerSupply),
    table(0x09, kPowerUnit),
    table(0x0C, kMemory),
    table(0x0D, kDriveSlot),
    table(0x0F, kFirmwareProgress),
    table(0x10, kEventLoggingDisabled),
    table(0x11, kWatchdog1),
    table(0x12, kSystemEvent),
    table(0x13, kCriticalInterrupt),
    table(0x14, kButtonSwitch),
    table(0x19, kChipSet),
    table(0x1B, kCable),
    table(0x1D, kSystemBoot),
    table(0x1E, kBootError),
    table(0x1F, kOsBoot),
    table(0x20, kOsStop),
    table(0x21, kSlotConnector),
    table(0x22, kAcpiPowerState),
    table(0x23, kWatchdog2),
    table(0x24, kPlatformAlert),
    table(0x25, kEntityPresence),
    table(0x27, kLan),
    table(0x28, kManagementHealth),
    table(0x29, kBattery),
    table(0x2A, kSessionAudit),
    table(0x2B, kVersionChange),
    table(0x2C, kFruState),
};

template <size_t N>
constexpr Text look_up(const Table (&tables)[N], uint8_t code, uint8_t offset)
{
    for (const Table &t : tables)
        if (t.code == code) return offset < t.count ? t.texts[offset] : Text{};
    return {};
}

// Every table fits the 4-bit offset.
template <size_t N>
constexpr bool offsets_fit(const Table (&tables)[N])
{
    for (const Table &t : tables)
        if (t.count > 16) return false;
    return true;
}
static_assert(offsets_fit(kGenericTables) && offsets_fit(kSensorSpecificTables));
static_assert(std::size(kThreshold) == 12);

}  // namespace

std::string_view sensor_type_name(uint8_t sensor_type)
{
    if (sensor_type < kSensorTypeNames.size()) return kSensorTypeNames[sensor_type];
    if (sensor_type >= 0xC0) return "OEM reserved";
    return {};
}

std::string_view generic_event_description(uint8_t event_type, uint8_t offset)
{
    if (event_type == kEventTypeThreshold)
        return offset < std::size(kThreshold) ? kThreshold[offset] : Text{};
    return look_up(kGenericTables, event_type, offset);
}

std::string_view sensor_specific_event_description(uint8_t sensor_type, uint8_t offset)
{
    return look_up(kSensorSpecificTables, sensor_type, offset);
}

std::string_view event_description(uint8_t event_type, uint8_t sensor_type, uint8_t offset)
{
    if (event_type == kEventTypeSensorSpecific) return sensor_specific_event_description(sensor_type, offset);
    if (event_type >= kEventTypeThreshold && event_type <= kEventTypeGenericLast)
        return generic_event_description(event_type, offset);
    return {};
}

}  // namespace rmcpp::commands
