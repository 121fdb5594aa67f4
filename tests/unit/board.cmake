# The simulated board: its chip, the parts of its process, and the stand-in libraries.
add_executable(unit_board
    board_chip_test.cpp board_forwarding_test.cpp board_parts_test.cpp board_platform_test.cpp
    board_within_test.cpp board_words_test.cpp)
target_include_directories(unit_board PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(unit_board PRIVATE
    lvt_board_parts mdio_intf link_mon_intf LvtCom lvt_warnings GTest::gmock GTest::gtest_main)
lvt_discover_unit_tests(unit_board board.)
