# MorvaneClient.dll: bin/MorvaneClient.dll with import/x64/libMorvaneClient.a, and where it is cross-compiled the same
# for 32-bit programs: bin/x86/MorvaneClient.dll with import/x86/libMorvaneClient.a.

set(client_def ${PROJECT_SOURCE_DIR}/client/MorvaneClient.def)
set(client_rc ${PROJECT_SOURCE_DIR}/client/MorvaneClient.rc)
add_library(MorvaneClient SHARED ${PROJECT_SOURCE_DIR}/client/Exports.cpp ${client_def} ${client_rc})
set_source_files_properties(${client_rc} PROPERTIES OBJECT_DEPENDS "${MORVANE_VERSION_PARTS}")
target_compile_definitions(MorvaneClient PRIVATE MORVANE_CLIENT_STATIC)
target_link_libraries(MorvaneClient PRIVATE morvane_client)
morvane_precompile(MorvaneClient)
set_target_properties(MorvaneClient PROPERTIES
    PREFIX "" IMPORT_PREFIX "lib" IMPORT_SUFFIX ".a" ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/import/x64)
morvane_release(MorvaneClient)

# The samples as a user compiles them, with the public headers and an import library. The C compiler of the toolchain
# stands beside its C++ compiler.
string(REPLACE "g++" "gcc" sample_cc ${CMAKE_CXX_COMPILER})
set(samples ${PROJECT_SOURCE_DIR}/samples)
set(sample_headers ${PROJECT_SOURCE_DIR}/client/morvane_client.h ${PROJECT_SOURCE_DIR}/client/morvane_client.hpp)
set(sample_warnings -Wall -Wextra -Werror -I ${PROJECT_SOURCE_DIR}/client)
set(sample_library ${PROJECT_BINARY_DIR}/import/x64/libMorvaneClient.a)
set(bin ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
add_custom_command(
    OUTPUT ${bin}/SampleC.exe ${bin}/SampleCpp.exe ${bin}/ask.vbs
    COMMAND ${sample_cc} -std=c99 ${sample_warnings} ${samples}/ask.c ${sample_library} -o ${bin}/SampleC.exe
    COMMAND ${CMAKE_CXX_COMPILER} -std=c++20 -static -s ${sample_warnings} ${samples}/ask.cpp ${sample_library}
        -o ${bin}/SampleCpp.exe
    COMMAND ${CMAKE_COMMAND} -E copy ${samples}/ask.vbs ${bin}/ask.vbs
    DEPENDS ${samples}/ask.c ${samples}/ask.cpp ${samples}/ask.vbs ${sample_headers} MorvaneClient
    COMMENT "Compiling the samples"
    VERBATIM)
# The other languages where their tools are installed: Go's is run by the tests, the others are only checked.
find_program(MORVANE_GO NAMES go)
if(MORVANE_GO AND NOT MORVANE_CHECKED)
    add_custom_command(
        OUTPUT ${bin}/SampleGo.exe
        COMMAND ${CMAKE_COMMAND} -E env GOOS=windows GOARCH=amd64 CGO_ENABLED=0 GOCACHE=${PROJECT_BINARY_DIR}/go
            ${MORVANE_GO} build -trimpath -o ${bin}/SampleGo.exe ${samples}/ask.go
        DEPENDS ${samples}/ask.go
        COMMENT "Compiling the sample in Go"
        VERBATIM)
    list(APPEND other_samples ${bin}/SampleGo.exe)
endif()
find_program(MORVANE_CSHARP NAMES mcs)
if(MORVANE_CSHARP)
    set(sample_csharp ${PROJECT_BINARY_DIR}/samples/Ask.exe)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/samples)
    add_custom_command(
        OUTPUT ${sample_csharp}
        COMMAND ${MORVANE_CSHARP} -nologo -warn:4 -warnaserror -out:${sample_csharp} ${samples}/Ask.cs
        DEPENDS ${samples}/Ask.cs
        COMMENT "Compiling the sample in C#"
        VERBATIM)
    list(APPEND other_samples ${sample_csharp})
endif()
find_package(Python3 COMPONENTS Interpreter)
if(Python3_FOUND)
    set(sample_python ${PROJECT_BINARY_DIR}/samples/ask.pyc)
    add_custom_command(
        OUTPUT ${sample_python}
        COMMAND ${Python3_EXECUTABLE} -c "import py_compile, sys; py_compile.compile(*sys.argv[1:], doraise=True)"
            ${samples}/ask.py ${sample_python}
        DEPENDS ${samples}/ask.py
        COMMENT "Checking the sample in Python"
        VERBATIM)
    list(APPEND other_samples ${sample_python})
endif()
add_custom_target(samples ALL DEPENDS ${bin}/SampleC.exe ${other_samples})

# The checked tree tests the code, not how it is built for 32 bits.
if(NOT CMAKE_CROSSCOMPILING OR MORVANE_CHECKED)
    return()
