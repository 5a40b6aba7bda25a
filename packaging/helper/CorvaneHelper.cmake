# Makes helpers out of sets of operations: the first product's, and those of others. docs/HELPER.md
# says what comes of it.
include_guard(GLOBAL)

# Where the templates are: beside this file, or in the folders of the source tree that they belong to.
# Headers are found below corvane/ outside of that.
get_property(corvane_helper_folders GLOBAL PROPERTY CORVANE_HELPER_FOLDERS)
if(NOT corvane_helper_folders)
  set_property(GLOBAL PROPERTY CORVANE_HELPER_FOLDERS ${CMAKE_CURRENT_LIST_DIR})
  set_property(GLOBAL PROPERTY CORVANE_HELPER_HEADERS corvane/)
endif()

set(CORVANE_UNIT_FOLDER /usr/lib/systemd/system CACHE PATH
  "Where the units of helpers are installed")

# The arguments of the function that this is used in.
macro(corvane_parse_helper_arguments)
  cmake_parse_arguments(PARSE_ARGV 0 ARG ""
    "NAME;VERSION;BUILD;VENDOR;VENDOR_URL;COPYRIGHT;TEAM;RESOURCES" "OPERATIONS")
endmacro()

function(corvane_helper_file name variable)
  get_property(folders GLOBAL PROPERTY CORVANE_HELPER_FOLDERS)
  foreach(folder IN LISTS folders)
    if(EXISTS ${folder}/${name})
      set(${variable} ${folder}/${name} PARENT_SCOPE)
      return()
    endif()
  endforeach()
  message(FATAL_ERROR "The file ${name} is missing from ${folders}")
endfunction()

# Names become part of property lists, units, sources, buses and files: what does not fit into all of
# them is refused here.
function(corvane_check_helper_names code version build vendor url)
  if(NOT code MATCHES "^[a-z][a-z0-9]*$")
    message(FATAL_ERROR
      "The code of a helper is made of lower-case letters and digits, and begins with a letter; "
      "'${code}' is not.")
  endif()
  string(LENGTH "${code}" length)
  if(length GREATER 24)
    message(FATAL_ERROR "The code of a helper has at most 24 characters; '${code}' has ${length}.")
  endif()
  if(NOT version MATCHES "^[0-9]+\\.[0-9]+$")
    message(FATAL_ERROR "The version of a helper is two numbers, as in 1.0; '${version}' is not.")
  endif()
  if(NOT build MATCHES "^[0-9]+$")
    message(FATAL_ERROR "The build of a helper is a number; '${build}' is not.")
  endif()
  if(NOT vendor OR vendor MATCHES "[<>&\"\\\\%;\r\n\t]")
    message(FATAL_ERROR
      "The vendor of a helper is a name, of characters that need no escape anywhere; '${vendor}' is "
      "not.")
  endif()
  if(url AND NOT url MATCHES "^https?://[^<>&\"\\\\%;\r\n\t ]+$")
    message(FATAL_ERROR
      "The address of a vendor begins with https://, and has no characters that need an escape "
      "anywhere; '${url}' is not.")
  endif()
  get_property(there GLOBAL PROPERTY CORVANE_HELPER_CODES)
  if(code IN_LIST there)
    message(FATAL_ERROR "There are two helpers with the code '${code}'.")
  endif()
  set_property(GLOBAL APPEND PROPERTY CORVANE_HELPER_CODES ${code})
endfunction()

