# The generator test runs rmcpp-aes-vectors in a scratch directory with
# copies of the table files the build writes beside the program.
if(TARGET aes_vectors_test AND TARGET rmcpp-aes-vectors)
  target_compile_definitions(aes_vectors_test PRIVATE
    RMCPP_AES_VECTORS_PROGRAM="$<TARGET_FILE:rmcpp-aes-vectors>"
    RMCPP_AES_TABLE_DIR="$<TARGET_FILE_DIR:rmcpp-aes-vectors>")
  add_dependencies(aes_vectors_test rmcpp-aes-vectors rmcpp-aes-tables)
  # 48 million Monte Carlo block calls in the program and again in the
  # OpenSSL recomputation; slower under the sanitizers.
  set_tests_properties(aes_vectors_test PROPERTIES TIMEOUT 900 LABELS "unit;aes")
endif()
