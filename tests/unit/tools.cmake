# The message encoder, the settings' rules and the operator's tool.
find_package(fmt REQUIRED)

add_executable(unit_tools
    $<IF:$<BOOL:${LVT_CAPTURES}>,tools_capture_test.cpp,tools_capture_missing_test.cpp>
    tools_config_test.cpp tools_ctl_test.cpp tools_docs_test.cpp tools_expect_test.cpp tools_hex_test.cpp
    tools_lab_test.cpp tools_messages_test.cpp tools_number_test.cpp tools_pipe_test.cpp tools_rooms_test.cpp
    tools_rules_test.cpp tools_schema_test.cpp tools_show_test.cpp tools_status_test.cpp
    ${PROJECT_SOURCE_DIR}/tools/ctl/hex.cpp)
lvt_starter(lvt_rstpctl starter)
target_compile_definitions(unit_tools PRIVATE
    LVT_RSTPCTL="${starter}" LVT_COMPLETION="${PROJECT_SOURCE_DIR}/tools/completion/lvt_rstpctl"
    LVT_DOCS="${PROJECT_SOURCE_DIR}/docs" LVT_SOURCES="${PROJECT_SOURCE_DIR}/src" LVT_VERSION="${PROJECT_VERSION}")
target_link_libraries(unit_tools PRIVATE lvt_ctl_rules lvt_messages fmt::fmt GTest::gtest_main)
add_dependencies(unit_tools lvt_rstpctl)
lvt_discover_unit_tests(unit_tools tools. config ctl docs expect rooms set show show_on_terminal)

if(TARGET lvt_topology)
    add_executable(unit_topology tools_topology_test.cpp)
    target_compile_definitions(unit_topology PRIVATE LVT_DOCS="${PROJECT_SOURCE_DIR}/docs")
    target_link_libraries(unit_topology PRIVATE lvt_topology fmt::fmt GTest::gmock GTest::gtest_main)
    lvt_discover_unit_tests(unit_topology tools.)
endif()
