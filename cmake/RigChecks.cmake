# Tests of the sources and of the rig itself; none of them needs a compiled program.

function(morvane_add_script_test name script)
    add_test(NAME ${MORVANE_TEST_PREFIX}${name} COMMAND ${PROJECT_SOURCE_DIR}/${script})
    set_tests_properties(${MORVANE_TEST_PREFIX}${name} PROPERTIES LABELS rig TIMEOUT 180 COST 180)
endfunction()

if(NOT WIN32)
    morvane_add_script_test(formatting cmake/check-format)
    morvane_add_script_test(source_lists cmake/check-sources)
    morvane_add_script_test(include_directions cmake/check-includes)
    morvane_add_script_test(include_directions_check tests/rig/include-directions)
    add_test(NAME ${MORVANE_TEST_PREFIX}icons COMMAND ${PROJECT_SOURCE_DIR}/diag/icons/make-icons --check)
    set_tests_properties(${MORVANE_TEST_PREFIX}icons PROPERTIES LABELS rig TIMEOUT 60)
elseif(CMAKE_CROSSCOMPILING AND NOT MORVANE_CHECKED)
    morvane_add_script_test(wine_runs tests/rig/wine-runs)
    set_tests_properties(wine_runs PROPERTIES FIXTURES_REQUIRED wine)
    morvane_add_script_test(long_runs tests/rig/long-runs)
    set_tests_properties(long_runs PROPERTIES TIMEOUT 300 FIXTURES_REQUIRED wine)
    # Needs this tree's compilation database and generated header.
    morvane_add_script_test(locks cmake/check-locks)
    set_tests_properties(locks PROPERTIES TIMEOUT 300 PROCESSORS 2)
endif()
