# What a new user meets first: tools/run.sh against the bundled simulator.
add_test(NAME run_sh COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/scripts/run_sh_test.sh
  ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
set_tests_properties(run_sh PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 LABELS scripts)

# cmake --install into a temporary prefix: the installed tool runs against
# the installed simulator without LD_LIBRARY_PATH, and both man pages format.
add_test(NAME install_programs COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/install/programs.sh
  ${PROJECT_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR}/install-programs 127.0.16.3)
set_tests_properties(install_programs PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 LABELS scripts)

# Every "$ rmcpp ..." example of README.md, docs/*.md and docs/*.1 runs
# against the simulator and prints what the document shows.
add_test(NAME doc_examples COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/scripts/doc_examples_test.sh
  ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} 127.0.16.4 ${CMAKE_CURRENT_BINARY_DIR}/doc-examples)
set_tests_properties(doc_examples PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 LABELS scripts)

# README.md's C program compiles warning-free as C and C++ and runs against
# the simulator; it is compiled as the library was (-m32, sanitizers).
set(RMCPP_EXAMPLE_FLAGS ${CMAKE_C_FLAGS})
if(RMCPP_SANITIZE)
  string(APPEND RMCPP_EXAMPLE_FLAGS " -fsanitize=address,undefined")
elseif(RMCPP_TSAN)
  string(APPEND RMCPP_EXAMPLE_FLAGS " -fsanitize=thread")
endif()
separate_arguments(RMCPP_EXAMPLE_FLAGS UNIX_COMMAND "${RMCPP_EXAMPLE_FLAGS}")
add_test(NAME readme_c_example COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/scripts/readme_c_example_test.sh
  ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} $<TARGET_FILE:rmcpp> 127.0.16.5 ${CMAKE_CURRENT_BINARY_DIR}/readme-c-example
  ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER} ${RMCPP_EXAMPLE_FLAGS})
set_tests_properties(readme_c_example PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 LABELS scripts)
