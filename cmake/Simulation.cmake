# The simulated Windows: the core's own sources compiled natively against simulation/standin, under the scheduler of
# simulation/kernel. In the trees of the presets whose names begin with simulation.
find_library(MORVANE_BOOST_CONTEXT boost_context REQUIRED)

# morvane_simulated(<variable> FOLDER folder SOURCES file...)
function(morvane_simulated variable)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "SOURCES")
    list(TRANSFORM arg_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/${arg_FOLDER}/)
    set(${variable} ${${variable}} ${arg_SOURCES} PARENT_SCOPE)
endfunction()

# The product's, unchanged.
morvane_simulated(simulated_product FOLDER win32 SOURCES
    ModulePath.cpp OverlappedOperation.cpp OwnUserSecurity.cpp RegistryKey.cpp Text.cpp Thread.cpp
    TimerResolution.cpp)
morvane_simulated(simulated_product FOLDER trace SOURCES PacketText.cpp Trace.cpp)
morvane_simulated(simulated_product FOLDER ports/packet SOURCES
    CCommandQueue.cpp CSerialPortCommand.cpp WireFormat.cpp)
morvane_simulated(simulated_product FOLDER usb SOURCES
    BulkTransfer.cpp CCyUSBEndPoint.cpp Descriptors.cpp DeviceControl.cpp DeviceInterfaces.cpp EndPointKinds.cpp
    Transfer.cpp UsbDevice.cpp UsbDeviceIdentity.cpp)
morvane_simulated(simulated_product FOLDER firmware SOURCES
    ChunkPlan.cpp DownloadDialogue.cpp FirmwareDownloader.cpp FirmwareFile.cpp)
morvane_simulated(simulated_product FOLDER transport SOURCES
    CCyUSBDriver.cpp CommandTexts.cpp CommandThread.cpp Outgoing.cpp ReadThreads.cpp Replies.cpp
    SimulationLink.cpp SkippedPacketLog.cpp UsbLink.cpp)
morvane_simulated(simulated_product FOLDER ports SOURCES
    CCDevicePortPipe.cpp PipeServer.cpp PipeWorker.cpp ReplyWriter.cpp RequestReader.cpp)
morvane_simulated(simulated_product FOLDER host SOURCES PortTable.cpp TraceOptionsTable.cpp)
morvane_simulated(simulated_product FOLDER diag SOURCES
    CDebugThread.cpp LogFile.cpp TimeStamp.cpp TraceQueue.cpp TracerWorker.cpp)

# Around it.
morvane_simulated(surroundings FOLDER console SOURCES CommandLine.cpp HexDump.cpp TypedBytes.cpp)
morvane_simulated(surroundings FOLDER instrument SOURCES
    Bootloader.cpp Engine.cpp Output.cpp Script.cpp)
morvane_simulated(surroundings FOLDER simulation/scenario SOURCES
    Account.cpp Client.cpp Instrument.cpp NoWindow.cpp Plan.cpp ReplyScenario.cpp Scenario.cpp Surroundings.cpp
    TracerAccount.cpp TracerScenario.cpp TransferScenario.cpp)
morvane_simulated(simulation FOLDER simulation SOURCES Arguments.cpp EachCall.cpp Main.cpp Unplugging.cpp)
morvane_simulated(simulation_kernel FOLDER simulation/kernel SOURCES
    Call.cpp DeviceCalls.cpp DeviceControls.cpp Devices.cpp Disk.cpp Events.cpp Fiber.cpp Files.cpp Locks.cpp Memory.cpp Messages.cpp Objects.cpp
    PipeData.cpp Pipes.cpp Process.cpp Registry.cpp Requests.cpp Scheduler.cpp Switches.cpp Threads.cpp Waits.cpp
    World.cpp)

# Before everything else on the include path, so that <windows.h> and its companions are the stand-in's.
add_library(morvane_simulated INTERFACE)
target_include_directories(morvane_simulated BEFORE INTERFACE ${PROJECT_SOURCE_DIR}/simulation/standin)
target_link_libraries(morvane_simulated INTERFACE morvane_flags)
target_compile_options(morvane_simulated INTERFACE -g1)
if(MORVANE_SIMULATED_ATOMICS)
    # Here, so that all see the product's classes alike.
    target_compile_options(morvane_simulated INTERFACE
        "SHELL:-include ${PROJECT_SOURCE_DIR}/simulation/atomics/AtomicPoints.h")
    morvane_simulated(simulation_kernel FOLDER simulation/atomics SOURCES AtomicPoints.cpp)
endif()

add_library(simulation_kernel STATIC ${simulation_kernel})
target_link_libraries(simulation_kernel PUBLIC morvane_simulated ${MORVANE_BOOST_CONTEXT})
# As one, for what every point of the scheduler needs is best compiled together.
set_target_properties(simulation_kernel PROPERTIES UNITY_BUILD_BATCH_SIZE 0)

# Archives, so that run-mutants can link a changed object before them.
add_library(simulated_product STATIC ${simulated_product})
target_link_libraries(simulated_product PUBLIC simulation_kernel)
add_library(simulation_surroundings STATIC ${surroundings})
target_link_libraries(simulation_surroundings PUBLIC morvane_simulated)
add_library(simulation_modes OBJECT ${simulation})
target_link_libraries(simulation_modes PUBLIC morvane_simulated)
set(simulation_programs simulate_seeds)

