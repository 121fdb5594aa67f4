# The engine against its rules, in a world that records what it does.
find_package(fmt REQUIRED)

lvt_add_unit_tests(unit_engine
    TESTS engine_world.cpp engine_table.cpp
        engine_vect_test.cpp engine_bpdu_test.cpp engine_names_test.cpp
        engine_info_test.cpp engine_rolesel_test.cpp engine_roletrns_test.cpp engine_sttrans_topoch_test.cpp
        engine_migrate_transmit_test.cpp engine_link_test.cpp
        engine_step_test.cpp engine_life_test.cpp engine_stp_in_test.cpp engine_scenario_test.cpp
        engine_departures_test.cpp $<$<BOOL:${LVT_RAPID}>:engine_rapid_test.cpp> engine_table_test.cpp
        engine_seed_test.cpp heard_bpdu.cpp
    # Assertions end a test as they end the daemon.
    SOURCES ${PROJECT_SOURCE_DIR}/src/l2_proto_utility/assert_fail.cpp
    LIBRARIES rstp_engine_traced fmt::fmt)
lvt_discover_unit_tests(unit_engine engine.)
