# What rules a Linux bridge, as far as it needs no bridge.
lvt_add_unit_tests(unit_bridge
    TESTS bridge_gate_test.cpp bridge_interface_test.cpp bridge_numbers_test.cpp bridge_state_dir_test.cpp
    LIBRARIES lvt_bridge_parts)
lvt_discover_unit_tests(unit_bridge bridge.)
