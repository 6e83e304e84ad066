# The bad-argument table checks itself against the list of exported names.
if(TARGET exported_bad_arguments_test)
  target_compile_definitions(exported_bad_arguments_test PRIVATE
    RMCPP_EXPORTED_SYMBOLS="${CMAKE_CURRENT_SOURCE_DIR}/exported_symbols.txt")
endif()
