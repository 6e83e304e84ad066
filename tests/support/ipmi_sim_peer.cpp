#include "ipmi_sim_peer.h"

#include <arpa/inet.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace testkit {
namespace {

// /proc/net/udp shows a listening socket as "0A00007F:026F" for 127.0.0.10:623.
std::string proc_net_address(const std::string &address)
{
    in_addr a{};
    if (inet_pton(AF_INET, address.c_str(), &a) != 1) throw std::runtime_error("not an IPv4 address: " + address);
    const uint32_t host = ntohl(a.s_addr);
    char text[32];
    std::snprintf(text, sizeof text, "%02X%02X%02X%02X:026F", host & 0xFF, (host >> 8) & 0xFF, (host >> 16) & 0xFF,
                  host >> 24);
    return text;
}

bool listening(const std::string &address)
{
    std::ifstream in("/proc/net/udp");
    const std::string want = proc_net_address(address);
    std::string line;
    while (std::getline(in, line))
        if (line.find(want) != std::string::npos) return true;
    return false;
}

}  // namespace

std::vector<IpmiSimUser> default_ipmi_sim_users()
{
    return {
        {1, "", "", "user"},
        {2, "admin", "password", "admin"},
        {3, "oper", "operpass", "operator"},
        {4, "usr", "userpass", "user"},
    };
}

IpmiSimPeer::IpmiSimPeer(uint8_t last, std::vector<IpmiSimUser> users, bool per_message_auth)
    : IpmiSimPeer("127.0.0." + std::to_string(last), std::move(users), per_message_auth)
{
}

IpmiSimPeer::IpmiSimPeer(const std::string &address, std::vector<IpmiSimUser> users, bool per_message_auth)
    : IpmiSimPeer(address, std::move(users), per_message_auth, "")
{
}

IpmiSimPeer::IpmiSimPeer(const std::string &address, std::vector<IpmiSimUser> users, bool per_message_auth,
                         const std::string &emulator_commands)
{
    char pattern[] = "/tmp/rmcpp-ipmi-sim-XXXXXX";
    if (mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp");
    dir_ = pattern;
    const std::string state = dir_ + "/state";
    mkdir(state.c_str(), 0700);

    std::ofstream conf(dir_ + "/lan.conf");
    conf << "name \"rmcpp" << address.substr(address.rfind('.') + 1) << "\"\n"
         << "set_working_mc 0x20\n"
         << "  startlan 1\n"
         << "    addr " << address << " 623\n"
         << "    priv_limit admin\n"
         << "    per_msg_auth " << (per_message_auth ? "on" : "off") << "\n"
         << "    allowed_auths_callback none md5 straight\n"
         << "    allowed_auths_user none md5 straight\n"
         << "    allowed_auths_operator none md5 straight\n"
         << "    allowed_auths_admin none md5 straight\n"
         << "    guid a123456789abcdefa123456789abcdef\n"
         << "  endlan\n";
    for (const auto &u : users)
        conf << "  user " << u.number << (u.enabled ? " true " : " false ") << '"' << u.name << "\" \""
             << u.password << "\" " << u.privilege << " 10\n";
    conf.close();

    std::ofstream cmds(dir_ + "/cmds");
    cmds << "mc_setbmc 0x20\n"
         << "mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x1291 0xf02\n"
         << emulator_commands << (emulator_commands.empty() || emulator_commands.back() == '\n' ? "" : "\n")
         << "mc_enable 0x20\n";
    cmds.close();

    const std::string log = dir_ + "/ipmi_sim.log";
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork");
    if (pid_ == 0) {
        FILE *out = std::freopen(log.c_str(), "w", stdout);
        (void)out;
        dup2(fileno(stdout), 2);
        execlp("ipmi_sim", "ipmi_sim", "-c", (dir_ + "/lan.conf").c_str(), "-f", (dir_ + "/cmds").c_str(), "-s",
               state.c_str(), "-n", static_cast<char *>(nullptr));
        std::perror("ipmi_sim");
        _exit(127);
    }
    for (int i = 0; i < 100; ++i) {
        if (listening(address)) return;
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            throw std::runtime_error("ipmi_sim ended at once (is the openipmi package installed?): " + this->log());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    stop();
    throw std::runtime_error("ipmi_sim does not listen on " + address + ":623");
}

IpmiSimPeer::~IpmiSimPeer()
{
    stop();
    if (!dir_.empty()) std::system(("rm -rf '" + dir_ + "'").c_str());
}

void IpmiSimPeer::stop()
{
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    for (int i = 0; i < 40; ++i) {
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = -1;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

std::string IpmiSimPeer::log() const
{
    std::ifstream in(dir_ + "/ipmi_sim.log");
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace testkit
