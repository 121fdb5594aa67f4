# The simulated board: its chip, the parts of its process, and the stand-in libraries.
lvt_add_unit_tests(unit_board
    TESTS board_chip_test.cpp board_forwarding_test.cpp board_parts_test.cpp board_platform_test.cpp
        board_within_test.cpp board_words_test.cpp
    LIBRARIES lvt_board_parts mdio_intf link_mon_intf LvtCom)
lvt_discover_unit_tests(unit_board board.)
