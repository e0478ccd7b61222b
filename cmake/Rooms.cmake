# The modules as static libraries, the program, and the tools.

# What Windows itself provides.
add_library(morvane_system INTERFACE)
target_link_libraries(morvane_system INTERFACE
    ole32 oleaut32 uuid advapi32 user32 gdi32 shell32 comctl32 setupapi)

# The generated automation header comes from widl and is not held to our warnings.
add_library(morvane_generated INTERFACE)
target_include_directories(morvane_generated SYSTEM INTERFACE ${MORVANE_GENERATED_DIR})
if(TARGET morvane_typelib)
    add_dependencies(morvane_generated morvane_typelib)
endif()

# In the checked tree windows.h is read once for all rooms, which halves its build. In the release tree every
# file reads its own headers, so a missing #include is found there; and GCC 12, optimising, takes inlined code of
# precompiled headers for the file's own and warns about what it would not mention in a system header.
function(morvane_precompile target)
    if(NOT MORVANE_CHECKED)
        return()
    elseif(target STREQUAL "morvane_win32")
        target_precompile_headers(${target} PRIVATE <windows.h> <functional> <memory> <string> <vector>)
    else()
        target_precompile_headers(${target} REUSE_FROM morvane_win32)
    endif()
endfunction()

# morvane_module(<name> [FOLDER folder] [USES module...]): one module. What it uses is what cmake/check-includes lets
# it include, so the linker needs no second look at a library.
set(MORVANE_MODULES "")
function(morvane_module name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "USES")
    if(NOT arg_FOLDER)
        set(arg_FOLDER ${name})
    endif()
    morvane_sources(sources ${arg_FOLDER}/*.cpp)
    list(FILTER sources EXCLUDE REGEX "/host/Main\\.cpp$")
    add_library(morvane_${name} STATIC ${sources})
    list(TRANSFORM arg_USES PREPEND morvane_)
    target_link_libraries(morvane_${name} PUBLIC morvane_flags morvane_generated ${arg_USES} morvane_system)
    morvane_precompile(morvane_${name})
    set(MORVANE_MODULES ${MORVANE_MODULES} ${name} PARENT_SCOPE)
endfunction()

morvane_module(win32)
morvane_module(trace)
morvane_module(packet FOLDER ports/packet USES win32)
morvane_module(usb USES trace win32)
morvane_module(firmware USES packet trace win32)
morvane_module(transport USES firmware usb packet trace win32)
morvane_module(ports USES transport packet trace win32)
morvane_module(diag USES trace win32)
morvane_module(host USES diag ports transport firmware usb packet trace win32)

# Resources of the program: also linked into the test programs that need its dialogs and scripts.
morvane_sources(resource_script host/MorvanePortRouter.rc)
if(resource_script)
    morvane_sources(resource_parts host/*.rgs host/*.ico host/*.manifest host/Resource*.h host/resource*.h)
    add_library(morvane_resources OBJECT ${resource_script})
    target_link_libraries(morvane_resources PRIVATE morvane_flags)
    target_include_directories(morvane_resources PRIVATE ${MORVANE_GENERATED_DIR} ${PROJECT_SOURCE_DIR}/host)
    set_source_files_properties(${resource_script} PROPERTIES
        OBJECT_DEPENDS "${resource_parts};${MORVANE_TYPELIB_OUTPUTS};${MORVANE_GENERATED_DIR}/MorvanePortRouter.manifest;${MORVANE_VERSION_PARTS}")
    if(TARGET morvane_typelib)
        add_dependencies(morvane_resources morvane_typelib)
    endif()
endif()

# morvane_add_resources(target)
function(morvane_add_resources target)
    if(TARGET morvane_resources)
        target_sources(${target} PRIVATE $<TARGET_OBJECTS:morvane_resources>)
    endif()
endfunction()

morvane_sources(main_source host/Main.cpp)
if(main_source)
    add_executable(MorvanePortRouter WIN32 ${main_source})
    target_link_options(MorvanePortRouter PRIVATE -municode)
    morvane_add_resources(MorvanePortRouter)
    target_link_libraries(MorvanePortRouter PRIVATE morvane_host)
    morvane_release(MorvanePortRouter)
endif()

include(Tools)
