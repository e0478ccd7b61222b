# bench.exe, the benchmark. It starts the built router from outside, as the whole-process tests do, and plays the
# simulated instrument; so it takes what it needs of theirs, none of which needs GoogleTest.
morvane_sources(bench_sources bench/*.cpp
    tests/support/ChildProcess.cpp tests/support/TempFolder.cpp tests/support/UniqueName.cpp
    tests/support/WaitUntil.cpp
    tests/support/KilledServer.cpp tests/support/ProcessUsage.cpp tests/support/RouterSession.cpp)
if(TARGET morvane_testdriver AND TARGET MorvanePortRouter AND bench_sources)
    morvane_add_console_program(bench SOURCES ${bench_sources} LIBRARIES ${MORVANE_KIT_LIBRARIES} morvane_host)
    morvane_add_resources(bench)
    morvane_use_testdriver(bench)
    add_dependencies(bench MorvanePortRouter)
    if(CMAKE_CROSSCOMPILING AND NOT MORVANE_CHECKED)
        # Whether it runs and prints all its rows, not how fast.
        add_test(NAME bench_smoke COMMAND ${PROJECT_SOURCE_DIR}/bench/smoke ${PROJECT_BINARY_DIR})
        set_tests_properties(bench_smoke PROPERTIES
            LABELS bench TIMEOUT 180 COST 180 FIXTURES_REQUIRED wine)
    endif()
endif()
