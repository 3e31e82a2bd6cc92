# The wrapper kestrawind-send and the man pages (generated from doc/errors.tsv), the install
# rules, and the Debian package (cpack -G DEB, see scripts/package).
#
# Installed layout, for prefix /usr:
#   /usr/lib/kestrawind/kestrawind            the program
#   /usr/lib/kestrawind/kestrawind.ini     -> /etc/kestrawind.ini (read beside the real binary)
#   /usr/lib/kestrawind/kestrawind-send       the wrapper, beside the program it runs
#   /usr/bin/kestrawind                    -> ../lib/kestrawind/kestrawind
#   /usr/bin/kestrawind-send               -> ../lib/kestrawind/kestrawind-send
#   /usr/bin/kestrawind-sim                   the simulator
#   /usr/share/man/man1/kestrawind.1.gz, kestrawind-sim.1.gz, man5/kestrawind.ini.5.gz
#   /usr/share/doc/kestrawind/README.md, examples/kestrawind.ini, copyright, changelog.gz
#   /usr/share/lintian/overrides/kestrawind
#   /etc/kestrawind.ini                       the sample, mode 0640; never overwritten
# For another prefix the configuration goes to <prefix>/etc.

include(GNUInstallDirs)

# The version is the project's (CMakeLists.txt); the package may add a Debian revision to it.
set(KW_DEB_REVISION "" CACHE STRING
    "Debian revision of the package (the N of VERSION-N); none if empty")
if(NOT KW_DEB_REVISION MATCHES "^[0-9A-Za-z.+~]*$")
  message(FATAL_ERROR "KW_DEB_REVISION \"${KW_DEB_REVISION}\": only letters, digits and . + ~")
endif()
set(KW_DEB_VERSION ${PROJECT_VERSION})
# Without a revision the package is native: Debian names its changelog changelog, otherwise
# changelog.Debian.
set(KW_DEB_CHANGELOG changelog)
if(NOT KW_DEB_REVISION STREQUAL "")
  string(APPEND KW_DEB_VERSION "-${KW_DEB_REVISION}")
  set(KW_DEB_CHANGELOG changelog.Debian)
endif()
set(KW_MAINTAINER "Kestrawind maintainers <kestrawind@example.org>")

# --- Generated files -----------------------------------------------------------------------
set(KW_ERRORS_TABLE ${CMAKE_SOURCE_DIR}/doc/errors.tsv)
set(KW_SEND_WRAPPER ${CMAKE_BINARY_DIR}/kestrawind-send)
set(KW_MAN_DIR ${CMAKE_BINARY_DIR}/man)
add_custom_command(
  OUTPUT ${KW_SEND_WRAPPER} ${KW_MAN_DIR}/kestrawind.1
  COMMAND ${CMAKE_COMMAND} -DTABLE=${KW_ERRORS_TABLE}
          -DWRAPPER_IN=${CMAKE_SOURCE_DIR}/packaging/kestrawind-send.in
          -DWRAPPER_OUT=${KW_SEND_WRAPPER}
          -DMAN_IN=${CMAKE_SOURCE_DIR}/doc/kestrawind.1.in
          -DMAN_OUT=${KW_MAN_DIR}/kestrawind.1
          -P ${CMAKE_SOURCE_DIR}/cmake/errors_table.cmake
  DEPENDS ${KW_ERRORS_TABLE} ${CMAKE_SOURCE_DIR}/packaging/kestrawind-send.in
          ${CMAKE_SOURCE_DIR}/doc/kestrawind.1.in ${CMAKE_SOURCE_DIR}/cmake/errors_table.cmake
  COMMENT "Generating kestrawind-send and kestrawind.1 from doc/errors.tsv")

set(KW_MAN_PAGES ${KW_MAN_DIR}/kestrawind.1 ${KW_MAN_DIR}/kestrawind-sim.1
                 ${KW_MAN_DIR}/kestrawind.ini.5)
foreach(page kestrawind-sim.1 kestrawind.ini.5)
  add_custom_command(
    OUTPUT ${KW_MAN_DIR}/${page}
    COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/doc/${page} ${KW_MAN_DIR}/${page}
    DEPENDS ${CMAKE_SOURCE_DIR}/doc/${page})
endforeach()

# Debian compresses man pages; -n keeps the name and time out, so a rebuild gives the same bytes.
find_program(KW_GZIP gzip)
set(KW_INSTALLED_MAN_PAGES ${KW_MAN_PAGES})
if(KW_GZIP)
  set(KW_INSTALLED_MAN_PAGES)
  foreach(page ${KW_MAN_PAGES})
    add_custom_command(
      OUTPUT ${page}.gz
      COMMAND ${KW_GZIP} -9nc ${page} > ${page}.gz
      DEPENDS ${page})
    list(APPEND KW_INSTALLED_MAN_PAGES ${page}.gz)
  endforeach()
endif()

