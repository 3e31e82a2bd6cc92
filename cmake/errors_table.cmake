# Generates, from the table of error lines (doc/errors.tsv), the headers of the error numbers that
# the code raises by name (base/error_numbers.h) and of the exit statuses that kestrawind-send
# gives them (frontend/error_statuses.h), or the error list of the man page kestrawind(1).
# Call: cmake -DTABLE=... -DHEADER_OUT=... -DSTATUS_OUT=... -P this
#   or: cmake -DTABLE=... -DMAN_IN=... -DMAN_OUT=... -P this
cmake_minimum_required(VERSION 3.16)

# Writes the file only when its text changes, so that nothing that includes it rebuilds for naught.
function(kw_write_if_changed path text)
  set(old "")
  if(EXISTS "${path}")
    file(READ "${path}" old)
  endif()
  if(NOT old STREQUAL text)
    file(WRITE "${path}" "${text}")
  endif()
endfunction()

file(STRINGS "${TABLE}" rows ENCODING UTF-8)
set(KW_ERROR_ENTRIES "")
set(KW_ERROR_CONSTANTS "")
set(KW_STATUS_ROWS "")
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

  # Status table: the number as raised ("[n]" is the program's own, counted from kErrorBase), the
  # whole description as a C++ literal (null for any), the status.
  set(raised "k${name}")
  if(NOT tag MATCHES "^\\[Unhandled\\]")
    set(raised "kErrorBase + k${name}")
  endif()
  set(literal "nullptr")
  if(NOT description STREQUAL "*")
    string(REPLACE "\\" "\\\\" literal "${description}")
    string(REPLACE "\"" "\\\"" literal "${literal}")
    set(literal "L\"${literal}\"")
  endif()
  string(APPEND KW_STATUS_ROWS "    {\"${name}\", ${raised}, ${literal}, ${status}},\n")

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
string(REGEX REPLACE "\n$" "" KW_ERROR_ENTRIES "${KW_ERROR_ENTRIES}")

if(DEFINED HEADER_OUT)
  # Rewritten only when it changes: a new status or description alone rebuilds no code.
  string(CONCAT header
    "// Generated from doc/errors.tsv by cmake/errors_table.cmake at build time.\n"
    "#ifndef KW_BASE_ERROR_NUMBERS_H_\n#define KW_BASE_ERROR_NUMBERS_H_\n\n"
    "#include <cstdint>\n\n"
    "// The numbers of the error lines: AppError(kName, ...) gives \"[n] ...\",\n"
    "// Error(kName, kProgramSource, ...) gives \"[Unhandled][n] ...\".\n"
    "namespace kw {\n\n${KW_ERROR_CONSTANTS}\n}  // namespace kw\n\n"
    "#endif  // KW_BASE_ERROR_NUMBERS_H_\n")
  kw_write_if_changed("${HEADER_OUT}" "${header}")
endif()
if(DEFINED STATUS_OUT)
  string(CONCAT header
    "// Generated from doc/errors.tsv by cmake/errors_table.cmake at build time.\n"
    "#ifndef KW_FRONTEND_ERROR_STATUSES_H_\n#define KW_FRONTEND_ERROR_STATUSES_H_\n\n"
    "#include <cstdint>\n\n#include \"base/error.h\"\n#include \"base/error_numbers.h\"\n\n"
    "namespace kw {\n\n"
    "/// One row of doc/errors.tsv: its name, the error's number as raised, its whole description\n"
    "/// (null for any) and the exit status of kestrawind-send.\n"
    "struct ErrorStatusRow {\n  const char* name;\n  int32_t number;\n"
    "  const wchar_t* description;\n  int status;\n};\n\n"
    "/// The rows in the table's order; the first that fits an error wins.\n"
    "inline constexpr ErrorStatusRow kErrorStatusRows[] = {\n${KW_STATUS_ROWS}};\n\n"
    "}  // namespace kw\n\n#endif  // KW_FRONTEND_ERROR_STATUSES_H_\n")
  kw_write_if_changed("${STATUS_OUT}" "${header}")
endif()
if(DEFINED MAN_OUT)
  configure_file("${MAN_IN}" "${MAN_OUT}" @ONLY)
endif()
