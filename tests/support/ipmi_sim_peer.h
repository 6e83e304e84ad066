// OpenIPMI's ipmi_sim as a black-box peer: writes its configuration into a
// temporary directory, starts it on a loopback address, port 623, and
// always stops it when the peer goes out of scope.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace testkit {

struct IpmiSimUser {
    int number;             // 1 is the anonymous user
    std::string name;       // at most 15 characters
    std::string password;   // at most 19 characters
    std::string privilege;  // callback, user, operator, admin
    bool enabled = true;
};

class IpmiSimPeer {
public:
    // Starts ipmi_sim listening on 127.0.0.`last`:623; throws when it
    // cannot be started or does not listen within a few seconds.
    IpmiSimPeer(uint8_t last, std::vector<IpmiSimUser> users, bool per_message_auth = true);
    // The same on any IPv4 loopback address, "127.0.5.3".
    IpmiSimPeer(const std::string &address, std::vector<IpmiSimUser> users, bool per_message_auth = true);
    // The same, with further lines for ipmi_sim's emulator command file
    // (main_sdr_add, sensor_add, mc_add_fru_data, sel_add, ...), run after
    // the BMC at 0x20 is added and before it is enabled.
    IpmiSimPeer(const std::string &address, std::vector<IpmiSimUser> users, bool per_message_auth,
                const std::string &emulator_commands);
    ~IpmiSimPeer();
    IpmiSimPeer(const IpmiSimPeer &) = delete;
    IpmiSimPeer &operator=(const IpmiSimPeer &) = delete;

    // What ipmi_sim printed so far.
    std::string log() const;

private:
    void stop();

    std::string dir_;
    pid_t pid_ = -1;
};

// The default users of the tests: the anonymous user (number 1, no
// password, user privilege), admin, an operator and a plain user.
std::vector<IpmiSimUser> default_ipmi_sim_users();

}  // namespace testkit
