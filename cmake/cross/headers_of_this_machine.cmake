# Libraries that are headers only, or can be, serve any machine. They are reached through a folder of
# their own, so that the headers of this machine beside them stay out of the way.
include(FindPackageHandleStandardArgs)

# Finds `header`, written FOLDER/FILE, for find_package(`package`), and makes `target` of its folder.
macro(lvt_headers_of_this_machine package header target)
    find_path(${package}_INCLUDE_DIR ${header} PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    find_package_handle_standard_args(${package} REQUIRED_VARS ${package}_INCLUDE_DIR)
    if(${package}_FOUND AND NOT TARGET ${target})
        cmake_path(SET ${package}_header ${header})
        cmake_path(GET ${package}_header PARENT_PATH ${package}_folder)
        file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/include)
        file(CREATE_LINK ${${package}_INCLUDE_DIR}/${${package}_folder}
            ${CMAKE_BINARY_DIR}/include/${${package}_folder} SYMBOLIC)
        add_library(${target} INTERFACE IMPORTED)
        target_include_directories(${target} INTERFACE ${CMAKE_BINARY_DIR}/include)
    endif()
endmacro()
