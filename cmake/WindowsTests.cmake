# Test programs that run on Windows (or Wine): one per module, and the whole-process tests.
if(NOT MORVANE_HAVE_GOOGLETEST)
    return()
endif()

# morvane_test_sources(<variable> <folder> <file>...): files of a folder below tests/, with their full paths.
function(morvane_test_sources variable folder)
    list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/tests/${folder}/)
    set(${variable} ${ARGN} PARENT_SCOPE)
endfunction()

# Tests wait far longer than they compute: also in the release tree only the code under test is optimised.
set(test_options $<$<COMPILE_LANGUAGE:CXX>:-O0>)
if(MINGW)
    list(APPEND test_options $<$<COMPILE_LANGUAGE:CXX>:-Wa,-mbig-obj>)
endif()

morvane_test_sources(support_sources support
    AllocationCount.cpp ChildProcess.cpp KilledServer.cpp OwnFolder.cpp PatchedImport.cpp PipeClient.cpp
    ProcessUsage.cpp RegistryRoot.cpp RouterSession.cpp TempFolder.cpp UnderWine.cpp UniqueName.cpp WaitUntil.cpp)
add_library(morvane_testsupport STATIC ${support_sources})
target_link_libraries(morvane_testsupport PUBLIC morvane_flags morvane_generated morvane_googletest
    morvane_client morvane_packet morvane_win32 morvane_system)
