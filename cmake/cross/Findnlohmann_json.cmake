# The JSON library, out of Debian's nlohmann-json3-dev.
include(${CMAKE_CURRENT_LIST_DIR}/headers_of_this_machine.cmake)
lvt_headers_of_this_machine(nlohmann_json nlohmann/json.hpp nlohmann_json::nlohmann_json)
