# GoogleTest for the machine that is built for, from the sources that Debian's googletest brings.
find_path(GTEST_SOURCE_DIR CMakeLists.txt PATHS /usr/src/googletest NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GTest REQUIRED_VARS GTEST_SOURCE_DIR)

if(GTest_FOUND AND NOT TARGET GTest::gtest)
    set(INSTALL_GTEST OFF)
    add_subdirectory(${GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    # As where both are installed: who has the one finds the headers of the other.
    target_include_directories(gtest SYSTEM INTERFACE ${GTEST_SOURCE_DIR}/googlemock/include)
    foreach(part gtest gtest_main gmock gmock_main)
        if(NOT TARGET GTest::${part})
            add_library(GTest::${part} ALIAS ${part})
        endif()
    endforeach()
endif()
