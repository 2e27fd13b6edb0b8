# Cross build of the Windows program on Linux with mingw-w64; the programs it
# makes run under Wine, for the build's own tools and for the tests:
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(TOLMEK_MINGW x86_64-w64-mingw32)

# The posix thread variant: GoogleTest needs std::mutex.
set(CMAKE_C_COMPILER ${TOLMEK_MINGW}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TOLMEK_MINGW}-g++-posix)
set(CMAKE_RC_COMPILER ${TOLMEK_MINGW}-windres)
set(TOLMEK_WINDMC ${TOLMEK_MINGW}-windmc)

set(CMAKE_FIND_ROOT_PATH /usr/${TOLMEK_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(TOLMEK_WINE wine)
if(TOLMEK_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${TOLMEK_WINE})
endif()
