# The daemon's parts, stepped on the desk: a board made of records stands behind its libraries and
# behind its process, of which a test must watch some calls or let them fail.
find_package(fmt REQUIRED)

# The real process under other names, so that the board can stand before it.
add_library(unit_daemon_process OBJECT ${PROJECT_SOURCE_DIR}/src/process/process.cpp)
target_include_directories(unit_daemon_process PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(unit_daemon_process PRIVATE lvt_plain)
foreach(call open_pipe write_pipe write_once wait_pipes open_socket deafen_socket send_frame interface_address
        create_file place_file now wait_second sleep_second start_thread alloc)
    target_compile_definitions(unit_daemon_process PRIVATE process_${call}=system_${call})
endforeach()
lvt_add_unit_tests(unit_daemon
    TESTS daemon_board.cpp daemon_fixture.cpp daemon_invariants.cpp daemon_image.cpp heard_bpdu.cpp
        daemon_process_test.cpp
        daemon_sw_cfg_test.cpp daemon_os_api_test.cpp daemon_frames_test.cpp daemon_hw_state_test.cpp
        daemon_config_test.cpp daemon_vlan_test.cpp daemon_events_test.cpp
        daemon_aggr_tables_test.cpp daemon_aggr_test.cpp daemon_lacp_test.cpp daemon_msg_test.cpp
        daemon_semaphores_test.cpp daemon_threads_test.cpp daemon_debug_test.cpp daemon_reports_test.cpp
        daemon_monitor_test.cpp daemon_random_test.cpp
    SOURCES $<TARGET_OBJECTS:unit_daemon_process>
        ${PROJECT_SOURCE_DIR}/sim/invariants.cpp ${PROJECT_SOURCE_DIR}/tools/messages.cpp
    LIBRARIES rstp_daemon_gathered rstp_engine_rapid rstp_daemon_gathered fmt::fmt)
lvt_discover_unit_tests(unit_daemon daemon.)

# Every variable of src/ that outlives a call has to be marked.
add_test(NAME daemon.state_is_marked
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/unmarked_state ${CMAKE_NM} $<TARGET_FILE:rstp_daemon_gathered>
        $<TARGET_FILE:rstp_engine_traced> $<TARGET_OBJECTS:unit_daemon_process>
    COMMAND_EXPAND_LISTS)
