// Where rmcpp takes the password from: -a asks on the terminal without echo
// (a pseudo-terminal here), -E reads IPMI_PASSWORD, -f the first line of a
// file; over-long user names, passwords and Kg are usage errors in words.
// The simulator listens on 127.0.15.3.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "run_program.h"

namespace {

constexpr const char *kBmc = "127.0.15.3";
constexpr const char *kPassword = "s3cret-Pw";
constexpr const char *kLongUser = "sixteen-chars-us";       // 16
constexpr const char *kLongPassword = "twenty-characters-pw";  // 20

class CliPassword : public ::testing::Test {
protected:
    void SetUp() override
    {
        bmcsim::Config c;
        c.address = kBmc;
        c.users = {{"admin", kPassword, 4, true}, {kLongUser, kLongPassword, 4, true}};
        sim_ = std::make_unique<bmcsim::Simulator>(c);
        sim_->start();
    }
    void TearDown() override { sim_->stop(); }

    static std::vector<std::string> command(std::vector<std::string> flags)
    {
        std::vector<std::string> a = {RMCPP_CLI, "-H", kBmc, "-U", "admin", "-C", "3", "-R", "1", "-N", "1"};
        a.insert(a.end(), flags.begin(), flags.end());
        a.push_back("session");
        return a;
    }
    static testkit::ProgramResult rmcpp(std::vector<std::string> flags,
                                        const std::map<std::string, std::string> &env = {})
    {
        return testkit::run_program(command(std::move(flags)), std::chrono::seconds(30), env);
    }

    std::unique_ptr<bmcsim::Simulator> sim_;
};

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// What a program on a pseudo-terminal wrote there, having been sent `typed`
// once it wrote `prompt`; and its exit status.
struct TerminalRun {
    std::string screen;
    int exit_code = -1;
};

TerminalRun run_on_terminal(const std::vector<std::string> &argv, const std::string &prompt, const std::string &typed)
{
    TerminalRun run;
    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    if (pid < 0) return run;
    if (pid == 0) {
        std::vector<char *> args;
        for (const auto &a : argv) args.push_back(const_cast<char *>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    bool sent = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd p{master, POLLIN, 0};
        if (poll(&p, 1, 200) <= 0) continue;
        char buffer[512];
        const ssize_t n = read(master, buffer, sizeof buffer);
        if (n <= 0) break;  // EIO once the program has ended
        run.screen.append(buffer, static_cast<size_t>(n));
        if (!sent && contains(run.screen, prompt)) {
            if (write(master, typed.data(), typed.size()) != static_cast<ssize_t>(typed.size())) break;
            sent = true;
        }
    }
    close(master);
    int status = 0;
    if (waitpid(pid, &status, 0) == pid && WIFEXITED(status)) run.exit_code = WEXITSTATUS(status);
    return run;
}

TEST_F(CliPassword, DashAAsksOnTheTerminalWithoutEcho)
{
    const auto run = run_on_terminal(command({"-a"}), "Password: ", std::string(kPassword) + "\n");
    EXPECT_EQ(run.exit_code, 0) << run.screen;
    EXPECT_TRUE(contains(run.screen, "Password: ")) << run.screen;
    EXPECT_FALSE(contains(run.screen, kPassword)) << "the password was echoed:\n" << run.screen;
    EXPECT_TRUE(contains(run.screen, "Granted Privilege  : ADMINISTRATOR")) << run.screen;
    EXPECT_EQ(sim_->stats().sessions_established, 1u);

    const auto wrong = run_on_terminal(command({"-a"}), "Password: ", "not-it\n");
    EXPECT_EQ(wrong.exit_code, 1) << wrong.screen;
    EXPECT_TRUE(contains(wrong.screen, "wrong password")) << wrong.screen;
}

// Without a controlling terminal (setsid) there is nobody to ask.
TEST_F(CliPassword, DashAWithoutTerminalIsAClearError)
{
    std::vector<std::string> argv = command({"-a"});
    argv.insert(argv.begin(), {"setsid", "-w"});
    const auto r = testkit::run_program(argv, std::chrono::seconds(30));
    EXPECT_EQ(r.exit_code, 2) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(contains(r.err, "rmcpp: -a needs a terminal to ask for the password (/dev/tty: ")) << r.err;
    EXPECT_TRUE(contains(r.err, "use -P, -E or -f instead; see rmcpp --help\n")) << r.err;
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Ping), 0u) << "nothing was sent";
}

