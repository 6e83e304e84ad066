# The SDR and sensor tests: the sample platform's path, and the tool's
# library for the tests that read sensors over a real session.
if(TARGET bmcsim_platform_file_test)
  target_compile_definitions(bmcsim_platform_file_test PRIVATE
    BMCSIM_SAMPLE_PLATFORM="${PROJECT_SOURCE_DIR}/tools/bmcsim/sample-platform.yaml")
endif()
rmcpp_tool_tests(sdr_bmcsim_test sdr_ipmi_sim_test threshold_events_sel_test)
foreach(t sdr_bmcsim_test sdr_ipmi_sim_test)
  if(TARGET ${t})
    target_compile_definitions(${t} PRIVATE
      BMCSIM_SAMPLE_PLATFORM="${PROJECT_SOURCE_DIR}/tools/bmcsim/sample-platform.yaml")
    set_tests_properties(${t} PROPERTIES LABELS interop)
  endif()
endforeach()
if(TEST threshold_events_sel_test)
  set_tests_properties(threshold_events_sel_test PROPERTIES LABELS interop)
endif()
