// What both session setup entries share: the checks of the caller's record
// and the hand-over of the established session.
#pragma once

#include "rmcpp.h"

namespace rmcpp::setup {

// Checks the caller's record and fills a fresh establishment state and the
// managed system's port. With `sha256_suites`, cipher suites 15 to 17 are
// accepted too. Returns 0, or 1 with the refusal logged.
int prepare(const IPMI_SessionParam *param, RMCPp_SetupState &state, uint32_t &port, bool sha256_suites);

// Fills the session record from an established state; with `standard_keys`
// its integrity key is K1 and its cipher key K2 of HMAC-SHA1.
void open_session(const RMCPp_SetupState &state, RMCPp_Session &s, bool standard_keys);

}  // namespace rmcpp::setup
