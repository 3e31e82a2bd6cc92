# Cross-builds the 64-bit Windows program on Debian with mingw-w64 (the POSIX thread model, which
# the C++ standard library's threads need); windres and windmc of the same binutils compile the
# program's resources (cmake/windows_resources.cmake).
#   cmake -S . -B build-win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
# Tests then run under Wine when it is installed: CTest starts each one through it.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KW_MINGW_PREFIX x86_64-w64-mingw32)

set(CMAKE_C_COMPILER ${KW_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KW_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${KW_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${KW_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(KW_WINE NAMES wine wine64)
if(KW_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KW_WINE})
endif()
