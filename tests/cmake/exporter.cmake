# The exporter's tests sit beside its sources in tools/exporter/. Those that
# serve simulated BMCs link the simulator in-process.
if(TARGET rmcpp_exporter_core)
  file(GLOB RMCPP_EXPORTER_TEST_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/exporter/*_test.cpp)
  foreach(src ${RMCPP_EXPORTER_TEST_SOURCES})
    get_filename_component(name ${src} NAME_WE)
    add_executable(${name} ${src})
    target_include_directories(${name} BEFORE PRIVATE ${PROJECT_SOURCE_DIR}/commands)
    target_link_libraries(${name} PRIVATE rmcpp_exporter_core rmcpp_testkit bmcsim GTest::gtest_main)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 LABELS "unit;exporter")
  endforeach()
endif()
