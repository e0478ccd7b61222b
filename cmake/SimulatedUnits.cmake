# The unit tests of the core in the simulated Windows, from the same sources as for Windows.
morvane_simulated(simulated_tests FOLDER tests/unit/win32 SOURCES
    AnswerTests.cpp HandleTests.cpp OnDemandEventTests.cpp OverlappedOperationTests.cpp TextTests.cpp ThreadTests.cpp
    WaitSetTests.cpp)
morvane_simulated(simulated_tests FOLDER tests/unit/trace SOURCES PacketTextTests.cpp)
morvane_simulated(simulated_tests FOLDER tests/unit/ports SOURCES
    CommandTests.cpp PortPipeFixture.cpp PortPipeLimitTests.cpp PortPipeRecreateTests.cpp PortPipeStopTests.cpp
    PortPipeTests.cpp PortPipeTraceTests.cpp PortPipeWindowsTests.cpp ReplyWriterTests.cpp)
morvane_simulated(simulated_tests FOLDER tests/unit/transport SOURCES
    DispatchTests.cpp HookFlags.cpp SimulationTests.cpp SubmitTests.cpp)
morvane_simulated(simulated_tests FOLDER tests/windows SOURCES
    Answers.cpp FileAnswers.cpp InstanceAnswers.cpp ReadAnswers.cpp WaitAnswers.cpp WriteAnswers.cpp)
# Left out are those that step in between the product and DeviceIoControl, and the notifications, which want a window.
morvane_simulated(simulated_tests FOLDER tests/unit/usb SOURCES
    AbortTests.cpp DeafDriverTests.cpp EndpointKindTests.cpp FindAndOpenTests.cpp FinishTests.cpp IdentityTests.cpp
    RequestBlockTests.cpp TransferTests.cpp UnplugTests.cpp UsbFixture.cpp)
morvane_simulated(simulated_tests FOLDER tests/instrument SOURCES
    InstrumentControl.cpp InstrumentDescription.cpp RemoteCall.cpp)
morvane_simulated(simulated_tests FOLDER tests/instrument/driver SOURCES
    Answers.cpp Remote.cpp Requests.cpp Transfers.cpp)
morvane_simulated(simulated_tests FOLDER tests/support SOURCES
    PipeClient.cpp RecordingTrace.cpp UniqueName.cpp WaitUntil.cpp)
morvane_simulated(simulated_tests FOLDER simulation/unit SOURCES Calls.cpp Driver.cpp Imports.cpp Main.cpp)
# What the archive brings along with the unit tests may be the tracer, in the same compilation as a part that they use.
morvane_simulated(simulated_tests FOLDER simulation/scenario SOURCES NoWindow.cpp)

add_executable(simulated_units ${simulated_tests})
target_include_directories(simulated_units PRIVATE ${PROJECT_SOURCE_DIR}/simulation/unit/driver)
target_link_libraries(simulated_units PRIVATE simulated_product simulation_kernel morvane_googletest)
foreach(import _Z10CancelIoExPvP10OVERLAPPED _Z16ConnectNamedPipePvP10OVERLAPPED
        _Z12CreateEventWP19SECURITY_ATTRIBUTESiiPKw _Z16CreateNamedPipeAPKcjjjjjjP19SECURITY_ATTRIBUTES
        _Z16OpenProcessTokenPvjPS_ _Z8ReadFilePvS_jPjP10OVERLAPPED _Z9WriteFilePvPKvjPjP10OVERLAPPED
        _Z14_beginthreadexPvjPFjS_ES_jPj)
    target_link_options(simulated_units PRIVATE LINKER:--wrap=${import})
endforeach()
# GCC 12 takes the text after a literal for memory that overlaps it.
target_compile_options(simulated_units PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
morvane_unity(simulated_units)

set(MORVANE_SIMULATED_UNIT_SEEDS 100 CACHE STRING "Seeds of each unit test of the core in the test run")
add_test(NAME ${MORVANE_TEST_PREFIX}simulated_units COMMAND simulated_units --seeds ${MORVANE_SIMULATED_UNIT_SEEDS})
set_tests_properties(${MORVANE_TEST_PREFIX}simulated_units PROPERTIES LABELS simulation TIMEOUT 900 COST 300)
