// The simulated BMC's FRU devices: Get FRU Inventory Area Info and Read FRU
// Data (at most a set count per read: larger requests answer CAh); and the
// FRU section of the platform file, whose fields are encoded into an image.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "bmcsim.h"

namespace YAML {
class Node;
}

namespace bmcsim {

// Reads the platform file's `fru:` section (a list of devices) into
// config.fru; throws std::runtime_error naming the line of a bad value.
void load_fru(const YAML::Node &section, Config &config);

namespace detail {

// The answer to a FRU command of the Storage network function (completion
// code, data); nothing for other commands.
std::optional<std::pair<uint8_t, Bytes>> fru_command(uint8_t cmd, const Bytes &data, const Config &c);

}  // namespace detail
}  // namespace bmcsim
