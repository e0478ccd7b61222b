# What the released programs share: the version, which stands in project() alone, and their symbols.

configure_file(${PROJECT_SOURCE_DIR}/cmake/Version.h.in ${MORVANE_GENERATED_DIR}/Version.h @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/host/MorvanePortRouter.manifest
    ${MORVANE_GENERATED_DIR}/MorvanePortRouter.manifest @ONLY)

# For ./package, which reads no CMake. The ending keeps the file from standing in for the header <version>.
file(CONFIGURE OUTPUT ${MORVANE_GENERATED_DIR}/version.txt CONTENT "@PROJECT_VERSION@\n" @ONLY)

# What a resource script with a version block is made of besides itself.
set(MORVANE_VERSION_PARTS ${MORVANE_GENERATED_DIR}/Version.h ${PROJECT_SOURCE_DIR}/win32/VersionBlock.rc)

# morvane_release(target): in the release tree the program's symbols go into bin/symbols/, and the program
# names their file and its checksum.
function(morvane_release target)
    if(NOT CMAKE_BUILD_TYPE STREQUAL Release)
        return()
    endif()
    set_target_properties(${target} PROPERTIES MORVANE_RELEASED ON)
    set(symbols ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/symbols)
    get_target_property(type ${target} TYPE)
    set(file ${target}.exe)
    if(type STREQUAL SHARED_LIBRARY)
        set(file ${target}.dll)
    endif()
    file(MAKE_DIRECTORY ${symbols})
    # objcopy would put its own time into the program: the variable is Debian's way to say otherwise.
    set(objcopy ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0 ${CMAKE_OBJCOPY} --preserve-dates)
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${objcopy} --only-keep-debug $<TARGET_FILE:${target}> ${symbols}/${file}.debug
        COMMAND ${objcopy} --strip-all --add-gnu-debuglink=${symbols}/${file}.debug $<TARGET_FILE:${target}>
        BYPRODUCTS ${symbols}/${file}.debug
        VERBATIM)
endfunction()
