# tests/client32 as a 32-bit Windows program: with the 32-bit compiler, beside everything else of this tree.
if(NOT CMAKE_CROSSCOMPILING)
    return()
endif()
find_program(MORVANE_CXX32 NAMES i686-w64-mingw32-g++-posix REQUIRED)

set(client32_sources
    tests/client32/Main.cpp
    client/ClientPipe.cpp
    console/Console.cpp
    client/RouterAutomation.cpp
    win32/OverlappedOperation.cpp)
list(TRANSFORM client32_sources PREPEND ${PROJECT_SOURCE_DIR}/)
set(client32_folders client/*.h console/*.h win32/*.h)
list(TRANSFORM client32_folders PREPEND ${PROJECT_SOURCE_DIR}/)
file(GLOB client32_headers CONFIGURE_DEPENDS ${client32_folders})
file(MAKE_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
set(client32_program ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/Client32.exe)
add_custom_command(
    OUTPUT ${client32_program}
    COMMAND ${MORVANE_CXX32} -std=c++20 -O0 -municode -static -s
        -Wall -Wextra -Wshadow -Wconversion -Werror
        -DUNICODE -D_UNICODE -DWIN32_LEAN_AND_MEAN -DNOMINMAX -DSTRICT -D_WIN32_WINNT=0x0A00 -DWINVER=0x0A00
        -I ${PROJECT_SOURCE_DIR} -isystem ${MORVANE_GENERATED_DIR} ${client32_sources} -o ${client32_program} -lole32 -loleaut32 -luuid
    DEPENDS ${client32_sources} ${client32_headers} ${MORVANE_GENERATED_DIR}/MorvanePortRouter.h
    COMMENT "Building the 32-bit client"
    VERBATIM)
add_custom_target(Client32 ALL DEPENDS ${client32_program})
