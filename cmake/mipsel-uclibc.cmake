# Builds for the switch as mipsel-linux-gnu.cmake does, but against the small C library that
# packaging/uclibc/build makes. Of the C++ library only headers are used: Debian's was made for glibc.
get_filename_component(build ${CMAKE_CURRENT_LIST_DIR}/../build ABSOLUTE)
set(LVT_UCLIBC ${build}/uclibc/root CACHE PATH "Where the small C library is installed")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LVT_UCLIBC)
if(NOT EXISTS ${LVT_UCLIBC}/usr/lib/libc.so)
    message(FATAL_ERROR "There is no C library in ${LVT_UCLIBC}: build it with packaging/uclibc/build")
endif()

set(LVT_MIPSEL_ROOT ${LVT_UCLIBC})
include(${CMAKE_CURRENT_LIST_DIR}/mipsel-linux-gnu.cmake)

# The compiler's own headers, before those of the C library.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=include
    OUTPUT_VARIABLE gcc_headers OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpversion
    OUTPUT_VARIABLE gcc_version OUTPUT_STRIP_TRAILING_WHITESPACE)
set(cxx_headers /usr/mipsel-linux-gnu/include/c++/${gcc_version})

set(c_flags "-muclibc -nostdinc -isystem ${gcc_headers} -isystem \"${LVT_UCLIBC}/usr/include\"")
set(CMAKE_C_FLAGS_INIT "${c_flags}")
set(CMAKE_CXX_FLAGS_INIT "-isystem ${cxx_headers} -isystem ${cxx_headers}/mipsel-linux-gnu ${c_flags} \
-include \"${CMAKE_CURRENT_LIST_DIR}/../packaging/uclibc/cxx_headers.h\"")
# Its dynamic linker knows only the older kind of symbol table, which Debian 13 does not make unasked.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-muclibc --sysroot=\"${LVT_UCLIBC}\" -B\"${LVT_UCLIBC}/usr/lib\" -Wl,--hash-style=sysv")
set(CMAKE_BUILD_RPATH_USE_ORIGIN OFF) # nor does it know $ORIGIN
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")

# There are programs in C++ for this machine only as far as they need no C++ library.
set(LVT_NO_CXX_LIBRARY ON)
