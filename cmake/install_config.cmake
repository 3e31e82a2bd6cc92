# Runs at install time (cmake --install, cpack): the symlinks that let the program find its
# configuration beside its real executable, and the configuration file itself.
# Set before: KW_SAMPLE_INI, KW_PROGRAM_DIR, KW_BIN_DIR (relative to the prefix).

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(kw_etc "/etc")
else()
  set(kw_etc "${CMAKE_INSTALL_PREFIX}/etc")
endif()
set(kw_root "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")

# Creates (or replaces) the symlink at path, pointing to target as written.
function(kw_symlink target path)
  message(STATUS "Installing: ${path} -> ${target}")
  get_filename_component(folder "${path}" DIRECTORY)
  file(MAKE_DIRECTORY "${folder}")
  file(REMOVE "${path}")
  file(CREATE_LINK "${target}" "${path}" SYMBOLIC)
endfunction()

kw_symlink("${kw_etc}/kestrawind.ini" "${kw_root}/${KW_PROGRAM_DIR}/kestrawind.ini")
kw_symlink("../${KW_PROGRAM_DIR}/kestrawind" "${kw_root}/${KW_BIN_DIR}/kestrawind")
kw_symlink("../${KW_PROGRAM_DIR}/kestrawind-send" "${kw_root}/${KW_BIN_DIR}/kestrawind-send")

# The settings hold the password: owner read-write, group read (the package's postinst gives
# the group to dialout). A file that is there already is the administrator's and stays.
set(kw_ini "$ENV{DESTDIR}${kw_etc}/kestrawind.ini")
if(EXISTS "${kw_ini}" OR IS_SYMLINK "${kw_ini}")
  message(STATUS "Kept: ${kw_ini}")
else()
  # file(INSTALL) puts DESTDIR in front by itself.
  file(INSTALL DESTINATION "${kw_etc}" TYPE FILE
       PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ
       RENAME kestrawind.ini FILES "${KW_SAMPLE_INI}")
endif()
