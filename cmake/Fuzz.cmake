# The fuzz targets: replayed over their corpus by every test run, and run by ./fuzz in a tree of the preset "fuzz".
set(sources
    Descriptors.cpp Firmware.cpp Frames.cpp InstrumentEngine.cpp InstrumentScript.cpp PacketText.cpp Registration.cpp
    RouterLog.cpp Targets.cpp)
list(TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/tests/fuzz/)
if(MORVANE_FUZZ)
    add_executable(fuzz_targets ${sources} tests/fuzz/LibFuzzer.cpp)
    target_link_options(fuzz_targets PRIVATE -fsanitize=fuzzer)
else()
    add_executable(fuzz_targets ${sources} tests/fuzz/Replay.cpp)
    add_test(NAME ${MORVANE_TEST_PREFIX}fuzz_corpus COMMAND fuzz_targets ${PROJECT_SOURCE_DIR}/tests/fuzz/corpus)
    set_tests_properties(${MORVANE_TEST_PREFIX}fuzz_corpus PROPERTIES LABELS fuzz TIMEOUT 240 COST 20)
endif()
# Each target has helpers of the same names.
set_target_properties(fuzz_targets PROPERTIES UNITY_BUILD OFF)
target_link_libraries(fuzz_targets PRIVATE morvane_flags morvane_portable morvane_routerlog_portable)
