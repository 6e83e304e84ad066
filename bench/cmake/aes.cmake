# rmcpp-aes-bench: rijndaelSpeed, then the core's AES-128 throughput against
# OpenSSL's EVP AES-128 with and without hardware AES, in one run.
add_executable(rmcpp-aes-bench ${CMAKE_CURRENT_SOURCE_DIR}/aes_throughput.cpp)
target_link_libraries(rmcpp-aes-bench PRIVATE rmcpp benchmark::benchmark OpenSSL::Crypto)
