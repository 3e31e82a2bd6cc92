# Generates, from the table of error lines (doc/errors.tsv), the case table of kestrawind-send
# and the error list of the man page kestrawind(1), or the header of the error numbers that the
# code raises by name (base/error_numbers.h).
# Call: cmake -DTABLE=... -DWRAPPER_IN=... -DWRAPPER_OUT=... -DMAN_IN=... -DMAN_OUT=... -P this
#   or: cmake -DTABLE=... -DHEADER_OUT=... -P this
cmake_minimum_required(VERSION 3.16)

file(STRINGS "${TABLE}" rows ENCODING UTF-8)
set(KW_EXIT_CASES "")
set(KW_ERROR_ENTRIES "")
set(KW_ERROR_CONSTANTS "")
set(names "")
foreach(row IN LISTS rows)
  if(row MATCHES "^#" OR row STREQUAL "")
    continue()
  endif()
  # file(STRINGS) has already split the file at semicolons as well; a row with one would arrive
  # here in pieces.
  if(NOT row MATCHES "^([A-Z][A-Za-z0-9]*)\t([^\t]+)\t([^\t]+)\t([0-9]+)\t([^\t]+)$")
    message(FATAL_ERROR "${TABLE}: a row needs five tab-separated columns, the first a name in "
                        "PascalCase (no semicolons): ${row}")
  endif()
  set(name "${CMAKE_MATCH_1}")
  set(tag "${CMAKE_MATCH_2}")
  set(description "${CMAKE_MATCH_3}")
  set(status "${CMAKE_MATCH_4}")
  set(meaning "${CMAKE_MATCH_5}")

  # Header: the number in the tag's last brackets, under the row's name.
  if(name IN_LIST names)
    message(FATAL_ERROR "${TABLE}: the name ${name} stands in two rows")
  endif()
  list(APPEND names "${name}")
  if(NOT tag MATCHES "\\[([0-9]+)\\]$")
    message(FATAL_ERROR "${TABLE}: the tag of ${name} ends in no [number]: ${tag}")
  endif()
  string(APPEND KW_ERROR_CONSTANTS "/// ${meaning}\n"
                                   "inline constexpr int32_t k${name} = ${CMAKE_MATCH_1};\n")

  # Shell: the whole pattern in double quotes, so that [ ] and * in the texts are literal.
  set(pattern "Error: ${tag} ")
  if(NOT description STREQUAL "*")
    string(APPEND pattern "${description}")
  endif()
  foreach(special "\\" "\"" "$" "`")
    string(REPLACE "${special}" "\\${special}" pattern "${pattern}")
  endforeach()
  if(description STREQUAL "*")
    string(APPEND KW_EXIT_CASES "  \"${pattern}\"*) exit ${status} ;;\n")
  else()
    string(APPEND KW_EXIT_CASES "  \"${pattern}\") exit ${status} ;;\n")
  endif()

  # Man page: a tagged paragraph per row.
  set(heading "${tag}")
  if(NOT description STREQUAL "*")
    string(APPEND heading " ${description}")
  endif()
  if(status STREQUAL "75")
    set(retry "yes")
  else()
    set(retry "no")
  endif()
  # One sentence a line, as roff wants it.
  string(REPLACE ". " ".\n" meaning "${meaning}")
  set(entry ".TP\n.B \"${heading}\"\n${meaning}\n\\fIRetry:\\fP ${retry}, \\fBkestrawind-send\\fP exits ${status}.\n")
  # A hyphen in a man page is a minus sign or an option's dash here, never a break point.
  string(REPLACE "-" "\\-" entry "${entry}")
  string(APPEND KW_ERROR_ENTRIES "${entry}")
endforeach()
string(REGEX REPLACE "\n$" "" KW_EXIT_CASES "${KW_EXIT_CASES}")
string(REGEX REPLACE "\n$" "" KW_ERROR_ENTRIES "${KW_ERROR_ENTRIES}")

if(DEFINED HEADER_OUT)
  string(CONCAT header
         "// Generated from doc/errors.tsv by cmake/errors_table.cmake at build time.\n"
         "#ifndef KW_BASE_ERROR_NUMBERS_H_\n#define KW_BASE_ERROR_NUMBERS_H_\n\n"
         "#include <cstdint>\n\n"
         "// The numbers of the error lines: AppError(kName, ...) gives \"[n] ...\",\n"
         "// Error(kName, kProgramSource, ...) gives \"[Unhandled][n] ...\".\n"
         "namespace kw {\n\n${KW_ERROR_CONSTANTS}\n}  // namespace kw\n\n"
         "#endif  // KW_BASE_ERROR_NUMBERS_H_\n")
  # Rewritten only when it changes: a new status or description alone rebuilds no code.
  set(old "")
  if(EXISTS "${HEADER_OUT}")
    file(READ "${HEADER_OUT}" old)
  endif()
  if(NOT old STREQUAL header)
    file(WRITE "${HEADER_OUT}" "${header}")
  endif()
endif()
if(NOT DEFINED WRAPPER_OUT)
  return()
endif()

# Generated aside first, then copied into place as an executable.
get_filename_component(wrapper_dir "${WRAPPER_OUT}" DIRECTORY)
get_filename_component(wrapper_name "${WRAPPER_OUT}" NAME)
configure_file("${WRAPPER_IN}" "${wrapper_dir}/generated/${wrapper_name}" @ONLY)
# file(COPY) skips a file whose copy bears the same time stamp, to the second.
file(REMOVE "${WRAPPER_OUT}")
file(COPY "${wrapper_dir}/generated/${wrapper_name}" DESTINATION "${wrapper_dir}"
     FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                      WORLD_EXECUTE)
configure_file("${MAN_IN}" "${MAN_OUT}" @ONLY)
