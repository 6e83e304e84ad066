# rmcpp_bench_scrape: one scrape of every BMC of a fleet, through the
# exporter over HTTP or through a program run per target; bench/exporter.sh
# runs it for rmcpp-exporter beside FreeIPMI's ipmi-sensors.
if(TARGET rmcpp_exporter_core)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(RMCPP_BENCH_HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
  find_package(Threads REQUIRED)
  add_executable(rmcpp_bench_scrape ${CMAKE_CURRENT_SOURCE_DIR}/scrape_load.cpp)
  target_link_libraries(rmcpp_bench_scrape PRIVATE PkgConfig::RMCPP_BENCH_HTTPLIB Threads::Threads)
endif()
