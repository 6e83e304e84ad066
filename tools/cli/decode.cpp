#include "decode.h"

#include <cstdio>

namespace cli {
namespace {

std::string hex(unsigned value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

Field number(const std::string &label, const std::string &key, unsigned value) { return {label, key, value}; }

Field flag(const std::string &label, const std::string &key, bool value) { return {label, key, value}; }

Field text(const std::string &label, const std::string &key, const std::string &value) { return {label, key, value}; }

unsigned bcd(uint8_t b) { return (b >> 4) * 10u + (b & 0x0F); }

}  // namespace

std::string hex_bytes(const Bytes &data)
{
    std::string out;
    char b[4];
    for (size_t i = 0; i < data.size(); ++i) {
        std::snprintf(b, sizeof b, "%s%02x", i ? " " : "", data[i]);
        out += b;
    }
    return out;
}

std::string field_text(const nlohmann::json &value)
{
    return value.is_string() ? value.get<std::string>() : value.dump();
}

// Get Device ID (IPMI v2.0, 20.1): device ID, revision, firmware, IPMI
// version, device support, manufacturer, product, optional aux revision.
std::optional<Fields> decode_device_id(const Bytes &d)
{
    if (d.size() < 11) return std::nullopt;
    Fields f;
    f.push_back(number("Device ID", "device_id", d[0]));
    f.push_back(number("Device Revision", "device_revision", d[1] & 0x0F));
    f.push_back(flag("Provides Device SDRs", "provides_device_sdrs", d[1] & 0x80));
    char firmware[16];
    std::snprintf(firmware, sizeof firmware, "%u.%02u", d[2] & 0x7F, bcd(d[3]));
    f.push_back(text("Firmware Revision", "firmware_revision", firmware));
    f.push_back(flag("Device Available", "device_available", (d[2] & 0x80) == 0));
    char version[8];
    std::snprintf(version, sizeof version, "%u.%u", d[4] & 0x0F, d[4] >> 4);
    f.push_back(text("IPMI Version", "ipmi_version", version));
    const uint32_t manufacturer = d[6] | (d[7] << 8) | ((d[8] & 0x0F) << 16);
    f.push_back(number("Manufacturer ID", "manufacturer_id", manufacturer));
    f.push_back(number("Product ID", "product_id", d[9] | (d[10] << 8)));
    static const char *support[] = {"Sensor Device", "SDR Repository Device", "SEL Device", "FRU Inventory Device",
                                    "IPMB Event Receiver", "IPMB Event Generator", "Bridge", "Chassis Device"};
    std::string supported;
    for (int bit = 0; bit < 8; ++bit)
        if (d[5] & (1 << bit)) supported += (supported.empty() ? "" : ", ") + std::string(support[bit]);
    f.push_back(text("Additional Device Support", "additional_device_support", supported));
    if (d.size() >= 15) {
        char aux[32];
        std::snprintf(aux, sizeof aux, "0x%02x 0x%02x 0x%02x 0x%02x", d[11], d[12], d[13], d[14]);
        f.push_back(text("Aux Firmware Rev Info", "aux_firmware_revision", aux));
    }
    return f;
}

// Get Self Test Results (IPMI v2.0, 20.4).
std::optional<Fields> decode_self_test(const Bytes &d)
{
    if (d.size() < 2) return std::nullopt;
    std::string result;
    switch (d[0]) {
    case 0x55: result = "passed"; break;
    case 0x56: result = "not implemented"; break;
    case 0x57: result = "corrupted or inaccessible data or devices"; break;
    case 0x58: result = "fatal hardware error"; break;
    case 0xFF: result = "reserved"; break;
    default: result = "device-specific failure"; break;
    }
    Fields f;
    f.push_back(text("Selftest", "selftest", result));
    f.push_back(text("Result Code", "result_code", hex(d[0], 2)));
    f.push_back(text("Detail", "detail", hex(d[1], 2)));
    if (d[0] == 0x57) {
        static const char *parts[] = {"controller operational firmware", "controller update firmware",
                                      "IPMB signal lines",          "SDR repository",
                                      "FRU data",                   "SEL device",
                                      "SDR repository empty",       "cannot access BMC FRU device"};
        std::string failed;
        for (int bit = 0; bit < 8; ++bit)
            if (d[1] & (1 << bit)) failed += (failed.empty() ? "" : ", ") + std::string(parts[bit]);
        f.push_back(text("Failed", "failed", failed));
    }
    return f;
}

// Get Chassis Status (IPMI v2.0, 28.2).
std::optional<Fields> decode_chassis_status(const Bytes &d)
{
    if (d.size() < 3) return std::nullopt;
    static const char *policies[] = {"always-off", "previous", "always-on", "unknown"};
    std::string last_event;
    static const char *events[] = {"ac-failed", "overload", "interlock", "fault", "command"};
    for (int bit = 0; bit < 5; ++bit)
        if (d[1] & (1 << bit)) last_event += (last_event.empty() ? "" : ", ") + std::string(events[bit]);
    Fields f;
    f.push_back(text("System Power", "system_power", d[0] & 0x01 ? "on" : "off"));
    f.push_back(flag("Power Overload", "power_overload", d[0] & 0x02));
    f.push_back(flag("Power Interlock", "power_interlock", d[0] & 0x04));
    f.push_back(flag("Main Power Fault", "main_power_fault", d[0] & 0x08));
    f.push_back(flag("Power Control Fault", "power_control_fault", d[0] & 0x10));
    f.push_back(text("Power Restore Policy", "power_restore_policy", policies[(d[0] >> 5) & 3]));
    f.push_back(text("Last Power Event", "last_power_event", last_event));
    f.push_back(flag("Chassis Intrusion", "chassis_intrusion", d[2] & 0x01));
    f.push_back(flag("Front-Panel Lockout", "front_panel_lockout", d[2] & 0x02));
    f.push_back(flag("Drive Fault", "drive_fault", d[2] & 0x04));
    f.push_back(flag("Cooling/Fan Fault", "cooling_fan_fault", d[2] & 0x08));
    return f;
}

}  // namespace cli
