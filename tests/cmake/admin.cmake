# The administrator commands' network tests run the tool's command groups
# in-process over a real session.
foreach(t admin_bmcsim_test admin_ipmi_sim_test)
  if(TARGET ${t})
    target_link_libraries(${t} PRIVATE rmcpp_cli)
    # commands/transport.h before the library's own rmcp/ headers
    target_include_directories(${t} BEFORE PRIVATE ${PROJECT_SOURCE_DIR}/commands ${PROJECT_SOURCE_DIR}/tools/cli)
    set_tests_properties(${t} PROPERTIES LABELS interop)
  endif()
endforeach()
