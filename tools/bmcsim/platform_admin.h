// The boot and lan sections of a platform file. Each fills its part of the
// Config; a bad value throws std::runtime_error naming its line.
#pragma once

#include "bmcsim.h"

namespace YAML {
class Node;
}

namespace bmcsim {

void load_boot(const YAML::Node &section, Config &config);
void load_lan(const YAML::Node &section, Config &config);

}  // namespace bmcsim
