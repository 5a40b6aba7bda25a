# Debian's headers; the library is the system's own.
add_library(EXPAT::EXPAT INTERFACE IMPORTED)
set_target_properties(EXPAT::EXPAT PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES ${CORVANE_MACOS_HEADERS})
set(EXPAT_FOUND TRUE)
