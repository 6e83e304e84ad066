// The simulator program's configuration files may name further files; a
// file that names itself, directly or through another, is refused with a
// usage error instead of recursing until the stack runs out.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "bmcsim.h"
#include "run_program.h"

namespace {

std::string write_file(const std::string &name, const std::string &text)
{
    const std::string path = ::testing::TempDir() + name;
    std::FILE *f = std::fopen(path.c_str(), "w");
    EXPECT_NE(f, nullptr);
    if (f) {
        std::fputs(text.c_str(), f);
        std::fclose(f);
    }
    return path;
}

testkit::ProgramResult run_with_config(const std::string &path)
{
    return testkit::run_program({bmcsim::ChildProcess::default_program(), "--config", path});
}

TEST(BmcsimConfigNesting, AFileThatNamesItselfIsAUsageError)
{
    const std::string path = ::testing::TempDir() + "bmcsim_nest_self.conf";
    write_file("bmcsim_nest_self.conf", "config " + path + "\n");
    const testkit::ProgramResult r = run_with_config(path);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_NE(r.err.find("rmcpp-bmcsim: config files nest more than 16 deep: " + path), std::string::npos) << r.err;
    std::remove(path.c_str());
}

TEST(BmcsimConfigNesting, TwoFilesThatNameEachOtherAreAUsageError)
{
    const std::string a = ::testing::TempDir() + "bmcsim_nest_a.conf";
    const std::string b = ::testing::TempDir() + "bmcsim_nest_b.conf";
    write_file("bmcsim_nest_a.conf", "user admin:secret:4\nconfig " + b + "\n");
    write_file("bmcsim_nest_b.conf", "config " + a + "\n");
    const testkit::ProgramResult r = run_with_config(a);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_NE(r.err.find("config files nest more than 16 deep"), std::string::npos) << r.err;
    std::remove(a.c_str());
    std::remove(b.c_str());
}

// Sixteen files deep is still read to the end: the last file's bad port
// number is what is reported.
TEST(BmcsimConfigNesting, SixteenFilesDeepAreRead)
{
    std::vector<std::string> paths;
    for (int i = 0; i < 16; ++i) paths.push_back(::testing::TempDir() + "bmcsim_nest_" + std::to_string(i) + ".conf");
    for (int i = 0; i < 15; ++i) write_file("bmcsim_nest_" + std::to_string(i) + ".conf", "config " + paths[i + 1] + "\n");
    write_file("bmcsim_nest_15.conf", "port many\n");
    const testkit::ProgramResult r = run_with_config(paths[0]);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_NE(r.err.find("not a number for port: many"), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("nest"), std::string::npos) << r.err;
    for (const auto &p : paths) std::remove(p.c_str());
}

}  // namespace
