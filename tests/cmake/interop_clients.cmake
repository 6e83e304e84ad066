# Third-party IPMI clients (Debian's ipmitool and freeipmi-tools) against
# the rmcpp-bmcsim program: ctest -L interop. Each test starts the simulator
# and always stops it; every client run has a hard time limit.
foreach(t interop_ipmitool_test interop_freeipmi_test)
  if(TEST ${t})
    set_tests_properties(${t} PROPERTIES LABELS interop TIMEOUT 300)
  endif()
endforeach()
