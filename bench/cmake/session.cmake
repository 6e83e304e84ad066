# rmcpp_bench_session: client CPU per exchange and session setups per
# second against a BMC simulator in another process (its address given).
# The fleet benchmark runs it; the test below only checks that each mode
# runs and prints its line, never how fast.
add_executable(rmcpp_bench_session ${CMAKE_CURRENT_SOURCE_DIR}/session_bench.cpp)
target_link_libraries(rmcpp_bench_session PRIVATE rmcpp)
if(RMCPP_BUILD_TESTS AND TARGET rmcpp-bmcsim)
  add_test(NAME bench_session_runs
    COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/session_bench_test.sh
            $<TARGET_FILE:rmcpp_bench_session> $<TARGET_FILE:rmcpp-bmcsim>)
  set_tests_properties(bench_session_runs PROPERTIES LABELS "unit;bench" TIMEOUT 120)
endif()
