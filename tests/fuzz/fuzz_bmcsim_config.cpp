// The simulator program's configuration file: each input is written to a
// file and read as `--config FILE` reads it. The program's source is
// compiled into this target (its main renamed), so the real reader runs.
// The word "@self" in the input stands for the file's own path, so that a
// file that names itself can be tried. A rejected file ends in an exception
// that the program reports as a usage error; anything else is a finding.
#define main bmcsim_program_main
#include "main.cpp"
#undef main

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

const std::string &scratch_file()
{
    static const std::string path = [] {
        char name[] = "/tmp/rmcpp-fuzz-config-XXXXXX";
        const int fd = ::mkstemp(name);
        if (fd < 0) std::abort();
        ::close(fd);
        return std::string(name);
    }();
    return path;
}

void remove_scratch_file() { std::remove(scratch_file().c_str()); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096) return 0;
    static const bool registered = (std::atexit(remove_scratch_file), true);
    (void)registered;

    std::string text(reinterpret_cast<const char *>(data), size);
    for (size_t at = text.find("@self"); at != std::string::npos; at = text.find("@self", at))
        text.replace(at, 5, scratch_file());
    {
        std::ofstream out(scratch_file(), std::ios::binary | std::ios::trunc);
        out << text;
    }
    Config config;
    bool help = false;
    try {
        read_config(config, scratch_file(), help);
    } catch (const std::exception &) {
        // What the program prints as "rmcpp-bmcsim: ..." and exits 2 on.
    }
    return 0;
}
