# Tests that run the rmcpp tool need its path.
foreach(t cli_test cli_options_test cli_suites_test cli_ipmi_sim_test interop_ipmi_sim_test)
  if(TARGET ${t})
    target_compile_definitions(${t} PRIVATE RMCPP_CLI="$<TARGET_FILE:rmcpp-cli>")
    add_dependencies(${t} rmcpp-cli)
  endif()
endforeach()
# The tool's tests over ::1 port 623 take turns with the other IPv6 tests.
if(TEST cli_suites_test)
  set_tests_properties(cli_suites_test PROPERTIES RESOURCE_LOCK ipv6_loopback)
endif()
if(TEST cli_ipmi_sim_test)
  set_tests_properties(cli_ipmi_sim_test PROPERTIES LABELS interop)
endif()
