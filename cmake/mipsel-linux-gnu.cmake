# Builds for the switch: 32-bit little-endian MIPS, with Debian's cross compiler and its glibc.
# What is built runs on the desk under qemu's user mode.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)

set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)

if(NOT LVT_MIPSEL_ROOT)
    set(LVT_MIPSEL_ROOT /usr/mipsel-linux-gnu) # what the emulated program sees as /
endif()
set(CMAKE_FIND_ROOT_PATH ${LVT_MIPSEL_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(LVT_QEMU_MIPSEL NAMES qemu-mipsel qemu-mipsel-static)
if(LVT_QEMU_MIPSEL)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${LVT_QEMU_MIPSEL} -L ${LVT_MIPSEL_ROOT})
endif()

# The tests' libraries, for which Debian has no packages for this machine.
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR}/cross)