# Makes a helper out of a set of operations, and installs it:
#   corvane_add_helper(NAME code VERSION 1.0 [BUILD number] VENDOR name [VENDOR_URL address]
#                      [COPYRIGHT line] [TEAM identifier] OPERATIONS source... [RESOURCES folder])
# What corvane_add_helper_programs makes, and besides
# - privilegerequestor-<code>, which has a command for each operation;
# - the action files that define the rights for polkit, and a page of the manual;
# - scripts for a Debian package of it, whose paths are in CORVANE_HELPER_PACKAGE_SCRIPTS.
# A table of operations that contradicts itself ends the build with the reason. All of it is installed
# to the places of the system, whatever the prefix: those are where the system looks. The issuer of
# authorizations and launchctl are not part of it: all helpers share those of one package.
function(corvane_add_helper)
  corvane_parse_helper_arguments()
  if(ARG_NAME STREQUAL "vnt")
    message(FATAL_ERROR "The code 'vnt' is that of the first product's helper.")
  endif()
  corvane_add_helper_programs(${ARGV})
  set(CORVANE_CODE ${ARG_NAME})
  set(CORVANE_VERSION ${ARG_VERSION})
  set(CORVANE_VENDOR "${ARG_VENDOR}")
  set(CORVANE_LABEL com.corvane.system.privilegedhelper-${ARG_NAME})
  set(unit ${CORVANE_UNIT_FOLDER}/${CORVANE_LABEL}.service)
  if(EXISTS ${unit})
    file(STRINGS ${unit} other REGEX "^X-Vendor=")
    if(NOT other STREQUAL "X-Vendor=${ARG_VENDOR}")
      message(FATAL_ERROR
        "The code '${ARG_NAME}' is that of another vendor's helper, whose unit is ${unit}.")
    endif()
  endif()
  set(made ${CMAKE_BINARY_DIR}/corvane-helper/${ARG_NAME})
  set(programs ${CMAKE_BINARY_DIR}/bin)
  set(operations corvane-operationset-${ARG_NAME})
  set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${programs})
  set(rights com.corvane.rights-${ARG_NAME})
  set(requestor privilegerequestor-${ARG_NAME})
  corvane_add_helper_program(${requestor} corvane::requestor)
  add_custom_command(TARGET ${rights} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${made}/actions
    COMMAND ${CMAKE_COMMAND} -E make_directory ${made}/actions
    COMMAND ${rights} write ${made}/actions
    VERBATIM)
  foreach(name helper.8 postinst prerm postrm)
    corvane_helper_file(${name}.in template)
    configure_file(${template} ${made}/${name} @ONLY)
    list(APPEND scripts ${made}/${name})
  endforeach()
  list(POP_FRONT scripts)
  file(CHMOD ${scripts} PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(CORVANE_HELPER_PACKAGE_SCRIPTS ${scripts} PARENT_SCOPE)

  install(TARGETS ${CORVANE_LABEL} ${rights} RUNTIME DESTINATION /usr/libexec)
  install(TARGETS ${requestor} RUNTIME DESTINATION /usr/bin)
  install(FILES ${programs}/${CORVANE_LABEL}.socket ${programs}/${CORVANE_LABEL}.service
    DESTINATION ${CORVANE_UNIT_FOLDER})
  install(DIRECTORY ${made}/actions/ DESTINATION /usr/share/polkit-1/actions)
  install(FILES ${made}/helper.8 DESTINATION /usr/share/man/man8 RENAME ${CORVANE_LABEL}.8)
endfunction()

# Makes of a set of operations what a helper is, into the folder bin of the build folder:
#   corvane_add_helper_programs(NAME code VERSION 1.0 [BUILD number] VENDOR name
#                               [VENDOR_URL address] [COPYRIGHT line] [TEAM identifier]
#                               OPERATIONS source...|target [RESOURCES folder])
# - the daemon, which is the target and the program com.corvane.system.privilegedhelper-<code>;
# - its units, beside it;
# - com.corvane.rights-<code>, which defines the rights of its operations.
# Its property lists are Info.plist and launchd.plist in corvane-helper/<code> of the build folder.
# RESOURCES has folders <language>.lproj with strings tables, which are linked in.
function(corvane_add_helper_programs)
  corvane_parse_helper_arguments()
  if(ARG_UNPARSED_ARGUMENTS OR ARG_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR
      "What is ${ARG_UNPARSED_ARGUMENTS}${ARG_KEYWORDS_MISSING_VALUES} of a helper?")
  endif()
  if(NOT ARG_BUILD)
    set(ARG_BUILD 1)
  endif()
  corvane_check_helper_names("${ARG_NAME}" "${ARG_VERSION}" "${ARG_BUILD}" "${ARG_VENDOR}"
    "${ARG_VENDOR_URL}")
  if(NOT ARG_OPERATIONS)
    message(FATAL_ERROR "The helper '${ARG_NAME}' has no OPERATIONS.")
  endif()
  if(NOT ARG_COPYRIGHT)
    set(ARG_COPYRIGHT "Copyright © ${ARG_VENDOR}. All rights reserved.")
  endif()

  set(CORVANE_CODE ${ARG_NAME})
  set(CORVANE_VERSION ${ARG_VERSION})
  set(CORVANE_BUILD ${ARG_BUILD})
  set(CORVANE_VENDOR "${ARG_VENDOR}")
  set(CORVANE_VENDOR_URL "${ARG_VENDOR_URL}")
  set(CORVANE_COPYRIGHT "${ARG_COPYRIGHT}")
  set(CORVANE_TEAM "${ARG_TEAM}")
  set(CORVANE_LABEL com.corvane.system.privilegedhelper-${ARG_NAME})
  # As platform/linux/installation puts it in place.
  set(CORVANE_DAEMON_PATH /usr/libexec/${CORVANE_LABEL})
  string(TOUPPER ${ARG_NAME} suffix)
  set(CORVANE_PRINCIPAL_CLASS ZELPrivilegedOperationSet${suffix})
  get_property(CORVANE_HEADERS GLOBAL PROPERTY CORVANE_HELPER_HEADERS)
  set(programs ${CMAKE_BINARY_DIR}/bin)
  set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${programs})
  set(made ${CMAKE_BINARY_DIR}/corvane-helper/${ARG_NAME})
  foreach(name Info.plist launchd.plist corvane-helper.h Vendor.cpp)
    corvane_helper_file(${name}.in template)
    configure_file(${template} ${made}/${name} @ONLY)
  endforeach()
  # The set is objects, not an archive: it is found by its name, so nothing else pulls it in.
  set(operations ${ARG_OPERATIONS})
  if(NOT TARGET "${operations}")
    set(operations corvane-operationset-${ARG_NAME})
    add_library(${operations} OBJECT ${ARG_OPERATIONS} ${made}/Vendor.cpp)
    target_include_directories(${operations} PUBLIC ${made})
    target_link_libraries(${operations} PUBLIC corvane::operations)
  endif()
  if(ARG_RESOURCES)
    get_filename_component(folder ${ARG_RESOURCES} ABSOLUTE)
    corvane_embed_resources(${operations} ${folder} ${made}/Resources.cpp)
  endif()

  corvane_add_helper_program(${CORVANE_LABEL} corvane::privilegedhelper)
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    corvane_add_helper_program(com.corvane.rights-${ARG_NAME} corvane::rights)
    foreach(kind socket service)
      corvane_helper_file(helper.${kind}.in template)
      configure_file(${template} ${programs}/${CORVANE_LABEL}.${kind} @ONLY)
    endforeach()
  endif()
