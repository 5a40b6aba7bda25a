# Debian's headers, which are all there is to it.
add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
set_target_properties(nlohmann_json::nlohmann_json PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES ${CORVANE_MACOS_HEADERS})
set(nlohmann_json_FOUND TRUE)
