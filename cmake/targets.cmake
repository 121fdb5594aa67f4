# Compiler settings shared by all targets, as two interface libraries:
# lvt_warnings for everything, lvt_plain for what runs on the switch itself.

add_library(lvt_warnings INTERFACE)
target_compile_options(lvt_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wformat=2 -Wundef -Wvla)

# Code for the board: language core and C library only, so that a small root
# file system needs neither libstdc++ nor libgcc_s.
add_library(lvt_plain INTERFACE)
target_compile_options(lvt_plain INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
target_link_options(lvt_plain INTERFACE -Wl,--as-needed -static-libgcc)
target_link_libraries(lvt_plain INTERFACE lvt_warnings)

# For the programs around the daemon: nothing in them is hot, and their libraries' headers take the
# compiler long.
set(LVT_DESK_OPTIONS $<IF:$<CONFIG:Release>,-O1,-O0>)
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=.*undefined")
    list(APPEND LVT_DESK_OPTIONS -fno-sanitize=null,alignment) # the costliest; such a pointer ends them anyway
endif()
