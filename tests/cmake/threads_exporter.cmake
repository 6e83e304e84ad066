# The exporter's prober runs many probes at once (ManyProbesAtOnce): it runs
# under ThreadSanitizer with the other threaded tests.
if(TEST probe_test)
  set_tests_properties(probe_test PROPERTIES LABELS "unit;exporter;threads")
  if(TARGET rmcpp-threads-tests)
    add_dependencies(rmcpp-threads-tests probe_test)
  endif()
endif()
