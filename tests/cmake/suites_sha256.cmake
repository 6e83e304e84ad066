# ipmitool, a client nobody here wrote, against the scripted SHA-256 managed
# system of the suites 15-17 tests: ctest -L interop.
if(TEST suites_sha256_ipmitool_test)
  set_tests_properties(suites_sha256_ipmitool_test PROPERTIES LABELS interop)
endif()
