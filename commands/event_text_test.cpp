#include "event_text.h"

#include <gtest/gtest.h>

#include <string>

using namespace rmcpp::commands;

TEST(SensorTypeName, FirstLastAndSomeBetween)
{
    EXPECT_EQ(sensor_type_name(0x01), "Temperature");
    EXPECT_EQ(sensor_type_name(0x02), "Voltage");
    EXPECT_EQ(sensor_type_name(0x04), "Fan");
    EXPECT_EQ(sensor_type_name(0x07), "Processor");
    EXPECT_EQ(sensor_type_name(0x0D), "Drive Slot (Bay)");
    EXPECT_EQ(sensor_type_name(0x14), "Button / Switch");
    EXPECT_EQ(sensor_type_name(0x22), "System ACPI Power State");
    EXPECT_EQ(sensor_type_name(0x23), "Watchdog 2");
    EXPECT_EQ(sensor_type_name(0x2A), "Session Audit");
    EXPECT_EQ(sensor_type_name(0x2C), "FRU State");
}

TEST(SensorTypeName, EveryDefinedCodeHasAName)
{
    for (unsigned t = 0x01; t <= 0x2C; ++t)
        EXPECT_FALSE(sensor_type_name(static_cast<uint8_t>(t)).empty()) << std::hex << t;
}

TEST(SensorTypeName, ReservedAndOemCodes)
{
    EXPECT_TRUE(sensor_type_name(0x00).empty());
    for (unsigned t = 0x2D; t <= 0xBF; ++t)
        EXPECT_TRUE(sensor_type_name(static_cast<uint8_t>(t)).empty()) << std::hex << t;
    for (unsigned t = 0xC0; t <= 0xFF; ++t)
        EXPECT_EQ(sensor_type_name(static_cast<uint8_t>(t)), "OEM reserved") << std::hex << t;
}

TEST(EventDescription, ThresholdOffsets)
{
    EXPECT_EQ(event_description(0x01, 0x01, 0x00), "Lower Non-critical going low");
    EXPECT_EQ(event_description(0x01, 0x01, 0x02), "Lower Critical going low");
    EXPECT_EQ(event_description(0x01, 0x02, 0x09), "Upper Critical going high");
    EXPECT_EQ(event_description(0x01, 0x04, 0x0B), "Upper Non-recoverable going high");
    // The sensor type does not matter for a threshold event.
    EXPECT_EQ(event_description(0x01, 0xC5, 0x07), "Upper Non-critical going high");
    EXPECT_TRUE(event_description(0x01, 0x01, 0x0C).empty());
    EXPECT_TRUE(event_description(0x01, 0x01, 0x0F).empty());
    EXPECT_TRUE(event_description(0x01, 0x01, 0x10).empty());
}

TEST(EventDescription, EveryGenericDiscreteTable)
{
    EXPECT_EQ(event_description(0x02, 0x00, 0x02), "Transition to Busy");
    EXPECT_EQ(event_description(0x03, 0x00, 0x00), "State Deasserted");
    EXPECT_EQ(event_description(0x03, 0x00, 0x01), "State Asserted");
    EXPECT_EQ(event_description(0x04, 0x00, 0x01), "Predictive Failure Asserted");
    EXPECT_EQ(event_description(0x05, 0x00, 0x01), "Limit Exceeded");
    EXPECT_EQ(event_description(0x06, 0x00, 0x01), "Performance Lags");
    EXPECT_EQ(event_description(0x07, 0x00, 0x00), "Transition to OK");
    EXPECT_EQ(event_description(0x07, 0x00, 0x08), "Informational");
    EXPECT_EQ(event_description(0x08, 0x00, 0x00), "Device Absent");
    EXPECT_EQ(event_description(0x08, 0x00, 0x01), "Device Present");
    EXPECT_EQ(event_description(0x09, 0x00, 0x00), "Device Disabled");
    EXPECT_EQ(event_description(0x0A, 0x00, 0x08), "Install Error");
    EXPECT_EQ(event_description(0x0B, 0x00, 0x01), "Redundancy Lost");
    EXPECT_EQ(event_description(0x0B, 0x00, 0x07), "Redundancy Degraded from Non-Redundant");
    EXPECT_EQ(event_description(0x0C, 0x00, 0x03), "D3 Power State");
}

TEST(EventDescription, GenericOffsetsPastTheTable)
{
    EXPECT_TRUE(event_description(0x02, 0x00, 0x03).empty());
    EXPECT_TRUE(event_description(0x03, 0x00, 0x02).empty());
    EXPECT_TRUE(event_description(0x07, 0x00, 0x09).empty());
    EXPECT_TRUE(event_description(0x0C, 0x00, 0x04).empty());
    EXPECT_TRUE(event_description(0x0C, 0x00, 0xFF).empty());
}

