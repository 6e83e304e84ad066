# A real Prometheus scrapes three simulated BMCs through rmcpp-exporter and
# must hold each one's sensor readings (tests/exporter/). Skipped when
# prometheus is not installed.
if(TARGET rmcpp-exporter AND TARGET rmcpp-bmcsim)
  add_test(NAME exporter_prometheus COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/exporter/prometheus_test.sh
    ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR}/exporter-prometheus)
  set_tests_properties(exporter_prometheus PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 180 LABELS exporter)
endif()
# The program's command line, exit statuses and signals.
if(TARGET rmcpp-exporter)
  add_test(NAME exporter_program COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/exporter/program_test.sh
    $<TARGET_FILE:rmcpp-exporter> ${CMAKE_CURRENT_BINARY_DIR}/exporter-program)
  set_tests_properties(exporter_program PROPERTIES TIMEOUT 120 LABELS exporter)
endif()
