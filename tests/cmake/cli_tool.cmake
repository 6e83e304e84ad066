# The tool's command-line tests run the rmcpp program.
foreach(t cli_tool_test cli_password_test cli_ipmi_sim_privilege_test)
  if(TARGET ${t})
    target_compile_definitions(${t} PRIVATE RMCPP_CLI="$<TARGET_FILE:rmcpp-cli>")
    add_dependencies(${t} rmcpp-cli)
  endif()
endforeach()
# The tool's Runner, in-process.
rmcpp_tool_tests(cli_runner_test)
