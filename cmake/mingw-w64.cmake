# Cross-compiling for 64-bit Windows with Debian's MinGW-w64 (the POSIX-threads flavour: std::thread and
# std::mutex exist there). Programs run under Wine through cmake/wine-run.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(MORVANE_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${MORVANE_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${MORVANE_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${MORVANE_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${MORVANE_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run)
