// Reading the caller's session options record and finding the BMC's
// addresses from it: shared by every entry that takes the record.
#pragma once

#include <cstdint>
#include <vector>

#include "rmcpp.h"
#include "transport.h"

namespace rmcpp::options {

// Logs `message` at level 3; returns RMCPP_ERR_INVALID.
int refuse(const char *message);

// Reads a record of any version into `out`: a null record or one of size 0
// reads as zeroed. Returns 0, or RMCPP_ERR_INVALID with the refusal logged.
int read(const RMCPP_SessionOptions *given, RMCPP_SessionOptions &out);

// The BMC's addresses at `port` (the options' own port when set): the
// options' host resolved, else the record's IPv4 address.
int endpoints(const IPMI_SessionParam &param, const RMCPP_SessionOptions &o, uint32_t port,
              std::vector<transport::Endpoint> &out);

// Failures that another address of the same host may not have.
bool worth_next_address(int result);

}  // namespace rmcpp::options
