# Cross-builds for 64-bit Windows with mingw-w64 (posix threads). `CMake/prepare.sh windows` installs the libraries.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

cmake_path(SET quendraRoot NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/..")
set(CMAKE_FIND_ROOT_PATH ${quendraRoot}build/windows-deps/x86_64-w64-mingw32 /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The tests run under Wine.
set(CMAKE_CROSSCOMPILING_EMULATOR ${quendraRoot}CMake/wine.sh ${CMAKE_BINARY_DIR}/wineprefix)
