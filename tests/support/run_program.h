// Runs a program as a child with a hard time limit and collects what it
// printed and how it ended.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace testkit {

struct ProgramResult {
    int exit_code = -1;  // -1 when it was killed or did not end normally
    bool timed_out = false;
    std::string out;
    std::string err;
};

// Number of descriptors this process has open: a check that nothing leaked.
int open_descriptors();

ProgramResult run_program(const std::vector<std::string> &argv,
                          std::chrono::milliseconds limit = std::chrono::seconds(30),
                          const std::map<std::string, std::string> &environment = {});

}  // namespace testkit
