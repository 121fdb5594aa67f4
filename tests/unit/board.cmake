# Unit tests of the simulated board.
include(GoogleTest)
find_package(GTest REQUIRED)

add_executable(unit_board
    ${CMAKE_CURRENT_LIST_DIR}/board_chip_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/board_forwarding_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/board_words_test.cpp)
target_link_libraries(unit_board PRIVATE lvt_chip lvt_warnings GTest::gtest_main)
gtest_discover_tests(unit_board TEST_PREFIX board.)