endif()
find_program(MORVANE_CXX32 NAMES i686-w64-mingw32-g++-posix REQUIRED)
find_program(MORVANE_RC32 NAMES i686-w64-mingw32-windres REQUIRED)
set(client32_folders client/*.h console/*.h tests/client/FirstHeader.h win32/*.h)
list(TRANSFORM client32_folders PREPEND ${PROJECT_SOURCE_DIR}/)
file(GLOB client32_headers CONFIGURE_DEPENDS ${client32_folders})

# morvane_objects32(<variable> file...): compiles sources for 32-bit Windows.
function(morvane_objects32 variable)
    foreach(source ${ARGN})
        set(object ${PROJECT_BINARY_DIR}/x86/${source}.obj)
        cmake_path(GET object PARENT_PATH folder)
        file(MAKE_DIRECTORY ${folder})
        add_custom_command(
            OUTPUT ${object}
            COMMAND ${CMAKE_CXX_COMPILER_LAUNCHER} ${MORVANE_CXX32} -std=c++20 -O2 -municode
                -Wall -Wextra -Wshadow -Wconversion -Werror -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
                -DUNICODE -D_UNICODE -DWIN32_LEAN_AND_MEAN -DNOMINMAX -DSTRICT -D_WIN32_WINNT=0x0A00 -DWINVER=0x0A00
                -DMORVANE_CLIENT_STATIC -I ${PROJECT_SOURCE_DIR} -isystem ${MORVANE_GENERATED_DIR}
                -c ${PROJECT_SOURCE_DIR}/${source} -o ${object}
            DEPENDS ${PROJECT_SOURCE_DIR}/${source} ${client32_headers} ${MORVANE_GENERATED_DIR}/MorvanePortRouter.h
            COMMENT "Building ${source} for 32-bit Windows"
            VERBATIM)
        list(APPEND objects ${object})
    endforeach()
    set(${variable} ${objects} PARENT_SCOPE)
endfunction()

set(link32 ${MORVANE_CXX32} -static -s -municode -Wl,--no-insert-timestamp)
set(windows32 -lole32 -loleaut32 -luuid)
set(bin32 ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/x86)
set(import32 ${PROJECT_BINARY_DIR}/import/x86)
file(MAKE_DIRECTORY ${bin32} ${import32})

morvane_objects32(shared32
    client/ClientPipe.cpp client/RouterAutomation.cpp win32/OverlappedOperation.cpp)
morvane_objects32(library32
    client/ComThread.cpp client/Errors.cpp client/Exports.cpp client/Library.cpp client/Port.cpp client/PortCalls.cpp
    client/PortEvents.cpp client/PortLink.cpp client/Registration.cpp client/RouterHold.cpp win32/Thread.cpp)
set(resource32 ${PROJECT_BINARY_DIR}/x86/client/MorvaneClient.rc.obj)
add_custom_command(
    OUTPUT ${resource32}
    COMMAND ${MORVANE_RC32} -I ${PROJECT_SOURCE_DIR} -I ${MORVANE_GENERATED_DIR} ${client_rc} -o ${resource32}
    DEPENDS ${client_rc} ${MORVANE_VERSION_PARTS}
    VERBATIM)
add_custom_command(
    OUTPUT ${bin32}/MorvaneClient.dll ${import32}/libMorvaneClient.a
    COMMAND ${link32} -shared ${client_def} ${shared32} ${library32} ${resource32} -o ${bin32}/MorvaneClient.dll
        -Wl,--out-implib,${import32}/libMorvaneClient.a ${windows32}
    DEPENDS ${shared32} ${library32} ${resource32} ${client_def}
    COMMENT "Linking the 32-bit client library"
    VERBATIM)

# A 32-bit client of both kinds: of the automation object and of the library.
morvane_objects32(client32
    tests/client32/Main.cpp tests/client/FirstHeader.cpp console/Console.cpp)
add_custom_command(
    OUTPUT ${bin32}/Client32.exe
    COMMAND ${link32} ${client32} ${shared32} -o ${bin32}/Client32.exe ${windows32}
    DEPENDS ${client32} ${shared32}
    COMMENT "Linking the 32-bit client"
    VERBATIM)
string(REPLACE "g++" "gcc" sample_cc32 ${MORVANE_CXX32})
add_custom_command(
    OUTPUT ${bin32}/SampleC.exe
    COMMAND ${sample_cc32} -std=c99 ${sample_warnings} ${samples}/ask.c ${import32}/libMorvaneClient.a
        -o ${bin32}/SampleC.exe
    DEPENDS ${samples}/ask.c ${sample_headers} ${bin32}/MorvaneClient.dll
    COMMENT "Compiling the 32-bit sample"
    VERBATIM)
add_custom_target(Client32 ALL DEPENDS ${bin32}/Client32.exe ${bin32}/SampleC.exe)
