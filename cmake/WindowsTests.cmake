# Test programs that run on Windows (or Wine): one per module, and the whole-process tests.
if(NOT MORVANE_HAVE_GOOGLETEST)
    return()
endif()

# Tests wait far longer than they compute: also in the release tree only the code under test is optimised.
set(test_options $<$<COMPILE_LANGUAGE:CXX>:-O0>)
if(MINGW)
    list(APPEND test_options $<$<COMPILE_LANGUAGE:CXX>:-Wa,-mbig-obj>)
endif()

morvane_sources(support_sources tests/support/*.cpp)
morvane_sources(trace_source tests/support/RecordingTrace.cpp)
list(FILTER support_sources EXCLUDE REGEX "/RecordingTrace\\.cpp$")
set(support_libraries "")
if(support_sources)
    add_library(morvane_testsupport STATIC ${support_sources})
    target_link_libraries(morvane_testsupport PUBLIC morvane_flags morvane_generated morvane_googletest
        morvane_client morvane_packet morvane_win32 morvane_system)
    target_compile_options(morvane_testsupport PRIVATE ${test_options})
    # GoogleMock and windows.h take longer to read than most tests take to compile.
    target_precompile_headers(morvane_testsupport PRIVATE <gmock/gmock.h> <gtest/gtest.h> <windows.h>
        <atomic> <chrono> <filesystem> <functional> <memory> <mutex> <string> <thread> <vector>)
    list(APPEND support_libraries morvane_testsupport)
endif()

# The trace sink of every module's tests but host's, which install the product's own.
add_library(morvane_recordingtrace STATIC ${trace_source})
target_link_libraries(morvane_recordingtrace PUBLIC morvane_flags morvane_trace)
set(trace_library morvane_recordingtrace)

# For test programs that install the driver and play the instrument: the driver lies beside them.
function(morvane_use_testdriver target)
    if(TARGET morvane_testdriver)
        target_link_libraries(${target} PRIVATE morvane_testdriver)
        add_dependencies(${target} MorvaneTestInstrument)
    endif()
endfunction()

if(CMAKE_CROSSCOMPILING)
    add_test(NAME ${MORVANE_TEST_PREFIX}wine_prefix
        COMMAND ${PROJECT_SOURCE_DIR}/cmake/wine-run --prepare ${PROJECT_BINARY_DIR})
    set_tests_properties(${MORVANE_TEST_PREFIX}wine_prefix PROPERTIES
        LABELS rig TIMEOUT 180 FIXTURES_SETUP ${MORVANE_TEST_PREFIX}wine)
endif()

# morvane_add_gtest(<name> SOURCES ... LIBRARIES ...)
function(morvane_add_gtest name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE morvane_googletest)
    target_compile_options(${name} PRIVATE ${test_options})
    target_precompile_headers(${name} REUSE_FROM morvane_testsupport)
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
endfunction()

foreach(room ${MORVANE_MODULES} tools support bus)
    morvane_sources(sources tests/unit/${room}/*.cpp)
    if(NOT sources)
        continue()
    endif()
    if(room STREQUAL "host")
        set(libraries ${support_libraries})
    else()
        set(libraries ${support_libraries} ${trace_library})
    endif()
    if(TARGET morvane_${room})
        list(APPEND libraries morvane_${room})
    else()
        list(APPEND libraries ${MORVANE_KIT_LIBRARIES} morvane_usb)
    endif()
    morvane_add_gtest(unit_${room} SOURCES ${sources} LIBRARIES ${libraries})
    if(room STREQUAL "host" OR room STREQUAL "diag")
        morvane_add_resources(unit_${room})
    endif()
    if(room MATCHES "^(usb|transport|bus)$")
        morvane_use_testdriver(unit_${room})
    endif()
    if(room STREQUAL "tools")
        # These tests start the built programs, which lie beside them.
        foreach(program RouterProbe InstrumentSimulator)
            if(TARGET ${program})
                add_dependencies(unit_tools ${program})
            endif()
        endforeach()
    endif()
    if(room STREQUAL "bus")
        add_dependencies(unit_bus InstrumentBus InstrumentSimulator)
    endif()
    morvane_add_test(TARGET unit_${room} LABEL unit)
endforeach()

# RouterLog on Windows: files that the router has open, and real routers' logs. Once is enough: what it reckons runs under
# the sanitizers of the native tree.
if(NOT MORVANE_CHECKED)
    morvane_sources(routerlog_sources tests/routerlog/*.cpp)
    morvane_add_gtest(routerlog_tests SOURCES ${routerlog_sources}
        LIBRARIES ${support_libraries} ${trace_library} morvane_routerlog morvane_diag)
    add_dependencies(routerlog_tests RouterLog MorvanePortRouter RouterProbe InstrumentSimulator InstrumentBus)
    morvane_use_testdriver(routerlog_tests)
    morvane_add_test(TARGET routerlog_tests LABEL system TIMEOUT 400)
endif()

morvane_sources(system_sources tests/system/*.cpp tests/unit/bus/UsbRouterEnd.cpp)
if(system_sources)
    morvane_add_gtest(system_tests SOURCES ${system_sources}
        LIBRARIES ${support_libraries} ${trace_library} morvane_diag morvane_transport)
    foreach(program MorvanePortRouter RouterProbe InstrumentSimulator InstrumentBus Client32)
        if(TARGET ${program})
            add_dependencies(system_tests ${program})
        endif()
    endforeach()
    morvane_use_testdriver(system_tests)

    # Compiled with the flags of the programs, optimisation included.
    add_executable(StackOverrun tests/system/overrun/Main.cpp)
    target_link_libraries(StackOverrun PRIVATE morvane_flags)
    add_dependencies(system_tests StackOverrun)
    morvane_add_test(TARGET system_tests LABEL system SHARDS 4 TIMEOUT 400)
endif()

# Real windows, pointer and keys, which the display's own tools move: under Wine only. Each entry has a desktop of its
# own.
if(CMAKE_CROSSCOMPILING AND NOT MORVANE_CHECKED)
    morvane_sources(ui_sources tests/system/ui/*.cpp tests/system/RegistryListing.cpp)
    morvane_add_gtest(ui_tests SOURCES ${ui_sources}
        LIBRARIES ${support_libraries} ${trace_library} morvane_diag morvane_transport)
    add_dependencies(ui_tests MorvanePortRouter RouterProbe InstrumentSimulator)
    morvane_add_test(TARGET ui_tests LABEL system TIMEOUT 240 ENVIRONMENT MORVANE_DESKTOP=1024x768)
endif()
