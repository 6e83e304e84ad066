# Fuzz targets: one program per parser of received bytes, fuzz_<parser>,
# with its seed corpus in tests/fuzz/<parser>/. With RMCPP_FUZZ (clang) they
# are libFuzzer programs; otherwise each is a plain program that runs every
# file of its corpus once, and CTest runs that replay (label fuzz).
set(RMCPP_FUZZ_PARSERS
  pong auth_capa open_session rakp2 rakp4 session_packet ipmi_resp_head aes_pad_decrypt bmcsim bmcsim_config
  cli_decode channel_ciphers sdr fru sel)
set(RMCPP_FUZZ_DIR ${CMAKE_CURRENT_SOURCE_DIR}/fuzz)

# The targets reach internal checks too, so they link the library's sources
# as a static library of their own rather than the shared library.
set(RMCPP_FUZZ_COMPILE "")
set(RMCPP_FUZZ_LINK "")
if(RMCPP_FUZZ)
  if(RMCPP_SANITIZE)
    set(RMCPP_FUZZ_COMPILE -fsanitize=fuzzer-no-link,address,undefined)
    set(RMCPP_FUZZ_LINK -fsanitize=fuzzer,address,undefined)
  else()
    set(RMCPP_FUZZ_COMPILE -fsanitize=fuzzer-no-link)
    set(RMCPP_FUZZ_LINK -fsanitize=fuzzer)
  endif()
endif()

find_package(Threads REQUIRED)
find_package(yaml-cpp REQUIRED)
if(RMCPP_FUZZ)
  add_library(rmcpp_fuzz_core STATIC ${RMCPP_SOURCES})
  target_include_directories(rmcpp_fuzz_core
    PUBLIC ${PROJECT_SOURCE_DIR}/api ${PROJECT_SOURCE_DIR}/rmcp
    PRIVATE ${PROJECT_SOURCE_DIR}/rakp ${PROJECT_SOURCE_DIR}/aes)
  target_compile_options(rmcpp_fuzz_core PRIVATE ${RMCPP_FUZZ_COMPILE})
  target_compile_definitions(rmcpp_fuzz_core PRIVATE $<TARGET_PROPERTY:rmcpp_objects,COMPILE_DEFINITIONS>)

  # The everyday commands' decoders, built the same way.
  get_target_property(RMCPP_FUZZ_COMMANDS_SOURCES rmcpp_commands SOURCES)
  add_library(rmcpp_fuzz_commands STATIC ${RMCPP_FUZZ_COMMANDS_SOURCES})
  target_include_directories(rmcpp_fuzz_commands PUBLIC ${PROJECT_SOURCE_DIR}/commands PRIVATE ${PROJECT_SOURCE_DIR}/rmcp)
  target_compile_options(rmcpp_fuzz_commands PRIVATE ${RMCPP_FUZZ_COMPILE})

  # The simulator's engine, built the same way.
  get_target_property(RMCPP_FUZZ_SIM_SOURCES bmcsim_core SOURCES)
  get_target_property(RMCPP_FUZZ_SIM_DIR bmcsim_core SOURCE_DIR)
  list(TRANSFORM RMCPP_FUZZ_SIM_SOURCES PREPEND ${RMCPP_FUZZ_SIM_DIR}/)
  add_library(rmcpp_fuzz_bmcsim STATIC ${RMCPP_FUZZ_SIM_SOURCES})
  target_include_directories(rmcpp_fuzz_bmcsim PUBLIC ${RMCPP_FUZZ_SIM_DIR} PRIVATE ${PROJECT_SOURCE_DIR}/rmcp)
  target_compile_options(rmcpp_fuzz_bmcsim PRIVATE ${RMCPP_FUZZ_COMPILE})
  target_link_libraries(rmcpp_fuzz_bmcsim PUBLIC OpenSSL::Crypto Threads::Threads rmcpp_fuzz_commands PRIVATE yaml-cpp)
else()
  # Without libFuzzer the replay programs need no instrumentation of their
  # own: they link what the rest of the build compiled already.
  add_library(rmcpp_fuzz_core STATIC $<TARGET_OBJECTS:rmcpp_objects>)
  set_target_properties(rmcpp_fuzz_core PROPERTIES LINKER_LANGUAGE CXX)
  target_include_directories(rmcpp_fuzz_core PUBLIC ${PROJECT_SOURCE_DIR}/api ${PROJECT_SOURCE_DIR}/rmcp)
  add_library(rmcpp_fuzz_commands ALIAS rmcpp_commands)
  add_library(rmcpp_fuzz_bmcsim ALIAS bmcsim_core)
endif()
target_link_libraries(rmcpp_fuzz_core PUBLIC OpenSSL::Crypto)

foreach(parser ${RMCPP_FUZZ_PARSERS})
  set(target fuzz_${parser})
  add_executable(${target} ${RMCPP_FUZZ_DIR}/${target}.cpp ${RMCPP_FUZZ_DIR}/fuzz_quiet.cpp)
  target_include_directories(${target} PRIVATE ${RMCPP_FUZZ_DIR})
  target_compile_options(${target} PRIVATE ${RMCPP_FUZZ_COMPILE})
  target_link_options(${target} PRIVATE ${RMCPP_FUZZ_LINK})
  target_link_libraries(${target} PRIVATE rmcpp_fuzz_core)
  if(parser MATCHES "^bmcsim")
    target_link_libraries(${target} PRIVATE rmcpp_fuzz_bmcsim)
  endif()
  if(parser MATCHES "^(sdr|fru|sel)$")
    target_link_libraries(${target} PRIVATE rmcpp_fuzz_commands)
  endif()
  if(parser STREQUAL "cli_decode")
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/cli/decode.cpp)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/cli)
  endif()
  if(RMCPP_FUZZ)
    # libFuzzer runs each corpus file once and stops.
    add_test(NAME ${target} COMMAND ${target} -runs=0 ${RMCPP_FUZZ_DIR}/${parser})
  else()
    target_sources(${target} PRIVATE ${RMCPP_FUZZ_DIR}/fuzz_replay_main.cpp)
    add_test(NAME ${target} COMMAND ${target} ${RMCPP_FUZZ_DIR}/${parser})
  endif()
  set_tests_properties(${target} PROPERTIES TIMEOUT 300 LABELS fuzz)
endforeach()
add_custom_target(fuzz_targets)
foreach(parser ${RMCPP_FUZZ_PARSERS})
  add_dependencies(fuzz_targets fuzz_${parser})
endforeach()

# The seed generator: captures valid messages of every kind from the
# simulator's engine and the library's own builders. Run by hand:
#   fuzz_make_corpus tests/fuzz
add_executable(fuzz_make_corpus ${RMCPP_FUZZ_DIR}/make_corpus.cpp ${RMCPP_FUZZ_DIR}/fuzz_quiet.cpp)
target_include_directories(fuzz_make_corpus PRIVATE ${RMCPP_FUZZ_DIR})
target_compile_options(fuzz_make_corpus PRIVATE ${RMCPP_FUZZ_COMPILE})
target_link_options(fuzz_make_corpus PRIVATE ${RMCPP_FUZZ_COMPILE})
target_link_libraries(fuzz_make_corpus PRIVATE rmcpp_fuzz_core rmcpp_fuzz_bmcsim)
