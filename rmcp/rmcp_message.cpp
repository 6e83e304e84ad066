// RMCP+ status codes in words.
#include "rmcpp.h"

namespace {

const char *const status_text[] = {
    "No errors.\n",
    "Insufficient resources to create a session.\n",
    "Invalid Session ID.\n",
    "Invalid payload type.\n",
    "Invalid authentication algorithm.\n",
    "Invalid integrity algorithm.\n",
    "No matching authentication payload.\n",
    "No matching integrity payload.\n",
    "Inactive Session ID.\n",
    "Invalid role X.\n",
    "Unauthorized role or privilege level requested.\n",
    "Insufficient resources to create a session at the requested role.\n",
    "Invalid name length.\n",
    "Unauthorized name.\n",
    "Unauthorized GUID.\n",
    "Invalid integrity check value.\n",
    "Invalid confidentiality algorithm.\n",
    "No Cipher Suite match with proposed security algorithms.\n",
    "Illegal or unrecognized parameter.\n",
};

}  // namespace

extern "C" RMCPP_API void PrintRMCPStatusCode(int status_code)
{
    const uint8_t code = static_cast<uint8_t>(status_code);
    lib_log(1, "[ Status Code ] ");
    if (code < sizeof status_text / sizeof status_text[0])
        lib_log(1, "%s", status_text[code]);
    else
        lib_log(1, "Unexpected Status Code = %02x.\n", code);
}
