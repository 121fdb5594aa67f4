# Read by ctest: adds a test for each suite of `program`, which `command` starts,
# but for those in `left_out`.
if(NOT EXISTS ${program})
    add_test(${prefix}NOT_BUILT ${program})
    return()
endif()
execute_process(COMMAND ${command} --gtest_list_tests OUTPUT_VARIABLE listing RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${program} cannot list its tests: ${result}")
endif()

string(REGEX MATCHALL "\n[^ \n]+\\." suites "${listing}")
foreach(suite IN LISTS suites)
    string(REGEX REPLACE "[\n.]" "" name ${suite})
    string(STRIP ${suite} suite)
    list(FIND left_out ${name} place)
    if(NOT place EQUAL -1)
        continue()
    endif()
    add_test(${prefix}${name} ${command} --gtest_filter=${suite}*)
    set_tests_properties(${prefix}${name} PROPERTIES TIMEOUT 600) # some suites count by the hundred thousand
endforeach()
