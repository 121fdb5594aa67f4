# toml++ as headers only, out of Debian's libtomlplusplus-dev.
include(${CMAKE_CURRENT_LIST_DIR}/headers_of_this_machine.cmake)
lvt_headers_of_this_machine(tomlplusplus toml++/toml.h tomlplusplus::tomlplusplus)
