// Without libFuzzer a fuzz target is a plain program that feeds every file
// of the directories (or the files) named on its command line to the target
// once, in name order. It fails when it was given nothing to run; a crash or
// a sanitizer report ends it as it would end a fuzzing run.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

std::vector<std::filesystem::path> inputs_of(const std::filesystem::path &arg)
{
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(arg)) {
        for (const auto &entry : std::filesystem::directory_iterator(arg))
            if (entry.is_regular_file()) files.push_back(entry.path());
        std::sort(files.begin(), files.end());
    } else if (std::filesystem::is_regular_file(arg)) {
        files.push_back(arg);
    } else {
        std::fprintf(stderr, "replay: no such file or directory: %s\n", arg.c_str());
    }
    return files;
}

}  // namespace

int main(int argc, char **argv)
{
    size_t runs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &file : inputs_of(argv[i])) {
            std::ifstream in(file, std::ios::binary);
            std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            // An empty vector's data() may be null; libFuzzer hands a valid
            // pointer even for an empty input.
            static const uint8_t none = 0;
            LLVMFuzzerTestOneInput(bytes.empty() ? &none : bytes.data(), bytes.size());
            ++runs;
        }
    }
    std::printf("replay: %zu inputs run\n", runs);
    return runs == 0 ? 1 : 0;
}
