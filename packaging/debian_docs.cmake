# Makes the package's /usr/share/doc files in Debian's formats: the changelog from CHANGELOG.md
# and the machine-readable copyright file from LICENSE. Run with cmake -P; set before:
#   CHANGELOG, LICENSE        the two sources
#   PACKAGE, UPSTREAM_NAME    the package's name, the project's name
#   VERSION, DEB_VERSION      the project's version; the package's (with a revision, if any)
#   MAINTAINER                "Name <address>"
#   CHANGELOG_OUT, COPYRIGHT_OUT
# Fails when CHANGELOG.md's newest entry isn't VERSION: a new version needs an entry.
cmake_minimum_required(VERSION 3.16)

# --- Changelog ------------------------------------------------------------------------------
file(READ "${CHANGELOG}" text)
if(text MATCHES "[][;]")
  message(FATAL_ERROR "${CHANGELOG}: keep ; [ and ] out of it (they don't survive the conversion)")
endif()
string(REPLACE "\n" ";" lines "${text}")

set(month_names Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec)
set(day_names Sun Mon Tue Wed Thu Fri Sat)
set(month_offsets 0 3 2 5 0 3 5 1 4 6 2 4)

# The trailer line of an entry dated YYYY-MM-DD, at midnight UTC.
function(kw_trailer date out)
  if(NOT date MATCHES "^([0-9][0-9][0-9][0-9])-([0-9][0-9])-([0-9][0-9])$")
    message(FATAL_ERROR "${CHANGELOG}: \"${date}\" is no date (YYYY-MM-DD)")
  endif()
  math(EXPR year "${CMAKE_MATCH_1}")
  math(EXPR month "${CMAKE_MATCH_2}")
  math(EXPR day "${CMAKE_MATCH_3}")
  math(EXPR m "${month} - 1")
  list(GET month_names ${m} month_name)
  list(GET month_offsets ${m} offset)
  # The day of the week (0 Sunday) by Sakamoto's method: January and February count as months
  # of the year before.
  set(y ${year})
  if(month LESS 3)
    math(EXPR y "${y} - 1")
  endif()
  math(EXPR weekday "(${y} + ${y} / 4 - ${y} / 100 + ${y} / 400 + ${offset} + ${day}) % 7")
  list(GET day_names ${weekday} day_name)
  if(day LESS 10)
    set(day "0${day}")
  endif()
  set(${out} " -- ${MAINTAINER}  ${day_name}, ${day} ${month_name} ${year} 00:00:00 +0000"
      PARENT_SCOPE)
endfunction()

set(debian "")
set(trailer "")
set(newest "")
foreach(line IN LISTS lines)
  if(line MATCHES "^## ([^ ]+) \\(([^)]*)\\)$")
    set(version "${CMAKE_MATCH_1}")
    set(date "${CMAKE_MATCH_2}")
    if(newest STREQUAL "")
      set(newest "${version}")
      # The newest entry is the package being built: its revision goes with it.
      set(version "${DEB_VERSION}")
    else()
      string(APPEND debian "\n${trailer}\n\n")
    endif()
    kw_trailer("${date}" trailer)
    string(APPEND debian "${PACKAGE} (${version}) unstable; urgency=medium\n\n")
  elseif(newest STREQUAL "" OR line STREQUAL "")
    # The title and the words above the first entry, and blank lines
  elseif(line MATCHES "^- (.*)")
    string(APPEND debian "  * ${CMAKE_MATCH_1}\n")
  elseif(line MATCHES "^  (.*)")
    string(APPEND debian "    ${CMAKE_MATCH_1}\n")
  else()
    message(FATAL_ERROR "${CHANGELOG}: \"${line}\" is neither a heading nor part of an item")
  endif()
endforeach()
if(NOT newest STREQUAL VERSION)
  message(FATAL_ERROR "${CHANGELOG}: the newest entry is \"${newest}\", the project is at "
                      "${VERSION}: add an entry for it")
endif()
string(APPEND debian "\n${trailer}\n")
file(WRITE "${CHANGELOG_OUT}" "${debian}")

# --- Copyright ------------------------------------------------------------------------------
file(READ "${LICENSE}" license)
if(NOT license MATCHES "\nCopyright \\(c\\) ([^\n]+)\n\n(.*[^\n])\n*$")
  message(FATAL_ERROR "${LICENSE}: no \"Copyright (c) ...\" line followed by the license text")
endif()
set(holders "${CMAKE_MATCH_1}")
# A paragraph break is a line with one dot; every line of the text is indented by one space.
string(REPLACE "\n\n" "\n.\n" text "${CMAKE_MATCH_2}")
string(REPLACE "\n" "\n " text "${text}")
file(WRITE "${COPYRIGHT_OUT}"
     "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: ${UPSTREAM_NAME}
Upstream-Contact: ${MAINTAINER}

Files: *
Copyright: ${holders}
License: Expat
 ${text}
")
