# The message encoder, the settings' rules and the operator's tool.
find_package(fmt REQUIRED)

lvt_starter(lvt_rstpctl starter)
lvt_add_unit_tests(unit_tools
    TESTS $<IF:$<BOOL:${LVT_CAPTURES}>,tools_capture_test.cpp,tools_capture_missing_test.cpp>
        tools_config_test.cpp tools_ctl_test.cpp tools_docs_test.cpp tools_expect_test.cpp tools_hex_test.cpp
        tools_lab_test.cpp tools_messages_test.cpp tools_number_test.cpp tools_pipe_test.cpp tools_rooms_test.cpp
        tools_rules_test.cpp tools_schema_test.cpp tools_show_test.cpp tools_status_test.cpp
    SOURCES ${PROJECT_SOURCE_DIR}/tools/ctl/hex.cpp
    LIBRARIES lvt_ctl_rules lvt_messages fmt::fmt
    DEFINITIONS LVT_COMPLETION="${PROJECT_SOURCE_DIR}/tools/completion/lvt_rstpctl"
        LVT_DOCS="${PROJECT_SOURCE_DIR}/docs" LVT_SOURCES="${PROJECT_SOURCE_DIR}/src" LVT_VERSION="${PROJECT_VERSION}"
    BUILD_DEFINITIONS LVT_RSTPCTL="${starter}")
add_dependencies(unit_tools lvt_rstpctl)
lvt_discover_unit_tests(unit_tools tools. config ctl docs expect rooms set show show_on_terminal)

if(TARGET lvt_topology)
    lvt_add_unit_tests(unit_topology
        TESTS tools_topology_test.cpp
        LIBRARIES lvt_topology fmt::fmt
        DEFINITIONS LVT_DOCS="${PROJECT_SOURCE_DIR}/docs")
    lvt_discover_unit_tests(unit_topology tools.)
endif()
