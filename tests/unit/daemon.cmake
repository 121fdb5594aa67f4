# The daemon's parts, stepped on the desk: a board made of records stands behind its libraries and
# behind the calls of the system that a test must watch or let fail.
add_executable(unit_daemon
    daemon_board.cpp daemon_fixture.cpp daemon_invariants.cpp
    daemon_sw_cfg_test.cpp daemon_os_api_test.cpp daemon_frames_test.cpp daemon_hw_state_test.cpp
    daemon_config_test.cpp daemon_vlan_test.cpp daemon_events_test.cpp
    daemon_aggr_tables_test.cpp daemon_aggr_test.cpp daemon_lacp_test.cpp daemon_msg_test.cpp
    daemon_threads_test.cpp daemon_debug_test.cpp daemon_reports_test.cpp daemon_monitor_test.cpp
    daemon_random_test.cpp
    ${PROJECT_SOURCE_DIR}/tools/messages.cpp)
target_include_directories(unit_daemon PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(unit_daemon PRIVATE
    rstp_daemon rstp_engine rstp_daemon lvt_warnings GTest::gmock GTest::gtest_main)
foreach(call bind fopen fopen64 if_nametoindex ioctl malloc nanosleep open open64 pthread_create recvfrom
        remove rename select sendto socket time)
    target_link_options(unit_daemon PRIVATE -Wl,--wrap=${call})
endforeach()
lvt_discover_unit_tests(unit_daemon daemon.)
