# fmt as headers only, out of Debian's libfmt-dev.
include(${CMAKE_CURRENT_LIST_DIR}/headers_of_this_machine.cmake)
lvt_headers_of_this_machine(fmt fmt/format.h fmt::fmt)
if(fmt_FOUND)
    target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
endif()
