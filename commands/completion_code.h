// The generic completion codes of IPMI v2.0, in words.
#pragma once

#include <cstdint>

namespace rmcpp::commands {

// "node busy" for C0h ...; "unknown completion code" for codes without a
// generic meaning (command-specific codes 80h-BEh among them).
const char *completion_code_text(uint8_t cc);

}  // namespace rmcpp::commands
