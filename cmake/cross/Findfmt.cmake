# fmt as headers only, out of Debian's libfmt-dev. They are reached through a folder of their own,
# so that the headers of this machine beside them stay out of the way.
find_path(FMT_INCLUDE_DIR fmt/format.h PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(fmt REQUIRED_VARS FMT_INCLUDE_DIR)

if(fmt_FOUND AND NOT TARGET fmt::fmt)
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/include)
    file(CREATE_LINK ${FMT_INCLUDE_DIR}/fmt ${CMAKE_BINARY_DIR}/include/fmt SYMBOLIC)
    add_library(fmt::fmt INTERFACE IMPORTED)
    target_include_directories(fmt::fmt INTERFACE ${CMAKE_BINARY_DIR}/include)
    target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
endif()
