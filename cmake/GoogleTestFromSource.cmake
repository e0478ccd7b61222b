# GoogleTest is compiled with the flags of the tree it tests, from the sources that Debian installs.
# Where those are missing (Windows), an installed package serves; where both are, there are no tests.

set(MORVANE_GOOGLETEST_SOURCES /usr/src/googletest CACHE PATH "GoogleTest's source folder")

set(MORVANE_HAVE_GOOGLETEST TRUE)
if(EXISTS ${MORVANE_GOOGLETEST_SOURCES}/CMakeLists.txt)
    set(INSTALL_GTEST OFF CACHE INTERNAL "")
    set(BUILD_GMOCK ON CACHE INTERNAL "")
    add_subdirectory(${MORVANE_GOOGLETEST_SOURCES} googletest EXCLUDE_FROM_ALL SYSTEM)
    add_library(morvane_googletest INTERFACE)
    target_link_libraries(morvane_googletest INTERFACE gmock_main gmock gtest)
    foreach(target gtest gmock gmock_main)
        # SYSTEM alone does not silence warnings inside GoogleTest's own files. It is compiled three times in a
        # full run and never measured: unoptimised and unsanitised it takes half the time.
        target_compile_options(${target} PRIVATE -w -O0)
        target_include_directories(morvane_googletest SYSTEM INTERFACE
            $<TARGET_PROPERTY:${target},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
else()
    find_package(GTest CONFIG QUIET)
    if(GTest_FOUND)
        add_library(morvane_googletest INTERFACE)
        target_link_libraries(morvane_googletest INTERFACE GTest::gmock_main GTest::gmock GTest::gtest)
    else()
        set(MORVANE_HAVE_GOOGLETEST FALSE)
        message(WARNING "GoogleTest not found: building without tests (set MORVANE_GOOGLETEST_SOURCES)")
    endif()
endif()
