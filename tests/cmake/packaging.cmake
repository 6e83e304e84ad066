# What a new user meets first: tools/run.sh against the bundled simulator.
add_test(NAME run_sh COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/scripts/run_sh_test.sh
  ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
set_tests_properties(run_sh PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 LABELS scripts)
