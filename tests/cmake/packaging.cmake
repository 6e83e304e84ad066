# What a new user meets first: tools/run.sh against the bundled simulator.
add_test(NAME run_sh COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/scripts/run_sh_test.sh
  ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
set_tests_properties(run_sh PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 LABELS scripts)

# cmake --install into a temporary prefix: the installed tool runs against
# the installed simulator without LD_LIBRARY_PATH, and both man pages format.
add_test(NAME install_programs COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/install/programs.sh
  ${PROJECT_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR}/install-programs 127.0.16.3)
set_tests_properties(install_programs PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 LABELS scripts)