TEST(EventDescription, SensorSpecificCommonTypes)
{
    EXPECT_EQ(event_description(0x6F, 0x07, 0x00), "IERR");
    EXPECT_EQ(event_description(0x6F, 0x07, 0x07), "Presence detected");
    EXPECT_EQ(event_description(0x6F, 0x07, 0x0C), "Correctable machine check error");
    EXPECT_EQ(event_description(0x6F, 0x08, 0x01), "Failure detected");
    EXPECT_EQ(event_description(0x6F, 0x08, 0x03), "Power Supply AC lost");
    EXPECT_EQ(event_description(0x6F, 0x09, 0x00), "Power off/down");
    EXPECT_EQ(event_description(0x6F, 0x09, 0x04), "AC lost");
    EXPECT_EQ(event_description(0x6F, 0x0C, 0x01), "Uncorrectable ECC");
    EXPECT_EQ(event_description(0x6F, 0x0C, 0x0A), "Critical Overtemperature");
    EXPECT_EQ(event_description(0x6F, 0x0D, 0x00), "Drive Present");
    EXPECT_EQ(event_description(0x6F, 0x0D, 0x01), "Drive Fault");
    EXPECT_EQ(event_description(0x6F, 0x0F, 0x02), "System Firmware Progress");
    EXPECT_EQ(event_description(0x6F, 0x10, 0x02), "Log area reset/cleared");
    EXPECT_EQ(event_description(0x6F, 0x10, 0x04), "Log full");
    EXPECT_EQ(event_description(0x6F, 0x12, 0x05), "Timestamp Clock Sync");
    EXPECT_EQ(event_description(0x6F, 0x13, 0x00), "NMI/Diag Interrupt");
    EXPECT_EQ(event_description(0x6F, 0x13, 0x0B),
              "Bus Degraded");
    EXPECT_EQ(event_description(0x6F, 0x14, 0x00), "Power Button pressed");
    EXPECT_EQ(event_description(0x6F, 0x14, 0x02), "Reset Button pressed");
    EXPECT_EQ(event_description(0x6F, 0x23, 0x01), "Hard reset");
    EXPECT_EQ(event_description(0x6F, 0x23, 0x08), "Timer interrupt");
    EXPECT_EQ(event_description(0x6F, 0x22, 0x00), "S0/G0: working");
    EXPECT_EQ(event_description(0x6F, 0x22, 0x05), "S5/G2: soft-off");
    EXPECT_EQ(event_description(0x6F, 0x22, 0x0E), "Unknown");
    EXPECT_EQ(event_description(0x6F, 0x2A, 0x00), "Session Activated");
    EXPECT_EQ(event_description(0x6F, 0x2A, 0x01), "Session Deactivated");
    EXPECT_EQ(event_description(0x6F, 0x2A, 0x02), "Invalid Username or Password");
    EXPECT_EQ(event_description(0x6F, 0x05, 0x00), "General Chassis intrusion");
    EXPECT_EQ(event_description(0x6F, 0x25, 0x01), "Absent");
    EXPECT_EQ(event_description(0x6F, 0x29, 0x01), "Failed");
}

TEST(EventDescription, EveryRequiredSensorTypeHasATable)
{
    for (uint8_t type : {0x07, 0x08, 0x09, 0x0C, 0x0D, 0x0F, 0x10, 0x12, 0x13, 0x14, 0x22, 0x23, 0x2A})
        EXPECT_FALSE(sensor_specific_event_description(type, 0x00).empty()) << std::hex << int(type);
}

TEST(EventDescription, SensorSpecificReservedAndMissing)
{
    // Reserved offsets inside a table.
    EXPECT_TRUE(event_description(0x6F, 0x23, 0x04).empty());
    EXPECT_TRUE(event_description(0x6F, 0x23, 0x07).empty());
    EXPECT_TRUE(event_description(0x6F, 0x22, 0x0D).empty());
    // Past the end of a table.
    EXPECT_TRUE(event_description(0x6F, 0x07, 0x0D).empty());
    EXPECT_TRUE(event_description(0x6F, 0x2A, 0x04).empty());
    EXPECT_TRUE(event_description(0x6F, 0x0F, 0x03).empty());
    // Sensor types without a sensor-specific table, reserved and OEM types.
    EXPECT_TRUE(event_description(0x6F, 0x01, 0x00).empty());
    EXPECT_TRUE(event_description(0x6F, 0x00, 0x00).empty());
    EXPECT_TRUE(event_description(0x6F, 0x2D, 0x00).empty());
    EXPECT_TRUE(event_description(0x6F, 0xC0, 0x00).empty());
}

TEST(EventDescription, TableChosenByEventTypeNotSensorType)
{
    // A processor sensor with a generic discrete event type uses the generic
    // table, not the processor one.
    EXPECT_EQ(event_description(0x03, 0x07, 0x01), "State Asserted");
    EXPECT_EQ(event_description(0x6F, 0x07, 0x01), "Thermal Trip");
    EXPECT_EQ(generic_event_description(0x08, 0x01), "Device Present");
    EXPECT_EQ(generic_event_description(0x01, 0x00), "Lower Non-critical going low");
}

TEST(EventDescription, UnspecifiedOemAndReservedEventTypes)
{
    EXPECT_TRUE(event_description(0x00, 0x07, 0x00).empty());
    EXPECT_TRUE(event_description(0x0D, 0x07, 0x00).empty());
    EXPECT_TRUE(event_description(0x6E, 0x07, 0x00).empty());
    EXPECT_TRUE(event_description(0x70, 0x07, 0x00).empty());
    EXPECT_TRUE(event_description(0x7F, 0x07, 0x00).empty());
    EXPECT_TRUE(event_description(0x80, 0x07, 0x00).empty());
    EXPECT_TRUE(generic_event_description(0x6F, 0x00).empty());
}

TEST(EventDescription, NoOffsetAboveFHasWords)
{
    for (unsigned event = 0; event <= 0x7F; ++event)
        for (unsigned sensor = 0; sensor <= 0xFF; ++sensor)
            for (unsigned offset = 0x10; offset <= 0xFF; offset += 0x0F)
                ASSERT_TRUE(event_description(static_cast<uint8_t>(event), static_cast<uint8_t>(sensor),
                                              static_cast<uint8_t>(offset))
                                .empty());
}
