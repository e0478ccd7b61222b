# The rooms of the house as static libraries, the program, and the tools. A room without sources is left out.

set(MORVANE_ROOMS win32 ports usb firmware transport diag host)

# What Windows itself provides, after everything of ours.
add_library(morvane_system INTERFACE)
target_link_libraries(morvane_system INTERFACE
    ole32 oleaut32 uuid advapi32 user32 gdi32 shell32 comctl32 setupapi winmm)

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

set(MORVANE_ROOM_LIBRARIES "")
foreach(room ${MORVANE_ROOMS})
    morvane_sources(sources ${room}/*.cpp)
    list(FILTER sources EXCLUDE REGEX "/host/Main\\.cpp$")
    if(sources)
        add_library(morvane_${room} STATIC ${sources})
        target_link_libraries(morvane_${room} PUBLIC morvane_flags morvane_generated)
        morvane_precompile(morvane_${room})
        list(APPEND MORVANE_ROOM_LIBRARIES morvane_${room})
    endif()
endforeach()

# morvane_link_rooms(target library...): rooms call each other and the trace call of host/, so the linker
# searches them as one group.
function(morvane_link_rooms target)
    target_link_libraries(${target} PRIVATE morvane_flags morvane_generated)
    if(ARGN)
        list(JOIN ARGN "," group)
        target_link_libraries(${target} PRIVATE "$<LINK_GROUP:RESCAN,${group}>")
    endif()
    target_link_libraries(${target} PRIVATE morvane_system)
endfunction()

# Resources of the program: also linked into the test programs that need its dialogs and scripts.
morvane_sources(resource_script host/MorvanePortRouter.rc)
if(resource_script)
    morvane_sources(resource_parts host/*.rgs host/*.ico host/*.manifest host/Resource*.h host/resource*.h)
    add_library(morvane_resources OBJECT ${resource_script})
    target_link_libraries(morvane_resources PRIVATE morvane_flags)
    target_include_directories(morvane_resources PRIVATE ${MORVANE_GENERATED_DIR} ${PROJECT_SOURCE_DIR}/host)
    set_source_files_properties(${resource_script} PROPERTIES
        OBJECT_DEPENDS "${resource_parts};${MORVANE_GENERATED_DIR}/MorvanePortRouter.tlb")
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
    morvane_link_rooms(MorvanePortRouter ${MORVANE_ROOM_LIBRARIES})
endif()

include(Tools)