TEST_F(CliPassword, DashEReadsIpmiPassword)
{
    EXPECT_EQ(rmcpp({"-E"}, {{"IPMI_PASSWORD", kPassword}}).exit_code, 0);
    EXPECT_EQ(rmcpp({"-E"}, {{"IPMI_PASSWORD", "not-it"}}).exit_code, 1);
    const auto unset = rmcpp({"-E"});
    EXPECT_EQ(unset.exit_code, 2);
    EXPECT_EQ(unset.err, "rmcpp: -E given but IPMI_PASSWORD is not set; see rmcpp --help\n");
}

TEST_F(CliPassword, DashFReadsTheFirstLineOfTheFile)
{
    const std::string file = testing::TempDir() + "rmcpp-cli-password-test";
    std::ofstream(file) << kPassword << "\nsecond line\n";
    auto r = rmcpp({"-f", file});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    std::ofstream(file) << kPassword << "\r\n";
    r = rmcpp({"-f", file});
    EXPECT_EQ(r.exit_code, 0) << "a CRLF line end is not part of the password: " << r.err;
    std::remove(file.c_str());
    r = rmcpp({"-f", file});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_EQ(r.err, "rmcpp: cannot read password file " + file + "; see rmcpp --help\n");
}

TEST_F(CliPassword, LengthsUpToTheLimitsWork)
{
    const auto r = testkit::run_program({RMCPP_CLI, "-H", kBmc, "-U", kLongUser, "-P", kLongPassword, "-C", "3",
                                         "-k", kLongPassword, "session"},
                                        std::chrono::seconds(30));
    // The simulator has no Kg here, so one of 20 characters is accepted by
    // the tool and refused by the BMC as any wrong key would be.
    EXPECT_NE(r.exit_code, 2) << r.err;
    const auto plain = testkit::run_program(
        {RMCPP_CLI, "-H", kBmc, "-U", kLongUser, "-P", kLongPassword, "-C", "3", "session"}, std::chrono::seconds(30));
    EXPECT_EQ(plain.exit_code, 0) << plain.err;
}

TEST_F(CliPassword, OverLongValuesAreUsageErrorsInWords)
{
    const std::string user17 = std::string(kLongUser) + "x";
    const std::string password21 = std::string(kLongPassword) + "x";
    auto r = testkit::run_program({RMCPP_CLI, "-H", kBmc, "-U", user17, "-P", "x", "session"});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_EQ(r.err, "rmcpp: user name is 17 characters long; at most 16 are allowed; see rmcpp --help\n");
    r = rmcpp({"-P", password21});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_EQ(r.err, "rmcpp: password is 21 characters long; at most 20 are allowed; see rmcpp --help\n");
    r = rmcpp({"-E"}, {{"IPMI_PASSWORD", password21}});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_EQ(r.err, "rmcpp: password is 21 characters long; at most 20 are allowed; see rmcpp --help\n");
    r = rmcpp({"-P", kPassword, "-k", password21});
    EXPECT_EQ(r.exit_code, 2);
    EXPECT_EQ(r.err, "rmcpp: Kg is 21 characters long; at most 20 are allowed; see rmcpp --help\n");
    EXPECT_EQ(sim_->stats().count(bmcsim::Kind::Ping), 0u) << "nothing was sent";
}

}  // namespace
