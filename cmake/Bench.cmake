# bench.exe, the benchmark. It starts the built router from outside, as the whole-process tests do, and plays the
# simulated instrument; so it takes what it needs of theirs, none of which needs GoogleTest.
set(bench_sources
    BarePipelineRole.cpp CountedRows.cpp DispatchRows.cpp Ends.cpp InstrumentRole.cpp Main.cpp Roles.cpp
    RoundTripRows.cpp RouterRows.cpp StreamRows.cpp Table.cpp TraceRows.cpp UsbRows.cpp WireRows.cpp)
list(TRANSFORM bench_sources PREPEND ${PROJECT_SOURCE_DIR}/bench/)
set(bench_support
    ChildProcess.cpp KilledServer.cpp PipeClient.cpp ProcessUsage.cpp RouterSession.cpp TempFolder.cpp UniqueName.cpp
    WaitUntil.cpp)
list(TRANSFORM bench_support PREPEND ${PROJECT_SOURCE_DIR}/tests/support/)
morvane_add_console_program(bench SOURCES ${bench_sources} ${bench_support}
    LIBRARIES ${MORVANE_KIT_LIBRARIES} morvane_clientcalls morvane_host morvane_testdriver)
morvane_unity(bench)
morvane_add_resources(bench)
add_dependencies(bench MorvanePortRouter MorvaneTestInstrument)
if(MORVANE_CHECKED)
    set_target_properties(bench PROPERTIES EXCLUDE_FROM_ALL ON) # what it measures is the release
elseif(CMAKE_CROSSCOMPILING)
    # Whether it runs and prints all its rows, not how fast.
    add_test(NAME bench_smoke COMMAND ${PROJECT_SOURCE_DIR}/bench/smoke ${PROJECT_BINARY_DIR})
    set_tests_properties(bench_smoke PROPERTIES
        LABELS bench TIMEOUT 180 COST 180 FIXTURES_REQUIRED wine)
endif()
