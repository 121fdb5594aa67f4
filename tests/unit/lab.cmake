# What labs are made of.
find_package(nlohmann_json REQUIRED)
lvt_add_unit_tests(unit_lab
    TESTS lab_parts_test.cpp
    LIBRARIES lvt_lab_parts nlohmann_json::nlohmann_json)
lvt_discover_unit_tests(unit_lab lab.)
