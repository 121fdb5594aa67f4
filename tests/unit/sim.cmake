# The network simulator, and what whole switches in it do to the tick.
find_package(fmt REQUIRED)
add_executable(unit_sim
    sim_judge_test.cpp sim_world_test.cpp sim_draw_test.cpp sim_program_test.cpp
    sim_net.cpp sim_tree_test.cpp sim_neighbour_test.cpp sim_group_test.cpp
    ../bpdus.cpp ../lies.cpp ../settings.cpp)
lvt_starter(lvt_sim starter)
target_compile_definitions(unit_sim PRIVATE LVT_SIM="${starter}" LVT_VERSION="${PROJECT_VERSION}")
add_dependencies(unit_sim lvt_sim)
target_link_libraries(unit_sim PRIVATE lvt_sim_world lvt_ctl_rules lvt_warnings fmt::fmt GTest::gtest_main)
lvt_discover_unit_tests(unit_sim sim.)

if(TARGET lvt_sim_play)
    add_executable(unit_sim_play sim_play_test.cpp)
    target_compile_definitions(unit_sim_play PRIVATE
        LVT_SIM="$<TARGET_FILE:lvt_sim>" LVT_SIM_SOURCES="${PROJECT_SOURCE_DIR}/sim" LVT_DOCS="${PROJECT_SOURCE_DIR}/docs")
    target_link_libraries(unit_sim_play PRIVATE lvt_sim_play lvt_warnings fmt::fmt GTest::gmock GTest::gtest_main)
    add_dependencies(unit_sim_play lvt_sim)
    lvt_discover_unit_tests(unit_sim_play sim.)
endif()

# Networks by the thousand, the same ones each time; .ci/nightly plays new ones. Where they would take minutes, some of the same.
if(CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    add_test(NAME sim.fixed_seeds COMMAND lvt_sim seeds 1..40)
    set_tests_properties(sim.fixed_seeds PROPERTIES TIMEOUT 600)
else()
    add_test(NAME sim.fixed_seeds COMMAND lvt_sim seeds 1..2000)

    # Daemons with a fault each, which the first 200 seeds find.
    function(lvt_plant name source from to)
        set(copy ${CMAKE_CURRENT_BINARY_DIR}/planted_${name}.cpp)
        add_custom_command(OUTPUT ${copy}
            COMMAND ${CMAKE_COMMAND} -DSOURCE=${PROJECT_SOURCE_DIR}/src/${source} -DCOPY=${copy}
                "-DFROM=${from}" "-DTO=${to}" -P ${CMAKE_CURRENT_SOURCE_DIR}/plant.cmake
            DEPENDS ${PROJECT_SOURCE_DIR}/src/${source} ${CMAKE_CURRENT_SOURCE_DIR}/plant.cmake VERBATIM)
        # What is linked first is not taken out of the library.
        add_executable(lvt_sim_planted_${name} ${copy})
        target_link_libraries(lvt_sim_planted_${name} PRIVATE lvt_sim_commands)
        add_test(NAME sim.planted_${name}
            COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/sim_planted $<TARGET_FILE:lvt_sim_planted_${name}>)
    endfunction()
    lvt_plant(tie_break rstp/vect.cpp "compare(a->design_port, b->design_port)" "compare(b->design_port, a->design_port)")
    lvt_plant(forward_delay rstp/roletrns.cpp "(port->fdWhile == 0 || port->operEdge || port->agreed)" "(true)")
    lvt_plant(flush rstp/topoch.cpp "if (flush_port)" "if (flush_port > 9)")
    lvt_plant(timer rstp/port.cpp "if (*timer)" "if (*timer && port->port_number != 2)")
endif()
