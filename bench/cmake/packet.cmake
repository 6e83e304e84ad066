# rmcpp-packet-bench: exchanges per second and client CPU per exchange
# against the in-process BMC simulator, and the cost of building and of
# checking one RMCP+ packet, for cipher suites 0 to 3.
if(TARGET bmcsim)
  add_executable(rmcpp-packet-bench ${CMAKE_CURRENT_SOURCE_DIR}/packet_exchange.cpp)
  target_include_directories(rmcpp-packet-bench PRIVATE ${PROJECT_SOURCE_DIR}/rmcp)
  target_link_libraries(rmcpp-packet-bench PRIVATE rmcpp bmcsim benchmark::benchmark)
endif()
