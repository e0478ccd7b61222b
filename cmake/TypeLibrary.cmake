# host/MorvanePortRouter.idl -> generated/MorvanePortRouter.h, MorvanePortRouter_i.c and MorvanePortRouter.tlb.
# Only widl sees Wine's folders (they hold oaidl.idl and stdole2.tlb); the C++ compiler uses MinGW's headers.

set(MORVANE_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
set(MORVANE_IDL ${PROJECT_SOURCE_DIR}/host/MorvanePortRouter.idl)
file(MAKE_DIRECTORY ${MORVANE_GENERATED_DIR})

find_program(MORVANE_WIDL NAMES x86_64-w64-mingw32-widl widl REQUIRED)
find_path(MORVANE_IDL_INCLUDE_DIR oaidl.idl NO_CMAKE_FIND_ROOT_PATH
    PATHS /usr/include/wine/wine/windows /usr/include/wine/windows
          /opt/wine-stable/include/wine/windows $ENV{MINGW_PREFIX}/include)
find_path(MORVANE_STDOLE_DIR stdole2.tlb NO_CMAKE_FIND_ROOT_PATH
    PATHS /usr/lib/x86_64-linux-gnu/wine/x86_64-windows /usr/lib/wine/x86_64-windows
          /opt/wine-stable/lib64/wine/x86_64-windows $ENV{SystemRoot}/System32)
foreach(needed MORVANE_IDL_INCLUDE_DIR MORVANE_STDOLE_DIR)
    if(NOT ${needed})
        message(FATAL_ERROR "${needed} not found: install libwine-dev (oaidl.idl) and libwine (stdole2.tlb)")
    endif()
endforeach()

set(MORVANE_TYPELIB_OUTPUTS
    ${MORVANE_GENERATED_DIR}/MorvanePortRouter.h
    ${MORVANE_GENERATED_DIR}/MorvanePortRouter_i.c
    ${MORVANE_GENERATED_DIR}/MorvanePortRouter.tlb
    ${MORVANE_GENERATED_DIR}/MorvanePortRouter32.tlb)
set(widl ${MORVANE_WIDL} -m64 -I ${MORVANE_IDL_INCLUDE_DIR} -L ${MORVANE_STDOLE_DIR})

# The shipped programs are the same bytes each time; a build on Windows itself, without perl, keeps the time.
set(fixed_times "")
if(CMAKE_CROSSCOMPILING)
    set(fixed_times COMMAND ${PROJECT_SOURCE_DIR}/cmake/set-typelib-time MorvanePortRouter.tlb MorvanePortRouter32.tlb)
endif()
set(widl_utc ${CMAKE_COMMAND} -E env TZ=UTC ${widl})

add_custom_command(
    OUTPUT ${MORVANE_TYPELIB_OUTPUTS}
    COMMAND ${widl} -h -o MorvanePortRouter.h ${MORVANE_IDL}
    COMMAND ${widl} -u -o MorvanePortRouter_i.c ${MORVANE_IDL}
    COMMAND ${widl_utc} -t -o MorvanePortRouter.tlb ${MORVANE_IDL}
    COMMAND ${widl_utc} -m32 -t -o MorvanePortRouter32.tlb ${MORVANE_IDL}
    ${fixed_times}
    WORKING_DIRECTORY ${MORVANE_GENERATED_DIR}
    DEPENDS ${MORVANE_IDL} ${PROJECT_SOURCE_DIR}/cmake/set-typelib-time
    COMMENT "Compiling the type library"
    VERBATIM)
add_custom_target(morvane_typelib DEPENDS ${MORVANE_TYPELIB_OUTPUTS})
