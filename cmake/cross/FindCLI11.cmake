# CLI11, out of Debian's libcli11-dev.
include(${CMAKE_CURRENT_LIST_DIR}/headers_of_this_machine.cmake)
lvt_headers_of_this_machine(CLI11 CLI/CLI.hpp CLI11::CLI11)
