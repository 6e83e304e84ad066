# Programs that hold the local port range 7001..7099 run alone.
set_tests_properties(init_socket_ports_test PROPERTIES RUN_SERIAL TRUE)
