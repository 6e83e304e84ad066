// The simulator program's configuration files may name further files; a
// file that names itself, directly or through another, is refused with a
// usage error instead of recursing until the stack runs out. A file without
// end is refused too, instead of being read until memory runs out.
#include <gtest/gtest.h>

#include <chrono>
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
    return testkit::run_program({bmcsim::ChildProcess::default_program(), "--config", path},
                                std::chrono::seconds(10));
}

TEST(BmcsimConfigFile, AFileThatNamesItselfIsAUsageError)
{
    const std::string path = ::testing::TempDir() + "bmcsim_nest_self.conf";
    write_file("bmcsim_nest_self.conf", "config " + path + "\n");
    const testkit::ProgramResult r = run_with_config(path);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_NE(r.err.find("rmcpp-bmcsim: config files nest more than 16 deep: " + path), std::string::npos) << r.err;
    std::remove(path.c_str());
}

TEST(BmcsimConfigFile, TwoFilesThatNameEachOtherAreAUsageError)
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
TEST(BmcsimConfigFile, SixteenFilesDeepAreRead)
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

TEST(BmcsimConfigFile, ADeviceWithoutEndIsAUsageError)
{
    for (const std::string device : {"/dev/zero", "/dev/full"}) {
        SCOPED_TRACE(device);
        const testkit::ProgramResult r = run_with_config(device);
        EXPECT_FALSE(r.timed_out);
        EXPECT_EQ(r.exit_code, 2);
        EXPECT_NE(r.err.find("rmcpp-bmcsim: config file longer than 1 MiB: " + device), std::string::npos) << r.err;
    }
}

// A file named from another is held to the same bound.
TEST(BmcsimConfigFile, ANamedDeviceWithoutEndIsAUsageError)
{
    const std::string path = write_file("bmcsim_nest_zero.conf", "user admin:secret:4\nconfig /dev/zero\n");
    const testkit::ProgramResult r = run_with_config(path);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_NE(r.err.find("config file longer than 1 MiB: /dev/zero"), std::string::npos) << r.err;
    std::remove(path.c_str());
}

// Up to 1 MiB is read: a file of comment lines just under the bound ends in
// the bad port number on its last line.
TEST(BmcsimConfigFile, AFileOfOneMebibyteIsRead)
{
    std::string text;
    const std::string last = "port many\n";
    while (text.size() + 64 + last.size() <= (1u << 20)) text += "# " + std::string(61, 'x') + "\n";
    text += last;
    ASSERT_LE(text.size(), 1u << 20);
    const std::string path = write_file("bmcsim_config_1mib.conf", text);
    const testkit::ProgramResult r = run_with_config(path);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_NE(r.err.find("not a number for port: many"), std::string::npos) << r.err;
    std::remove(path.c_str());
}

}  // namespace
