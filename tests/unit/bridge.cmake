# What rules a Linux bridge, as far as it needs no bridge.
add_executable(unit_bridge bridge_gate_test.cpp bridge_interface_test.cpp bridge_numbers_test.cpp bridge_state_dir_test.cpp)
target_include_directories(unit_bridge PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(unit_bridge PRIVATE lvt_bridge_parts lvt_warnings GTest::gmock GTest::gtest_main)
lvt_discover_unit_tests(unit_bridge bridge.)
