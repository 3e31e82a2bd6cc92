# Generates the event log's message table source (a .mc file for windmc) from the table of error
# lines (doc/errors.tsv): ID 1 for a sent message, ID 2 for any other failure, and one message
# per number n of the program's own errors "[n]", with n as its ID (rows that share a number
# share it). Every message is the record's own text, %1, so that Event Viewer shows the result
# line, and an event ID tells the errors apart without reading it. Only the name and the tag
# columns are read.
# Call: cmake -DTABLE=doc/errors.tsv -DMC_OUT=event_messages.mc -P this
cmake_minimum_required(VERSION 3.16)

# U.S. English, which a lookup in any other language falls back to: the one text, %1, is the
# same in every language.
string(CONCAT mc "; // Generated from doc/errors.tsv by cmake/event_messages.cmake at build time.\n"
                 "LanguageNames=(English=0x409:MSG00409)\n\n")
function(add_message id name)
  string(APPEND mc "MessageId=${id}\nSymbolicName=${name}\nLanguage=English\n%1\n.\n\n")
  set(mc "${mc}" PARENT_SCOPE)
endfunction()

add_message(1 MessageSent)
add_message(2 OtherFailure)
set(ids 1 2)
file(STRINGS "${TABLE}" rows ENCODING UTF-8)
foreach(row IN LISTS rows)
  if(row MATCHES "^#" OR row STREQUAL "")
    continue()
  endif()
  if(NOT row MATCHES "^([A-Z][A-Za-z0-9]*)\t([^\t]+)\t")
    message(FATAL_ERROR "${TABLE}: a row needs a name and a tag first: ${row}")
  endif()
  set(name "${CMAKE_MATCH_1}")
  # "[Unhandled][n]" rows are the other failures.
  if(NOT CMAKE_MATCH_2 MATCHES "^\\[([0-9]+)\\]$")
    continue()
  endif()
  set(id "${CMAKE_MATCH_1}")
  if(id LESS 3 OR id GREATER 65535)
    message(FATAL_ERROR "${TABLE}: ${name}'s number ${id} is no event ID (3 to 65535)")
  endif()
  if(NOT id IN_LIST ids)
    list(APPEND ids ${id})
    add_message(${id} ${name})
  endif()
endforeach()

# Rewritten only when it changes, so that a new meaning alone rebuilds no resources.
set(old "")
if(EXISTS "${MC_OUT}")
  file(READ "${MC_OUT}" old)
endif()
if(NOT old STREQUAL mc)
  file(WRITE "${MC_OUT}" "${mc}")
endif()
