# The rmcpp tool's trace sink compiled into a test of its own: its
# putKivTrace replaces the library's, so no capturing test sink is linked.
add_executable(cli_trace_sink_test cli/trace_sink_test.cpp ${PROJECT_SOURCE_DIR}/tools/cli/trace_log.cpp)
target_include_directories(cli_trace_sink_test PRIVATE ${PROJECT_SOURCE_DIR}/tools/cli)
target_link_libraries(cli_trace_sink_test PRIVATE rmcpp GTest::gtest_main)
add_test(NAME cli_trace_sink_test COMMAND cli_trace_sink_test)
set_tests_properties(cli_trace_sink_test PROPERTIES TIMEOUT 300 LABELS unit)
