# The network simulator, and what whole switches in it do to the tick.
find_package(fmt REQUIRED)
add_executable(unit_sim
    sim_judge_test.cpp sim_world_test.cpp
    sim_net.cpp sim_tree_test.cpp sim_neighbour_test.cpp sim_group_test.cpp
    ../bpdus.cpp ../lies.cpp ../settings.cpp)
target_link_libraries(unit_sim PRIVATE lvt_sim_world lvt_ctl_rules lvt_warnings fmt::fmt GTest::gtest_main)
lvt_discover_unit_tests(unit_sim sim.)

if(TARGET lvt_sim_play)
    add_executable(unit_sim_play sim_play_test.cpp)
    target_compile_definitions(unit_sim_play PRIVATE LVT_SIM="$<TARGET_FILE:lvt_sim>" LVT_DOCS="${PROJECT_SOURCE_DIR}/docs")
    target_link_libraries(unit_sim_play PRIVATE lvt_sim_play lvt_warnings fmt::fmt GTest::gmock GTest::gtest_main)
    add_dependencies(unit_sim_play lvt_sim)
    lvt_discover_unit_tests(unit_sim_play sim.)
endif()
