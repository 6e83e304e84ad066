# The rmcpp tool through lossy relays against the rmcpp-bmcsim program.
if(TARGET cli_lossy_test)
  target_sources(cli_lossy_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/support/lossy_relay.cpp)
  target_compile_definitions(cli_lossy_test PRIVATE RMCPP_CLI="$<TARGET_FILE:rmcpp-cli>")
  add_dependencies(cli_lossy_test rmcpp-cli rmcpp-bmcsim)
  set_tests_properties(cli_lossy_test PROPERTIES LABELS "unit;lossy" TIMEOUT 300)
endif()
# The rmcpp tool when Close Session fails after the command.
if(TARGET cli_close_session_test)
  target_compile_definitions(cli_close_session_test PRIVATE RMCPP_CLI="$<TARGET_FILE:rmcpp-cli>")
  add_dependencies(cli_close_session_test rmcpp-cli)
endif()
