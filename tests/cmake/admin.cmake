# The administrator commands' network tests run the tool's command groups
# in-process over a real session.
rmcpp_tool_tests(admin_bmcsim_test admin_bmcsim_commands_test admin_ipmi_sim_test)
# Those that run ipmitool and FreeIPMI next to the tool.
foreach(t admin_bmcsim_test admin_ipmi_sim_test)
  if(TEST ${t})
    set_tests_properties(${t} PROPERTIES LABELS interop)
  endif()
endforeach()
# The platform file's boot and lan sections, from YAML strings.
if(TARGET bmcsim_platform_admin_test)
  target_compile_definitions(bmcsim_platform_admin_test PRIVATE
    RMCPP_SAMPLE_PLATFORM_ADMIN="${PROJECT_SOURCE_DIR}/tools/bmcsim/sample-platform.yaml")
endif()