# A second one in which ThreadSanitizer watches the product. The others' own fields are touched by all threads, one at
# a time, so they are the same in both. clang's run-time library has an operator new of its own.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT MORVANE_SANITIZE AND NOT MORVANE_SIMULATED_ATOMICS
   AND NOT MORVANE_SIMULATED_COVERAGE)
    add_library(simulated_product_watched STATIC ${simulated_product})
    target_link_libraries(simulated_product_watched PUBLIC simulation_kernel)
    target_compile_options(simulated_product_watched PRIVATE -fsanitize=thread)
    target_link_options(simulated_product_watched INTERFACE -fsanitize=thread)
    morvane_unity(simulated_product_watched)
    list(APPEND simulation_programs simulate_seeds_watched)
endif()

foreach(program ${simulation_programs})
    string(REPLACE simulate_seeds simulated_product product ${program})
    add_executable(${program} $<TARGET_OBJECTS:simulation_modes>)
    set_target_properties(${program} PROPERTIES LINKER_LANGUAGE CXX)
    target_link_libraries(${program} PRIVATE simulation_surroundings ${product})
endforeach()

if(MORVANE_SIMULATED_COVERAGE)
    target_compile_options(simulated_product PRIVATE -fprofile-instr-generate -fcoverage-mapping)
    target_link_options(simulated_product INTERFACE -fprofile-instr-generate)
endif()

# The product is looked at in full. Around it only AddressSanitizer is, and of the stand-in only what it writes, for it
# writes into the product's memory: that is twice as fast. A library of flags: they come after its user's own.
if(MORVANE_SANITIZE)
    foreach(target simulation_kernel simulation_surroundings simulation_modes)
        add_library(${target}_sanitized INTERFACE)
        target_compile_options(${target}_sanitized INTERFACE -fno-sanitize=undefined)
        target_link_libraries(${target} PRIVATE ${target}_sanitized)
    endforeach()
    target_compile_options(simulation_kernel_sanitized INTERFACE
        --param=asan-instrument-reads=0 --param=asan-stack=0)
endif()

# GCC 12, optimising for this machine, takes the vector of an empty optional for one that is used.
set_source_files_properties(${PROJECT_SOURCE_DIR}/instrument/Output.cpp PROPERTIES
    COMPILE_OPTIONS $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
foreach(target simulation_kernel simulated_product simulation_surroundings simulation_modes)
    morvane_unity(${target})
endforeach()

set(MORVANE_SIMULATED_SEEDS 20000 CACHE STRING "Seeds of the test run")
set(MORVANE_SIMULATED_FAULTY_SEEDS 2500 CACHE STRING "Seeds of the test run in which calls fail")
add_test(NAME ${MORVANE_TEST_PREFIX}simulated_seeds
    COMMAND simulate_seeds --seeds ${MORVANE_SIMULATED_SEEDS} --switches --quiet)
if(NOT MORVANE_TEST_PREFIX)
    add_test(NAME planted_faults_apply COMMAND ${PROJECT_SOURCE_DIR}/simulation/run-mutants --apply-only)
    # Of different kinds and quickly found. The others: ./simulate --mutants
    foreach(fault number-not-counted no-cancel-at-closing packets-leak)
        add_test(NAME planted_fault_${fault} COMMAND ${PROJECT_SOURCE_DIR}/simulation/run-mutants --built ${fault})
        list(APPEND planted_faults planted_fault_${fault})
    endforeach()
    set_tests_properties(planted_faults_apply ${planted_faults} PROPERTIES LABELS simulation TIMEOUT 300)
endif()
add_test(NAME ${MORVANE_TEST_PREFIX}simulated_faults
    COMMAND simulate_seeds --from 1000001 --seeds ${MORVANE_SIMULATED_FAULTY_SEEDS} --faults all --quiet)
if(TARGET simulate_seeds_watched)
    add_test(NAME ${MORVANE_TEST_PREFIX}simulated_data_races COMMAND simulate_seeds_watched --seeds 1000 --quiet)
    set_tests_properties(${MORVANE_TEST_PREFIX}simulated_data_races PROPERTIES LABELS simulation TIMEOUT 900 COST 200)
endif()
add_test(NAME ${MORVANE_TEST_PREFIX}simulated_tracer COMMAND simulate_seeds --tracer --seeds 2000 --quiet)
add_test(NAME ${MORVANE_TEST_PREFIX}simulated_transfers COMMAND simulate_seeds --transfers --seeds 1000 --quiet)
add_test(NAME ${MORVANE_TEST_PREFIX}simulated_replies COMMAND simulate_seeds --replies --seeds 1000 --quiet)
add_test(NAME ${MORVANE_TEST_PREFIX}simulated_tracer_faults
    COMMAND simulate_seeds --tracer --from 1000001 --seeds 1000 --faults all --quiet)
set_tests_properties(${MORVANE_TEST_PREFIX}simulated_tracer ${MORVANE_TEST_PREFIX}simulated_tracer_faults
    ${MORVANE_TEST_PREFIX}simulated_transfers ${MORVANE_TEST_PREFIX}simulated_replies
    PROPERTIES LABELS simulation TIMEOUT 300)
add_test(NAME ${MORVANE_TEST_PREFIX}simulated_session_with_each_call_failing COMMAND simulate_seeds --each-call)
add_test(NAME ${MORVANE_TEST_PREFIX}simulated_unplugging
    COMMAND simulate_seeds --unplug --hours 4 --every 60)
set_tests_properties(${MORVANE_TEST_PREFIX}simulated_seeds ${MORVANE_TEST_PREFIX}simulated_faults
    ${MORVANE_TEST_PREFIX}simulated_session_with_each_call_failing ${MORVANE_TEST_PREFIX}simulated_unplugging
    PROPERTIES LABELS simulation TIMEOUT 900 COST 300)

if(MORVANE_HAVE_GOOGLETEST)
    include(SimulatedUnits)
endif()
