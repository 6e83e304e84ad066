// Entry checks of the exported functions: a null pointer, a length no
// caller can mean, or a session record the library never opened is refused
// before anything is read or written.
#pragma once

#include <cstdint>

#include "rmcpp.h"

namespace rmcpp::args {

template <typename... P>
bool any_null(const P *...pointers)
{
    return ((pointers == nullptr) || ...);
}

// Logs the refusal of a null pointer; returns RMCPP_ERR_INVALID.
inline int null_input()
{
    lib_log(3, "Null input data.\n");
    return RMCPP_ERR_INVALID;
}

// Logs the refusal of a length no buffer can have; returns RMCPP_ERR_INVALID.
inline int invalid_length()
{
    lib_log(3, "Invalid input data length.\n");
    return RMCPP_ERR_INVALID;
}

// Every session the library opens carries the non-zero console session ID
// that MakeSessionID chose; a record with ID 0 never held a session.
inline bool never_opened(const RMCPp_Session *session) { return session->console_session_id == 0; }

}  // namespace rmcpp::args
