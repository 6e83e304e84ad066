// Access to the process-wide settings from inside the library.
//
// RMCPConnectSA, RMCPStandardKeys, RMCPtimeout, Print_Level, do_self_check
// and flag_1st_random are exported as plain objects: their names and types
// are part of the library's binary interface. Sessions run on several
// threads at once, so every read or write the library makes of them is
// atomic, through a reference to the object itself. A host that changes one
// while sessions run uses the setters (IPMI_SetupConnectSA,
// IPMI_SetupStandardKeys, change_printlevel) or atomic accesses of its own.
#pragma once

#include <atomic>

namespace rmcpp {

template <class T>
T load_setting(T &object)
{
    return std::atomic_ref<T>(object).load(std::memory_order_relaxed);
}

template <class T>
void store_setting(T &object, T value)
{
    std::atomic_ref<T>(object).store(value, std::memory_order_relaxed);
}

}  // namespace rmcpp
