# Both property lists, linked into the executable in sections of their own.
function(corvane_embed_property_lists target info launchd)
  set(lists ${target}-property-lists)
  set(sections ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/EmbeddedSections.cpp)
  add_library(${lists} OBJECT ${sections})
  target_compile_definitions(${lists} PRIVATE INFO_PLIST="${info}" LAUNCHD_PLIST="${launchd}")
  set_property(SOURCE ${sections} APPEND PROPERTY OBJECT_DEPENDS "${info};${launchd}")
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:${lists}>)
  # It may have no source of its own to tell it by.
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
endfunction()
