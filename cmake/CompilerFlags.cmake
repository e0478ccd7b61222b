# Flags for the whole tree, and the target morvane_flags with what holds for our own code only.

add_library(morvane_flags INTERFACE)

if(MORVANE_CHECKED)
    # MinGW has no UBSan run-time library; a trap ends the program at the faulty instruction instead.
    add_compile_definitions(_GLIBCXX_ASSERTIONS)
    target_compile_options(morvane_flags INTERFACE
        "$<$<COMPILE_LANGUAGE:CXX>:-fsanitize=undefined;-fsanitize-undefined-trap-on-error>")
endif()

if(MORVANE_SANITIZE)
    add_compile_definitions(_GLIBCXX_ASSERTIONS)
    target_compile_options(morvane_flags INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(morvane_flags INTERFACE -fsanitize=address,undefined)
    set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1")
endif()

if(MORVANE_FUZZ)
    # Counts what a run covers; the fuzzer itself is linked to fuzz_targets only.
    # clang does not see that the standard library's own use of a deprecated function is intended.
    add_compile_options(-fsanitize=fuzzer-no-link -Wno-deprecated-declarations)
endif()

if(WIN32)
    # One file that runs anywhere: no compiler DLLs beside it.
    add_link_options(-static)
    # Line numbers are enough for the trace of a crash and keep the checked programs small; Wine's debugger reads
    # them up to DWARF 4.
    set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1 -gdwarf-4")
    set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
    # Functions and lines for the crash of a released program; the program itself is shipped without.
    target_compile_options(morvane_flags INTERFACE $<$<AND:$<CONFIG:Release>,$<COMPILE_LANGUAGE:CXX>>:-g1>)
    add_link_options("$<$<AND:$<CONFIG:Release>,$<NOT:$<BOOL:$<TARGET_PROPERTY:MORVANE_RELEASED>>>>:-s>")
    # The same sources give the same bytes: no time of the link, no folder of the build.
    add_link_options(-Wl,--no-insert-timestamp)
    # The compiler tries the last one first. A compiler cache may hand it the sources' paths from the build's folder.
    file(RELATIVE_PATH to_sources ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/)
    foreach(path "${PROJECT_SOURCE_DIR}/=" "${PROJECT_BINARY_DIR}=." "${PROJECT_BINARY_DIR}/=" "${to_sources}=")
        add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-ffile-prefix-map=${path}>")
    endforeach()
    # Unoptimised template code overflows the section table of a plain COFF object.
    add_compile_options("$<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CONFIG:Debug>>:-Wa,-mbig-obj>")
endif()

target_include_directories(morvane_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(morvane_flags INTERFACE
    "$<$<COMPILE_LANGUAGE:CXX>:-Wall;-Wextra;-Wshadow;-Wconversion;-Werror>")
if(WIN32)
    # Given to the linker as well, which adds the static library of the protector where the compiler has one.
    target_compile_options(morvane_flags INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:-fstack-protector-strong>")
    target_link_options(morvane_flags INTERFACE -fstack-protector-strong)
    target_compile_definitions(morvane_flags INTERFACE
        UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX STRICT
        _WIN32_WINNT=0x0A00 WINVER=0x0A00 NTDDI_VERSION=0x0A000000)
endif()
