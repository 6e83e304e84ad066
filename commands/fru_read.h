// Reading a FRU device over a Transport: Get FRU Inventory Area Info, then
// Read FRU Data chunk by chunk (smaller chunks when the BMC answers CAh or
// C9h), then the image decoded. A damaged image is reported in
// FruImage::damage, never thrown.
#pragma once

#include <cstdint>
#include <vector>

#include "fru_area.h"
#include "read_fru_data.h"
#include "transport.h"

namespace rmcpp::commands {

struct FruDevice {
    uint8_t device_id = 0;
    uint16_t area_size = 0;  // bytes
    bool access_by_words = false;
    std::vector<uint8_t> image;  // area_size bytes
    FruImage decoded;
};

struct FruReadLimits {
    uint8_t chunk_bytes = 32;  // asked per Read FRU Data at first (halved for words)
    int busy_retries = 3;      // 81h (FRU device busy) answers taken per chunk
};

FruDevice read_fru(Transport &t, uint8_t device_id, const FruReadLimits &limits = {});

}  // namespace rmcpp::commands
