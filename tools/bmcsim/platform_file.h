// The platform file: a YAML description of the simulated machine, read
// into a Config section by section. Each top-level key names a section
// with a loader of its own; a key no loader claims is refused, as is any
// key a loader does not know. Errors name the file and line.
#pragma once

#include <stdexcept>
#include <string>

#include "bmcsim.h"

namespace YAML {
class Node;
}

namespace bmcsim {

class PlatformFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads `path` into `config`; throws PlatformFileError ("FILE:LINE: what").
void load_platform_file(const std::string &path, Config &config);
// The same from text; `name` stands for the file in messages.
void load_platform_text(const std::string &text, const std::string &name, Config &config);

// The loaders of the sections, by name.
using SectionLoader = void (*)(const YAML::Node &section, Config &config);
struct PlatformSection {
    const char *name;
    SectionLoader load;
};

void load_sensors(const YAML::Node &section, Config &config);

}  // namespace bmcsim