# The changelog (from CHANGELOG.md) and the copyright file (from LICENSE) in Debian's formats.
set(KW_DEBIAN_DOCS)
if(NOT WIN32)
  set(KW_DEB_DOC_DIR ${CMAKE_BINARY_DIR}/debian-doc)
  add_custom_command(
    OUTPUT ${KW_DEB_DOC_DIR}/${KW_DEB_CHANGELOG} ${KW_DEB_DOC_DIR}/copyright
    COMMAND ${CMAKE_COMMAND} -DCHANGELOG=${CMAKE_SOURCE_DIR}/CHANGELOG.md
            -DLICENSE=${CMAKE_SOURCE_DIR}/LICENSE -DPACKAGE=kestrawind
            -DUPSTREAM_NAME=${PROJECT_NAME} -DVERSION=${PROJECT_VERSION}
            -DDEB_VERSION=${KW_DEB_VERSION} "-DMAINTAINER=${KW_MAINTAINER}"
            -DCHANGELOG_OUT=${KW_DEB_DOC_DIR}/${KW_DEB_CHANGELOG}
            -DCOPYRIGHT_OUT=${KW_DEB_DOC_DIR}/copyright
            -P ${CMAKE_SOURCE_DIR}/packaging/debian_docs.cmake
    DEPENDS ${CMAKE_SOURCE_DIR}/CHANGELOG.md ${CMAKE_SOURCE_DIR}/LICENSE
            ${CMAKE_SOURCE_DIR}/packaging/debian_docs.cmake
    COMMENT "Generating the package's changelog and copyright file"
    VERBATIM)
  set(KW_DEBIAN_DOCS ${KW_DEB_DOC_DIR}/${KW_DEB_CHANGELOG} ${KW_DEB_DOC_DIR}/copyright)
  if(KW_GZIP)
    add_custom_command(
      OUTPUT ${KW_DEB_DOC_DIR}/${KW_DEB_CHANGELOG}.gz
      COMMAND ${KW_GZIP} -9nc ${KW_DEB_DOC_DIR}/${KW_DEB_CHANGELOG}
              > ${KW_DEB_DOC_DIR}/${KW_DEB_CHANGELOG}.gz
      DEPENDS ${KW_DEB_DOC_DIR}/${KW_DEB_CHANGELOG})
    set(KW_DEBIAN_DOCS ${KW_DEB_DOC_DIR}/${KW_DEB_CHANGELOG}.gz ${KW_DEB_DOC_DIR}/copyright)
  endif()
endif()
add_custom_target(kestrawind_docs ALL DEPENDS ${KW_SEND_WRAPPER} ${KW_MAN_PAGES}
                                              ${KW_INSTALLED_MAN_PAGES} ${KW_DEBIAN_DOCS})

if(BUILD_TESTING AND TARGET kestrawind_tests)
  add_dependencies(kestrawind_tests kestrawind_docs)
  target_compile_definitions(kestrawind_tests PRIVATE
    KW_SEND_WRAPPER="${KW_SEND_WRAPPER}"
    KW_ERRORS_TABLE="${KW_ERRORS_TABLE}"
    KW_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
endif()

# --- Install rules -------------------------------------------------------------------------
# On Windows, one folder (the MSI's C:\Program Files\Kestrawind, see scripts/package-windows):
# the programs, the sample ini and the README. The ini itself is the administrator's, beside the
# program; nothing installs it.
if(WIN32)
  install(TARGETS kestrawind DESTINATION .)
  if(TARGET kestrawind-send)
    install(TARGETS kestrawind-send DESTINATION .)
  endif()
  install(FILES ${CMAKE_SOURCE_DIR}/doc/kestrawind.ini.sample ${CMAKE_SOURCE_DIR}/README.md
          DESTINATION .)
  return()
endif()
# Debian's multiarch libdir (lib/x86_64-linux-gnu) is for libraries; the program's own folder
# sits in plain lib/.
set(KW_PROGRAM_DIR lib/kestrawind)
install(TARGETS kestrawind DESTINATION ${KW_PROGRAM_DIR})
install(PROGRAMS ${KW_SEND_WRAPPER} DESTINATION ${KW_PROGRAM_DIR})
if(TARGET kestrawind-sim)  # the simulator needs pseudo-terminals: POSIX only
  install(TARGETS kestrawind-sim DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
foreach(page ${KW_INSTALLED_MAN_PAGES})
  string(REGEX MATCH "\\.([0-9])(\\.gz)?$" unused ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${CMAKE_MATCH_1})
endforeach()
install(FILES ${CMAKE_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/kestrawind)
install(FILES ${CMAKE_SOURCE_DIR}/doc/kestrawind.ini.sample
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/kestrawind/examples
        RENAME kestrawind.ini)
# The symlinks and the configuration file depend on the prefix given at install time.
install(FILES ${KW_DEBIAN_DOCS} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/kestrawind)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides RENAME kestrawind)
install(CODE "set(KW_SAMPLE_INI \"${CMAKE_SOURCE_DIR}/doc/kestrawind.ini.sample\")
set(KW_PROGRAM_DIR \"${KW_PROGRAM_DIR}\")
set(KW_BIN_DIR \"${CMAKE_INSTALL_BINDIR}\")")
install(SCRIPT ${CMAKE_SOURCE_DIR}/cmake/install_config.cmake)

# --- Debian package ------------------------------------------------------------------------
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrawind)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${KW_DEB_REVISION})
# The install script sees the real prefix (/usr) and stages under DESTDIR, so that /etc and
# the symlinks' targets come out as they will stand on the installed system.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT ${KW_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "send one text message through a modem and an SMS centre")
# The summary above is the first line; this is the long part below it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Kestrawind sends one text message to one phone number from the command
line: it dials the TAP or UCP dial-in of an SMS provider through a modem on a
serial port, hands the message over, hangs up and prints one line that says
what happened. kestrawind-send gives scripts and monitoring systems an exit
status to act on. The package also holds kestrawind-sim, a modem and SMS
centre simulator on a pseudo-terminal for trying it out without a modem.")
set(CPACK_DEBIAN_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
# The program is static; the simulator is not, and dpkg-shlibdeps finds what it needs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_SOURCE_DIR}/packaging/conffiles ${CMAKE_SOURCE_DIR}/packaging/postinst)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
