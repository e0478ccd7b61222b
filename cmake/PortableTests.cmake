# The native trees: portable sources and their tests, nothing else.
include(PortableSources)
add_library(morvane_portable OBJECT ${MORVANE_PORTABLE_SOURCES})
target_link_libraries(morvane_portable PRIVATE morvane_flags)
set(sources
    EngineAnswerTests.cpp EngineFaultTests.cpp EngineFirmwareTests.cpp EngineScriptTests.cpp EngineToolboxTests.cpp
    FirmwareBootloaderTests.cpp FirmwareChunkTests.cpp FirmwareDialogueTests.cpp FirmwareReplyNumberTests.cpp
    FirmwareRetryTests.cpp ScriptParserTests.cpp UsbDescriptorTests.cpp WireFormatTests.cpp)
list(TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/tests/wire/)
if(MORVANE_HAVE_GOOGLETEST)
    add_executable(wire_tests ${sources})
    target_link_libraries(wire_tests PRIVATE morvane_flags morvane_portable morvane_googletest)
    target_precompile_headers(wire_tests PRIVATE <gmock/gmock.h> <gtest/gtest.h>
        <algorithm> <cstdint> <functional> <random> <span> <string> <vector>)
    morvane_add_test(TARGET wire_tests LABEL wire)
endif()

# RouterLog's portable half. The table of trace formats is compared with the product's sources.
include(RouterLog)
add_library(morvane_routerlog_portable OBJECT ${MORVANE_ROUTERLOG_SOURCES})
target_link_libraries(morvane_routerlog_portable PRIVATE morvane_flags)
set(routerlog_tests
    DoctorTests.cpp ExportTests.cpp GrammarTests.cpp LineTests.cpp PackTests.cpp ReportTests.cpp
    StoryTests.cpp)
list(TRANSFORM routerlog_tests PREPEND ${PROJECT_SOURCE_DIR}/tests/routerlog/portable/)
if(MORVANE_HAVE_GOOGLETEST)
    add_executable(routerlog_portable_tests ${routerlog_tests})
    target_link_libraries(routerlog_portable_tests PRIVATE
        morvane_flags morvane_routerlog_portable morvane_googletest)
    target_compile_definitions(routerlog_portable_tests PRIVATE MORVANE_SOURCES="${PROJECT_SOURCE_DIR}")
    morvane_add_test(TARGET routerlog_portable_tests LABEL wire)
endif()

include(Fuzz)
if(NOT MORVANE_FUZZ)
    include(Relacy)
endif()

# The benchmark's rows about bytes alone.
add_executable(bench_native EXCLUDE_FROM_ALL
    bench/native/Main.cpp bench/Table.cpp bench/WireRows.cpp ports/packet/WireFormat.cpp trace/PacketText.cpp)
target_link_libraries(bench_native PRIVATE morvane_flags)
