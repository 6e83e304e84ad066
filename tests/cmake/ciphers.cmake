# The Get Channel Cipher Suites test reaches the library's internal request
# builder, decoder and exchange: they are compiled into it (their
# dependencies are the library's exported functions).
if(TARGET GetChannelCipherSuites_test)
  target_sources(GetChannelCipherSuites_test PRIVATE ${PROJECT_SOURCE_DIR}/api/GetChannelCipherSuites.cpp)
  target_include_directories(GetChannelCipherSuites_test PRIVATE ${PROJECT_SOURCE_DIR}/api)
endif()
foreach(t GetChannelCipherSuites_test rmcpp_get_channel_cipher_suites_test)
  if(TEST ${t})
    set_tests_properties(${t} PROPERTIES LABELS "unit;interop")
  endif()
endforeach()
