// rmcpp: an IPMI v2.0 / RMCP+ command-line tool over librmcpp.
#include <openssl/crypto.h>

#include "tool.h"

int main(int argc, char **argv)
{
    // The tool needs nothing from the OpenSSL configuration file. Should
    // anything reach libcrypto's providers, the file is not read: reading it
    // costs more instructions than a whole session. (The library leaves this
    // choice to its host program.)
    OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
    // Only the commands the command line can reach are built, and the tree
    // stays until the process ends: building and taking apart a few hundred
    // options costs more than a whole session. (Held by a static, so leak
    // checkers see it as reachable.)
    const std::vector<std::string> args(argv + 1, argv + argc);
    static cli::Tool *const tool = new cli::Tool(stdout, stderr, cli::CommandSet::reached_by(args));
    return tool->run(args);
}
