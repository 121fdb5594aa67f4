# The network simulator.
add_executable(unit_sim sim_judge_test.cpp sim_world_test.cpp)
target_link_libraries(unit_sim PRIVATE lvt_sim_world lvt_warnings GTest::gtest_main)
lvt_discover_unit_tests(unit_sim sim.)
