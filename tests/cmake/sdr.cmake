# The SDR and sensor tests: the sample platform's path, and the tool's
# library for the tests that read sensors over a real session.
if(TARGET bmcsim_platform_file_test)
  target_compile_definitions(bmcsim_platform_file_test PRIVATE
    BMCSIM_SAMPLE_PLATFORM="${PROJECT_SOURCE_DIR}/tools/bmcsim/sample-platform.yaml")
endif()
foreach(t sdr_bmcsim_test sdr_ipmi_sim_test)
  if(TARGET ${t})
    target_link_libraries(${t} PRIVATE rmcpp_cli)
    target_compile_definitions(${t} PRIVATE
      BMCSIM_SAMPLE_PLATFORM="${PROJECT_SOURCE_DIR}/tools/bmcsim/sample-platform.yaml")
    set_tests_properties(${t} PROPERTIES LABELS interop)
  endif()
endforeach()
if(TARGET threshold_events_sel_test)
  target_link_libraries(threshold_events_sel_test PRIVATE rmcpp_cli)
  # The commands' transport.h before the library's own of that name.
  target_include_directories(threshold_events_sel_test BEFORE PRIVATE ${PROJECT_SOURCE_DIR}/commands)
  set_tests_properties(threshold_events_sel_test PROPERTIES LABELS interop)
endif()
