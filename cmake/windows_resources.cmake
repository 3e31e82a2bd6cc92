# The Windows resources of a program: the version information (from project()'s version), the
# application manifest (packaging/windows/kestrawind.manifest), the icon and the event log's
# message table, which windmc makes from the .mc that cmake/event_messages.cmake generates from
# doc/errors.tsv. windres compiles them into an object that the program links.
#   kw_add_windows_resources(TARGET DESCRIPTION)   does nothing outside Windows

if(WIN32)
  get_filename_component(kw_rc_tools ${CMAKE_RC_COMPILER} DIRECTORY)
  get_filename_component(kw_rc_name ${CMAKE_RC_COMPILER} NAME)
  string(REGEX REPLACE "windres" "windmc" kw_mc_name "${kw_rc_name}")
  find_program(KW_WINDMC NAMES ${kw_mc_name} windmc HINTS ${kw_rc_tools})
  if(NOT CMAKE_RC_COMPILER OR NOT KW_WINDMC)
    message(FATAL_ERROR "windres and windmc are needed for the Windows resources "
                        "(Debian: binutils-mingw-w64-x86-64)")
  endif()
  set(KW_MESSAGES_DIR ${CMAKE_BINARY_DIR}/generated/messages)
  add_custom_command(
    OUTPUT ${KW_MESSAGES_DIR}/event_messages.mc
    COMMAND ${CMAKE_COMMAND} -DTABLE=${CMAKE_SOURCE_DIR}/doc/errors.tsv
            -DMC_OUT=${KW_MESSAGES_DIR}/event_messages.mc
            -P ${CMAKE_SOURCE_DIR}/cmake/event_messages.cmake
    DEPENDS ${CMAKE_SOURCE_DIR}/doc/errors.tsv ${CMAKE_SOURCE_DIR}/cmake/event_messages.cmake
    COMMENT "Generating the event log's messages from doc/errors.tsv")
  add_custom_command(
    OUTPUT ${KW_MESSAGES_DIR}/event_messages.rc ${KW_MESSAGES_DIR}/MSG00409.bin
    COMMAND ${KW_WINDMC} -h ${KW_MESSAGES_DIR} -r ${KW_MESSAGES_DIR}
            ${KW_MESSAGES_DIR}/event_messages.mc
    DEPENDS ${KW_MESSAGES_DIR}/event_messages.mc
    WORKING_DIRECTORY ${KW_MESSAGES_DIR})
endif()

function(kw_add_windows_resources target description)
  if(NOT WIN32)
    return()
  endif()
  set(KW_RC_NAME ${target})
  set(KW_RC_FILE ${target}.exe)
  set(KW_RC_DESCRIPTION ${description})
  set(KW_RC_ICON ${CMAKE_SOURCE_DIR}/packaging/windows/kestrawind.ico)
  set(KW_RC_MANIFEST ${CMAKE_SOURCE_DIR}/packaging/windows/kestrawind.manifest)
  set(rc ${KW_MESSAGES_DIR}/${target}.rc)
  set(object ${KW_MESSAGES_DIR}/${target}_resources.o)
  configure_file(${CMAKE_SOURCE_DIR}/packaging/windows/resources.rc.in ${rc} @ONLY)
  add_custom_command(
    OUTPUT ${object}
    COMMAND ${CMAKE_RC_COMPILER} -I ${KW_MESSAGES_DIR} -O coff -i ${rc} -o ${object}
    DEPENDS ${rc} ${KW_RC_ICON} ${KW_RC_MANIFEST} ${KW_MESSAGES_DIR}/event_messages.rc
            ${KW_MESSAGES_DIR}/MSG00409.bin
    COMMENT "Compiling the resources of ${KW_RC_FILE}")
  target_sources(${target} PRIVATE ${object})
endfunction()
