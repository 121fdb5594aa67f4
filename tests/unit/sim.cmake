# The network simulator, and what whole switches in it do to the tick.
find_package(fmt REQUIRED)
lvt_starter(lvt_sim starter)
lvt_add_unit_tests(unit_sim
    TESTS sim_judge_test.cpp sim_world_test.cpp sim_draw_test.cpp sim_program_test.cpp
        sim_net.cpp sim_tree_test.cpp sim_neighbour_test.cpp sim_group_test.cpp sim_rapid_test.cpp
        ../bpdus.cpp ../lies.cpp ../settings.cpp
    LIBRARIES lvt_sim_world lvt_ctl_rules fmt::fmt
    DEFINITIONS LVT_SIM="${starter}" LVT_SIM_COMPLETION="${PROJECT_SOURCE_DIR}/sim/completion/lvt_sim"
        LVT_VERSION="${PROJECT_VERSION}")
add_dependencies(unit_sim lvt_sim)
lvt_discover_unit_tests(unit_sim sim.)

if(TARGET lvt_sim_play)
    lvt_add_unit_tests(unit_sim_play
        TESTS sim_play_test.cpp
        LIBRARIES lvt_sim_play fmt::fmt
        DEFINITIONS LVT_SIM="$<TARGET_FILE:lvt_sim>" LVT_SIM_SOURCES="${PROJECT_SOURCE_DIR}/sim"
            LVT_DOCS="${PROJECT_SOURCE_DIR}/docs")
    add_dependencies(unit_sim_play lvt_sim)
    lvt_discover_unit_tests(unit_sim_play sim.)
endif()

# Networks by the thousand, the same ones each time and new ones; .ci/nightly plays more of these. Where they
# would take minutes, some of the same.
if(CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    add_test(NAME sim.fixed_seeds COMMAND lvt_sim seeds 1..40)
    set_tests_properties(sim.fixed_seeds PROPERTIES TIMEOUT 600)
else()
    add_test(NAME sim.fixed_seeds COMMAND lvt_sim seeds 1..2000)
    add_test(NAME sim.new_seeds COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/sim_new_seeds $<TARGET_FILE:lvt_sim> 2000)
    set_tests_properties(sim.fixed_seeds sim.new_seeds PROPERTIES COST 1000) # the longest begin first

    # A seed is the whole story, however the daemon is compiled: in one piece or in parts.
    add_executable(lvt_sim_in_parts)
    target_link_libraries(lvt_sim_in_parts PRIVATE lvt_sim_commands)
    add_test(NAME sim.tells_the_same_however_it_is_compiled
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/sim_same $<TARGET_FILE:lvt_sim> $<TARGET_FILE:lvt_sim_in_parts> 60)
    if(LVT_RAPID)
        add_test(NAME sim.rapid_seeds COMMAND lvt_sim seeds 1..300 --rapid)
        # 1033, 1160 and 1345 had a ring while agreements of another kind counted whatever was told before.
        add_test(NAME sim.mixed_seeds COMMAND lvt_sim seeds 1001..1400 --mixed)
        # These had one while switches of both kinds took each other's agreements as those of their own kind are meant.
        # 28585 was never at rest while agreements were asked for on shared segments.
        foreach(seed 16030 44454 58335 61643 64457 71640 28585)
            add_test(NAME sim.mixed_seed_${seed} COMMAND lvt_sim run --seed ${seed} --mixed --quiet)
        endforeach()
        # This had one while a port that forwarded by its timers went on when it told something worse.
        add_test(NAME sim.mixed_mesh COMMAND
            lvt_sim run --seed 60 --shape mesh --faults outages --mixed --quiet)
        # 9535 lost hosts behind a port that was set as edge when it had been agreed; in the others alternate ports
        # answered whatever the hold count.
        foreach(seed 9535 70932 101037)
            add_test(NAME sim.rapid_seed_${seed} COMMAND lvt_sim run --seed ${seed} --rapid --quiet)
        endforeach()
    endif()

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

    # What shrink writes as a test is one: it fails with the daemon that it was found with, and passes with ours.
    if(TARGET lvt_sim_play)
        set(shrunk ${CMAKE_CURRENT_BINARY_DIR}/shrunk_test.cpp)
        add_custom_command(OUTPUT ${shrunk}
            COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/sim_shrunk $<TARGET_FILE:lvt_sim_planted_forward_delay> ${shrunk}
            DEPENDS lvt_sim_planted_forward_delay ${CMAKE_CURRENT_SOURCE_DIR}/sim_shrunk VERBATIM)
        add_library(unit_sim_shrunk_test OBJECT ${shrunk})
        target_link_libraries(unit_sim_shrunk_test PUBLIC lvt_sim_play GTest::gtest_main)
        add_executable(unit_sim_shrunk)
        target_link_libraries(unit_sim_shrunk PRIVATE unit_sim_shrunk_test)
        add_test(NAME sim.shrunk_test_passes COMMAND unit_sim_shrunk)
        add_executable(unit_sim_shrunk_planted ${CMAKE_CURRENT_BINARY_DIR}/planted_forward_delay.cpp)
        target_link_libraries(unit_sim_shrunk_planted PRIVATE unit_sim_shrunk_test)
        add_test(NAME sim.shrunk_test_fails_with_the_fault COMMAND unit_sim_shrunk_planted)
        set_tests_properties(sim.shrunk_test_fails_with_the_fault PROPERTIES PASS_REGULAR_EXPRESSION
            "Which is: \"no-loop\".*1 FAILED TEST")
    endif()
endif()
