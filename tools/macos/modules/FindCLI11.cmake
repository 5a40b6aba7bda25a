# Debian's headers, which are all there is to it.
add_library(CLI11::CLI11 INTERFACE IMPORTED)
set_target_properties(CLI11::CLI11 PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES ${CORVANE_MACOS_HEADERS})
set(CLI11_FOUND TRUE)
