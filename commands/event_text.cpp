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
constexpr Text kPredictiveFailure[] = {"Predictive Failure deasserted", "Predictive Failure asserted"};
constexpr Text kLimit[] = {"Limit Not Exceeded", "Limit Exceeded"};
constexpr Text kPerformance[] = {"Performance Met", "Performance Lags"};
constexpr Text kSeverity[] = {
    "transition to OK",
    "transition to Non-Critical from OK",
    "transition to Critical from less severe",
    "transition to Non-recoverable from less severe",
    "transition to Non-Critical from more severe",
    "transition to Critical from Non-recoverable",
    "transition to Non-recoverable",
    "Monitor",
    "Informational",
};
constexpr Text kPresence[] = {"Device Removed / Device Absent", "Device Inserted / Device Present"};
constexpr Text kEnabled[] = {"Device Disabled", "Device Enabled"};
constexpr Text kAvailability[] = {
    "transition to Running",  "transition to In Test",  "transition to Power Off",
    "transition to On Line",  "transition to Off Line", "transition to Off Duty",
    "transition to Degraded", "transition to Power Save", "Install Error",
};
constexpr Text kRedundancy[] = {
    "Fully Redundant",
    "Redundancy Lost",
    "Redundancy Degraded",
    "Non-redundant: Sufficient Resources from Redundant",
    "Non-redundant: Sufficient Resources from Insufficient Resources",
    "Non-redundant: Insufficient Resources",
    "Redundancy Degraded from Fully Redundant",
    "Redundancy Degraded from Non-redundant",
};
constexpr Text kAcpiDeviceState[] = {"D0 Power State", "D1 Power State", "D2 Power State", "D3 Power State"};

constexpr Text kPhysicalSecurity[] = {
    "General Chassis Intrusion",
    "Drive Bay intrusion",
    "I/O Card area intrusion",
    "Processor area intrusion",
    "LAN Leash Lost (system is unplugged from LAN)",
    "Unauthorized dock",
    "FAN area intrusion",
};
constexpr Text kProcessor[] = {
    "IERR",
    "Thermal Trip",
    "FRB1/BIST failure",
    "FRB2/Hang in POST failure",
    "FRB3/Processor Startup/Initialization failure",
    "Configuration Error",
    "SM BIOS 'Uncorrectable CPU-complex Error'",
    "Processor Presence detected",
    "Processor disabled",
    "Terminator Presence Detected",
    "Processor Automatically Throttled",
    "Machine Check Exception (Uncorrectable)",
    "Correctable Machine Check Error",
};
constexpr Text kPowerSupply[] = {
    "Presence detected",
    "Power Supply Failure detected",
    "Predictive Failure",
    "Power Supply input lost (AC/DC)",
    "Power Supply input lost or out-of-range",
    "Power Supply input out-of-range, but present",
    "Configuration error",
    "Power Supply Inactive (in standby state)",
};
constexpr Text kPowerUnit[] = {
    "Power Off / Power Down",
    "Power Cycle",
    "240VA Power Down",
    "Interlock Power Down",
    "AC lost / Power input lost",
    "Soft Power Control Failure",
    "Power Unit Failure detected",
    "Predictive Failure",
};
constexpr Text kMemory[] = {
    "Correctable ECC / other correctable memory error",
    "Uncorrectable ECC / other uncorrectable memory error",
    "Parity",
    "Memory Scrub Failed (stuck bit)",
    "Memory Device Disabled",
    "Correctable ECC / other correctable memory error logging limit reached",
    "Presence detected",
    "Configuration error",
    "Spare",
    "Memory Automatically Throttled",
    "Critical Overtemperature",
};
constexpr Text kDriveSlot[] = {
    "Drive Presence",
    "Drive Fault",
    "Predictive Failure",
    "Hot Spare",
    "Consistency Check / Parity Check in progress",
    "In Critical Array",
    "In Failed Array",
    "Rebuild/Remap in progress",
    "Rebuild/Remap Aborted (was not completed normally)",
};
constexpr Text kFirmwareProgress[] = {
    "System Firmware Error (POST Error)",
    "System Firmware Hang",
    "System Firmware Progress",
};
constexpr Text kEventLoggingDisabled[] = {
    "Correctable Memory Error Logging Disabled",
    "Event 'Type' Logging Disabled",
    "Log Area Reset/Cleared",
    "All Event Logging Disabled",
    "SEL Full",
    "SEL Almost Full",
    "Correctable Machine Check Error Logging Disabled",
};
constexpr Text kSystemEvent[] = {
    "System Reconfigured",
    "OEM System Boot Event",
    "Undetermined system hardware failure",
    "Entry added to Auxiliary Log",
    "PEF Action",
    "Timestamp Clock Synch",
};
constexpr Text kCriticalInterrupt[] = {
    "Front Panel NMI / Diagnostic Interrupt",
    "Bus Timeout",
    "I/O channel check NMI",
    "Software NMI",
    "PCI PERR",
    "PCI SERR",
    "EISA Fail Safe Timeout",
    "Bus Correctable Error",
    "Bus Uncorrectable Error",
    "Fatal NMI (port 61h, bit 7)",
    "Bus Fatal Error",
    "Bus Degraded (bus operating in a degraded performance state)",
};
constexpr Text kButtonSwitch[] = {
    "Power Button pressed",
    "Sleep Button pressed",
    "Reset Button pressed",
    "FRU latch open",
    "FRU service request button",
};
constexpr Text kAcpiPowerState[] = {
    "S0 / G0 \"working\"",
    "S1 \"sleeping with system h/w & processor context maintained\"",
    "S2 \"sleeping, processor context lost\"",
    "S3 \"sleeping, processor & h/w context lost, memory retained.\"",
    "S4 \"non-volatile sleep / suspend-to disk\"",
    "S5 / G2 \"soft-off\"",
    "S4 / S5 soft-off, particular S4 / S5 state cannot be determined",
    "G3 / Mechanical Off",
    "Sleeping in an S1, S2, or S3 states",
    "G1 sleeping (S1-S4 state cannot be determined)",
    "S5 entered by override",
    "Legacy ON state",
    "Legacy OFF state",
    "",  // 0Dh reserved
    "Unknown",
};
constexpr Text kWatchdog2[] = {
    "Timer expired, status only",
    "Hard Reset",
    "Power Down",
    "Power Cycle",
    "",  // 04h-07h reserved
    "",
    "",
    "",
    "Timer interrupt",
};
constexpr Text kEntityPresence[] = {"Entity Present", "Entity Absent", "Entity Disabled"};
constexpr Text kBattery[] = {"Battery low (predictive failure)", "Battery failed", "Battery presence detected"};
constexpr Text kSessionAudit[] = {
    "Session Activated",
    "Session Deactivated",
    "Invalid Username or Password",
    "Invalid password disable",
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
    table(0x05, kPhysicalSecurity),   table(0x07, kProcessor),
    table(0x08, kPowerSupply),        table(0x09, kPowerUnit),
    table(0x0C, kMemory),             table(0x0D, kDriveSlot),
    table(0x0F, kFirmwareProgress),   table(0x10, kEventLoggingDisabled),
    table(0x12, kSystemEvent),        table(0x13, kCriticalInterrupt),
    table(0x14, kButtonSwitch),       table(0x22, kAcpiPowerState),
    table(0x23, kWatchdog2),          table(0x25, kEntityPresence),
    table(0x29, kBattery),            table(0x2A, kSessionAudit),
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
