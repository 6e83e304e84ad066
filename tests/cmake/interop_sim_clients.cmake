# ipmitool and FreeIPMI against rmcpp-bmcsim: cipher suites 15 to 17, IPv6,
# and a simulator that does not answer pings (ctest -L interop). Each test
# starts its simulators and always stops them; every client run has a hard
# time limit.
foreach(t interop_ipmitool_sha256_test interop_freeipmi_sha256_test interop_ipv6_test interop_no_pong_test)
  if(TEST ${t})
    set_tests_properties(${t} PROPERTIES LABELS interop TIMEOUT 300)
  endif()
endforeach()
# Tests that may bind ::1 port 623 take turns.
if(TEST interop_ipv6_test)
  set_tests_properties(interop_ipv6_test PROPERTIES RESOURCE_LOCK ipv6_loopback)
endif()
