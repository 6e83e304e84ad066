// The session record most simulator tests log in with: user "admin",
// password "secret", administrator privilege, responder 0x20.
#pragma once

#include <cstdint>

#include "loopback.h"
#include "rmcpp.h"

namespace testkit {

inline IPMI_SessionParam simulator_login(uint8_t host, int suite, uint16_t retry_count, uint16_t timeout_sec)
{
    IPMI_SessionParam param{};
    param.bmc_address = loopback(host);
    param.user_name = "admin";
    param.user_password = "secret";
    param.privilege_level = 4;
    param.cipher_suite_id = suite;
    param.slave_address = 0x20;
    param.retry_count = retry_count;
    param.timeout_sec = timeout_sec;
    return param;
}

}  // namespace testkit
