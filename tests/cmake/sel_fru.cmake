# SEL and FRU: the network tests run the tool's sel and fru command groups
# (rmcpp_cli) over a real session; the simulator's tests read its sample
# platform sections.
rmcpp_tool_tests(bmcsim_sel_fru_test sel_fru_bmcsim_interop_test sel_fru_ipmi_sim_interop_test)
foreach(name bmcsim_sel_fru_test sel_fru_bmcsim_interop_test sel_fru_ipmi_sim_interop_test)
  if(TARGET ${name})
    target_compile_definitions(${name} PRIVATE RMCPP_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  endif()
endforeach()
foreach(name sel_fru_bmcsim_interop_test sel_fru_ipmi_sim_interop_test)
  if(TEST ${name})
    set_tests_properties(${name} PROPERTIES LABELS interop)
  endif()
endforeach()

