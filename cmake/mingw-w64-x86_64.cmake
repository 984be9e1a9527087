# Cross compiling for Windows x86-64 with MinGW-w64 (POSIX threads); what must run meanwhile runs under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
find_program(KIV_MINGW_CXX NAMES x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-g++ REQUIRED)
string(REPLACE "g++" "gcc" KIV_MINGW_CC "${KIV_MINGW_CXX}")
set(CMAKE_C_COMPILER "${KIV_MINGW_CC}")
set(CMAKE_CXX_COMPILER "${KIV_MINGW_CXX}")
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# Libraries, headers and packages come from the given prefixes only: the host's would fit by name and nothing else.
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 ${CMAKE_PREFIX_PATH} $ENV{CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../tools/wine-run.sh")
