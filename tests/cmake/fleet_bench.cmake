# The fleet benchmark runs to the end on a fleet of 10 (bench/fleet.sh
# --quick); its figures are printed, never judged.
add_test(NAME fleet_bench COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/scripts/fleet_bench_test.sh
  ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
set_tests_properties(fleet_bench PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 LABELS bench)

# The exporter benchmark likewise, on 10 BMCs (bench/exporter.sh --quick).
if(TARGET rmcpp-exporter AND RMCPP_BUILD_BENCH)
  add_test(NAME exporter_bench COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/scripts/exporter_bench_test.sh
    ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
  set_tests_properties(exporter_bench PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 LABELS "bench;exporter")
endif()
