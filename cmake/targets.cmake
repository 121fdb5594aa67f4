# Compiler settings shared by all targets, as two interface libraries:
# lvt_warnings for everything, lvt_plain for what runs on the switch itself.

add_library(lvt_warnings INTERFACE)
target_compile_options(lvt_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wformat=2 -Wundef -Wvla
    $<$<BOOL:${LVT_WERROR}>:-Werror>)

# Code for the board: language core and C library only, so that a small root
# file system needs neither libstdc++ nor libgcc_s.
add_library(lvt_plain INTERFACE)
target_compile_options(lvt_plain INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
target_link_options(lvt_plain INTERFACE -Wl,--as-needed -static-libgcc)
target_link_libraries(lvt_plain INTERFACE lvt_warnings)

# For folders whose files include large headers of libraries: where the compiler sees several files at
# once, it takes half the time.
macro(lvt_unity_folder)
    if(LVT_UNITY)
        set(CMAKE_UNITY_BUILD ON)
        # A file's own types, which are in another file now.
        add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    endif()
endmacro()

# For the folders of the programs around the daemon: nothing in them is hot.
macro(lvt_desk_folder)
    lvt_unity_folder()
    add_compile_options(${LVT_DESK_OPTIONS})
endmacro()