target_compile_options(morvane_testsupport PRIVATE ${test_options})
morvane_unity(morvane_testsupport)
# A test program that replaces operator new by its own leaves this object in the library.
set_source_files_properties(${PROJECT_SOURCE_DIR}/tests/support/AllocationCount.cpp
    PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
# GoogleMock and windows.h take longer to read than most tests take to compile.
target_precompile_headers(morvane_testsupport PRIVATE <gmock/gmock.h> <gtest/gtest.h> <windows.h>
    <atomic> <chrono> <filesystem> <functional> <memory> <mutex> <string> <thread> <vector>)

# The trace sink of every module's tests but host's, which install the product's own.
add_library(morvane_recordingtrace STATIC ${PROJECT_SOURCE_DIR}/tests/support/RecordingTrace.cpp)
target_link_libraries(morvane_recordingtrace PUBLIC morvane_flags morvane_trace)

# For test programs that install the driver and play the instrument: the driver lies beside them.
function(morvane_use_testdriver target)
    target_link_libraries(${target} PRIVATE morvane_testdriver)
    add_dependencies(${target} MorvaneTestInstrument)
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
    morvane_unity(${name})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
endfunction()

# morvane_unit_test(<name> LIBRARIES library... SOURCES file...): the tests in tests/unit/<name>.
function(morvane_unit_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    morvane_test_sources(sources unit/${name} ${arg_SOURCES})
    morvane_add_gtest(unit_${name} SOURCES ${sources} LIBRARIES morvane_testsupport ${arg_LIBRARIES})
    morvane_add_test(TARGET unit_${name} LABEL unit)
endfunction()

# What the calls have to answer: asked by a unit test of win32, here and in the simulated Windows, and by WindowsCheck.
morvane_test_sources(answer_sources windows
    Answers.cpp FileAnswers.cpp InstanceAnswers.cpp ReadAnswers.cpp WaitAnswers.cpp WriteAnswers.cpp)
add_library(morvane_answers STATIC ${answer_sources})
target_link_libraries(morvane_answers PUBLIC morvane_testsupport)
target_compile_options(morvane_answers PRIVATE ${test_options})
morvane_unity(morvane_answers)

morvane_unit_test(win32 LIBRARIES morvane_answers morvane_recordingtrace morvane_win32 SOURCES
    AnswerTests.cpp HandleTests.cpp OnDemandEventTests.cpp OverlappedOperationTests.cpp OwnUserSecurityTests.cpp
    RegistryKeyTests.cpp TextTests.cpp ThreadTests.cpp TimerResolutionTests.cpp WaitSetTests.cpp)
morvane_unit_test(trace LIBRARIES morvane_recordingtrace morvane_trace SOURCES
    PacketTextTests.cpp)
morvane_unit_test(usb LIBRARIES morvane_recordingtrace morvane_usb SOURCES
    AbortTests.cpp AtOnceTests.cpp DeafDriverTests.cpp EndpointKindTests.cpp FindAndOpenTests.cpp FinishTests.cpp
    Hooks.cpp IdentityTests.cpp InstrumentEnvironment.cpp NotificationTests.cpp RequestBlockTests.cpp
    TransferTests.cpp UnplugTests.cpp UsbFixture.cpp)
morvane_unit_test(firmware LIBRARIES morvane_recordingtrace morvane_firmware SOURCES
    AllocationLimit.cpp FirmwareDownloaderTests.cpp FirmwareFileTests.cpp FirmwareFixture.cpp
    FirmwareThreadTests.cpp)
morvane_unit_test(transport LIBRARIES morvane_recordingtrace morvane_transport SOURCES
    DispatchTests.cpp HookFlags.cpp Hooks.cpp InstrumentEnvironment.cpp SimulationTests.cpp SubmitTests.cpp UsbConnectTests.cpp
    UsbDeafTests.cpp UsbFixture.cpp UsbQuietTests.cpp UsbReadTests.cpp UsbStuckWriteTests.cpp UsbUnplugTests.cpp
    UsbWriteTests.cpp)
morvane_unit_test(ports LIBRARIES morvane_recordingtrace morvane_ports SOURCES
    CommandTests.cpp PortPipeFixture.cpp PortPipeLimitTests.cpp PortPipeRecreateTests.cpp PortPipeStopTests.cpp
    PortPipeTests.cpp PortPipeTraceTests.cpp PortPipeWindowsTests.cpp ReplyWriterTests.cpp)
morvane_unit_test(diag LIBRARIES morvane_recordingtrace morvane_diag SOURCES
    DebugListTests.cpp DebugOptionTests.cpp DebugWindowFixture.cpp DebugWindowTests.cpp DialogFixture.cpp
    DialogKeyboardTests.cpp DialogLayoutTests.cpp DialogTests.cpp FakeHost.cpp IconTests.cpp LogFileTests.cpp
    LogText.cpp Pump.cpp TimeStampTests.cpp TraceQueueTests.cpp TracerFaultTests.cpp TracerFixture.cpp
    TracerModalTests.cpp TracerSessionTests.cpp TracerTests.cpp TrayIconTests.cpp)
morvane_unit_test(host LIBRARIES morvane_host SOURCES
    BoundedStepTests.cpp CMorvaneUSBRouterTests.cpp CommandLineTests.cpp ComOptionsTests.cpp ComServerTests.cpp
    ConfigurationStoreTests.cpp HostWatchTests.cpp ModuleTests.cpp PortTableTests.cpp RegistrarScriptTests.cpp
    RegistrationTests.cpp TraceFrontEndTests.cpp TraceOptionsTableTests.cpp)
morvane_unit_test(tools LIBRARIES morvane_recordingtrace ${MORVANE_KIT_LIBRARIES} morvane_usb SOURCES
    ClientPipeTests.cpp FakePort.cpp ProbeProgramTests.cpp SimulatorProgramTests.cpp)
morvane_unit_test(support LIBRARIES morvane_recordingtrace ${MORVANE_KIT_LIBRARIES} morvane_usb SOURCES
    SupportTests.cpp)
morvane_unit_test(bus LIBRARIES morvane_recordingtrace ${MORVANE_KIT_LIBRARIES} morvane_usb SOURCES
    BusProgramTests.cpp UsbRouterEnd.cpp)
morvane_add_resources(unit_diag)
morvane_add_resources(unit_host)
foreach(name usb transport bus)
    morvane_use_testdriver(unit_${name})
endforeach()
# These start the built programs, which lie beside them.
add_dependencies(unit_tools RouterProbe InstrumentSimulator)
add_dependencies(unit_bus InstrumentBus InstrumentSimulator)

# RouterLog on Windows: files that the router has open, and real routers' logs. Once is enough: what it reckons runs under
# the sanitizers of the native tree.
if(NOT MORVANE_CHECKED)
    morvane_test_sources(routerlog_sources routerlog
        BundleTests.cpp DoctorTests.cpp ExplainTests.cpp FollowTests.cpp IncidentTests.cpp LogTailTests.cpp
        PlantedRun.cpp)
    morvane_add_gtest(routerlog_tests SOURCES ${routerlog_sources}
        LIBRARIES morvane_testsupport morvane_recordingtrace morvane_routerlog morvane_diag)
    add_dependencies(routerlog_tests RouterLog MorvanePortRouter RouterProbe InstrumentSimulator InstrumentBus)
    morvane_use_testdriver(routerlog_tests)
    morvane_add_test(TARGET routerlog_tests LABEL system TIMEOUT 400)
endif()

morvane_test_sources(system_sources system
    Client32Tests.cpp FirmwareRouteTests.cpp HostActivationTests.cpp HostHardeningTests.cpp HostInstanceTests.cpp
    HostRegistrationTests.cpp HostSessionEndTests.cpp HostWatchTests.cpp LongRun.cpp ProbeTests.cpp RegistryListing.cpp
    RouterLogAccount.cpp RouteTests.cpp SoakTests.cpp UnplugSoakTests.cpp UsbRouteTests.cpp)
morvane_add_gtest(system_tests SOURCES ${system_sources} ${PROJECT_SOURCE_DIR}/tests/unit/bus/UsbRouterEnd.cpp
    LIBRARIES morvane_testsupport morvane_recordingtrace morvane_diag morvane_transport)
add_dependencies(system_tests MorvanePortRouter RouterProbe InstrumentSimulator InstrumentBus)
if(TARGET Client32)
    add_dependencies(system_tests Client32)
endif()
morvane_use_testdriver(system_tests)
# The order of its tests stays what it was: the routers of one end before the activations of the next.
set_target_properties(system_tests PROPERTIES UNITY_BUILD OFF)

# Hostile ends, all beside one well-behaved client of one router.
morvane_test_sources(hostile_sources system/hostile
    HostileCallTests.cpp HostileClientTests.cpp HostileFixture.cpp HostileInstrumentTests.cpp HostileVanishTests.cpp
    InstrumentScript.cpp WellBehavedClient.cpp)
morvane_add_gtest(hostile_tests SOURCES ${hostile_sources} LIBRARIES morvane_testsupport)
add_dependencies(hostile_tests MorvanePortRouter RouterProbe InstrumentSimulator)
morvane_add_test(TARGET hostile_tests LABEL system SHARDS 2 TIMEOUT 400)

# What the code assumes of Windows, for ./windows-kit.
morvane_test_sources(check_sources windows
    ComRows.cpp Kit.cpp MachineRows.cpp Main.cpp PipeRows.cpp Rows.cpp ShortSoak.cpp WindowRows.cpp)
add_executable(WindowsCheck ${check_sources})
target_link_libraries(WindowsCheck PRIVATE morvane_answers morvane_testsupport morvane_host morvane_instrument)
target_compile_options(WindowsCheck PRIVATE ${test_options})
if(MORVANE_CHECKED)
    set_target_properties(WindowsCheck PROPERTIES EXCLUDE_FROM_ALL ON) # the kit takes the release
endif()

# The client library as its users have it: the DLL.
morvane_test_sources(client_sources client
    FirstHeader.cpp LibraryBinaryTests.cpp LibraryCallTests.cpp LibraryClosedPortTests.cpp LibraryConnectionTests.cpp
    LibraryEventTests.cpp LibraryInterfaceTests.cpp LibraryInterruptionTests.cpp LibraryRawTests.cpp
    LibraryReplyTests.cpp LibraryRouterTests.cpp LibrarySendTests.cpp LibrarySoakTests.cpp SampleTests.cpp)
morvane_add_gtest(client_tests SOURCES ${client_sources} ${PROJECT_SOURCE_DIR}/tests/unit/tools/FakePort.cpp
    LIBRARIES MorvaneClient morvane_testsupport morvane_recordingtrace)
# Its files have helpers of the same names.
set_target_properties(client_tests PROPERTIES UNITY_BUILD OFF)
add_dependencies(client_tests MorvanePortRouter InstrumentSimulator RouterProbe samples)
if(TARGET Client32)
    add_dependencies(client_tests Client32)
endif()
morvane_use_testdriver(client_tests)
morvane_add_test(TARGET client_tests LABEL system TIMEOUT 400)

# Compiled with the flags of the programs, optimisation included.
add_executable(StackOverrun ${PROJECT_SOURCE_DIR}/tests/system/overrun/Main.cpp)
target_link_libraries(StackOverrun PRIVATE morvane_flags)
add_dependencies(system_tests StackOverrun)
morvane_add_test(TARGET system_tests LABEL system SHARDS 4 TIMEOUT 400)

# Real windows, pointer and keys, which the display's own tools move: under Wine only. Each entry has a desktop of its
# own.
if(CMAKE_CROSSCOMPILING AND NOT MORVANE_CHECKED)
    morvane_test_sources(ui_sources system
        ui/DebugWindowUiTests.cpp ui/Desktop.cpp ui/DialogUiTests.cpp ui/ManifestTests.cpp ui/TrayUiTests.cpp
        ui/UiFixture.cpp ui/WindowLoadTests.cpp RegistryListing.cpp)
    morvane_add_gtest(ui_tests SOURCES ${ui_sources}
        LIBRARIES morvane_testsupport morvane_recordingtrace morvane_diag morvane_transport)
    add_dependencies(ui_tests MorvanePortRouter RouterProbe InstrumentSimulator)
    morvane_add_test(TARGET ui_tests LABEL system TIMEOUT 240 ENVIRONMENT MORVANE_DESKTOP=1024x768)
endif()
