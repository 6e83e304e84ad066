# The version the library reports is the project's.
if(TARGET rmcpp_strerror_test)
  target_compile_definitions(rmcpp_strerror_test PRIVATE RMCPP_PROJECT_VERSION="${PROJECT_VERSION}")
endif()
