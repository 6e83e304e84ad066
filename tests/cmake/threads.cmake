# Tests that run sessions on many threads at once carry the label `threads`;
# tools/test.sh --tsan builds them (target rmcpp-threads-tests) with
# ThreadSanitizer and runs just these: ctest -L threads.
if(TARGET lossy_soak_test)
  target_sources(lossy_soak_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/support/lossy_relay.cpp)
endif()
set(RMCPP_THREADS_TESTS threads_sessions_test threads_many_sessions_test lossy_soak_test interleaved_sessions_test)
add_custom_target(rmcpp-threads-tests)
foreach(t ${RMCPP_THREADS_TESTS})
  if(TARGET ${t})
    set_tests_properties(${t} PROPERTIES LABELS "unit;threads" TIMEOUT 300)
    add_dependencies(rmcpp-threads-tests ${t})
  endif()
endforeach()

# The library's own trace sink, written to from several threads at once.
find_package(Threads REQUIRED)
add_executable(threads_sink_check default_sink/threads_sink_check.cpp)
target_link_libraries(threads_sink_check PRIVATE rmcpp Threads::Threads)
add_test(NAME threads_default_sink COMMAND threads_sink_check)
set_tests_properties(threads_default_sink PROPERTIES LABELS "unit;threads")
add_dependencies(rmcpp-threads-tests threads_sink_check)