endfunction()

# A program of the helper that is being made: an entry, its set and its property lists.
macro(corvane_add_helper_program name entry)
  add_executable(${name})
  target_link_libraries(${name} PRIVATE ${entry} ${operations})
  corvane_embed_property_lists(${name} ${made}/Info.plist ${made}/launchd.plist)
endmacro()

# Links the strings tables below `folder` into what is linked with `target`.
function(corvane_embed_resources target folder source)
  file(GLOB tables ${folder}/*.lproj/*.strings)
  if(NOT tables)
    message(FATAL_ERROR "${folder} has no strings table: <language>.lproj/<table>.strings")
  endif()
  file(GLOB language_folders ${folder}/*.lproj)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${folder} ${language_folders})
  corvane_helper_file(EmbedResources.cmake script)
  get_property(headers GLOBAL PROPERTY CORVANE_HELPER_HEADERS)
  add_custom_command(OUTPUT ${source}
    COMMAND ${CMAKE_COMMAND} "-DRESOURCES=${tables}" -DFOLDER=${folder} -DOUTPUT=${source}
            -DOF_PRODUCT=ON -DHEADERS=${headers} -P ${script}
    DEPENDS ${tables} ${script}
    VERBATIM)
  target_sources(${target} PRIVATE ${source})
endfunction()
