# The network simulator, and what whole switches in it do to the tick.
find_package(fmt REQUIRED)
add_executable(unit_sim
    sim_judge_test.cpp sim_world_test.cpp
    sim_net.cpp sim_tree_test.cpp sim_neighbour_test.cpp sim_group_test.cpp
    ../bpdus.cpp ../lies.cpp ../settings.cpp)
target_link_libraries(unit_sim PRIVATE lvt_sim_world lvt_ctl_rules lvt_warnings fmt::fmt GTest::gtest_main)
lvt_discover_unit_tests(unit_sim sim.)
