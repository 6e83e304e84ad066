// rmcpp: an IPMI v2.0 / RMCP+ command-line tool over librmcpp.
#include "tool.h"

int main(int argc, char **argv)
{
    cli::Tool tool;
    return tool.run(argc, argv);
}
