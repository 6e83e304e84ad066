# The tool's command-line tests run the rmcpp program.
foreach(t cli_tool_test cli_password_test cli_ipmi_sim_privilege_test)
  if(TARGET ${t})
    target_compile_definitions(${t} PRIVATE RMCPP_CLI="$<TARGET_FILE:rmcpp-cli>")
    add_dependencies(${t} rmcpp-cli)
  endif()
endforeach()
# The tool's Runner, in-process.
if(TARGET cli_runner_test)
  # commands/transport.h, not the library's rmcp/transport.h of the same name.
  target_include_directories(cli_runner_test BEFORE PRIVATE ${PROJECT_SOURCE_DIR}/commands)
  target_link_libraries(cli_runner_test PRIVATE rmcpp_cli)
endif()
