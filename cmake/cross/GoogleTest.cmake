# Finds the tests of a program when it runs under an emulator, where each start of a program takes
# long: one ctest test for each suite, not for each case.

# gtest_discover_tests(TARGET TEST_PREFIX PREFIX)
function(gtest_discover_tests target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" TEST_PREFIX "")
    set(suites ${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake)
    file(GENERATE OUTPUT ${suites} CONTENT "
set(program [==[$<TARGET_FILE:${target}>]==])
set(command [==[${CMAKE_CROSSCOMPILING_EMULATOR}]==] \${program})
set(prefix [==[${arg_TEST_PREFIX}]==])
include([==[${CMAKE_CURRENT_FUNCTION_LIST_DIR}/gtest_suites.cmake]==])
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${suites})
endfunction()
