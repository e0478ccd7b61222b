# The kits that tools, tests and the benchmark share, and the tools: each folder of tools/ is a console program of its
# name, but PlayInstrument/, which two of them share. All of them, and bench, enter at wmain: what people type reaches
# them as Windows has it, in UTF-16.

# morvane_add_console_program(name SOURCES source... LIBRARIES library...)
function(morvane_add_console_program name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${arg_SOURCES})
    target_link_options(${name} PRIVATE -municode)
    morvane_precompile(${name})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
endfunction()

# The simulated instrument with its kernel driver.
add_subdirectory(${PROJECT_SOURCE_DIR}/tests/instrument testdriver)

# Kits of the tools, the tests and the benchmark; of the product they use the wrappers of Windows and the wire format.
# The instrument's USB endpoint speaks to the test driver's remote control.
morvane_module(console USES win32 SOURCES
    CommandLine.cpp Console.cpp HexDump.cpp TypedBytes.cpp Version.cpp WholeFile.cpp)
morvane_module(client USES win32 SOURCES
    ClientPipe.cpp ComThread.cpp Errors.cpp Library.cpp Port.cpp PortCalls.cpp PortEvents.cpp PortLink.cpp
    Registration.cpp RouterAutomation.cpp RouterHold.cpp)
# The C interface without the DLL (cmake/ClientLibrary.cmake), for the tools.
add_library(morvane_clientcalls STATIC ${PROJECT_SOURCE_DIR}/client/Exports.cpp)
target_compile_definitions(morvane_clientcalls PUBLIC MORVANE_CLIENT_STATIC)
target_link_libraries(morvane_clientcalls PUBLIC morvane_client)
morvane_precompile(morvane_clientcalls)
morvane_module(instrument USES console testdriver packet win32 SOURCES
    Bootloader.cpp Endpoint.cpp Engine.cpp Output.cpp PipeEndpoint.cpp Script.cpp
    UsbEndpoint.cpp)
# One by one in every tree: a program takes the objects it needs, and with them what they import.
set_target_properties(morvane_console morvane_client morvane_instrument PROPERTIES UNITY_BUILD OFF)
set(MORVANE_KIT_LIBRARIES morvane_client morvane_instrument morvane_console)

# RouterLog has its portable half and what asks Windows in folders of their own, which its tests link too.
include(RouterLog)
set(routerlog_windows_sources
    Activate.cpp FileFacts.cpp InstrumentFacts.cpp LogTail.cpp ProgramFacts.cpp RegistrationFacts.cpp
    RouterSettings.cpp SettingsFacts.cpp SharedFile.cpp)
list(TRANSFORM routerlog_windows_sources PREPEND ${PROJECT_SOURCE_DIR}/tools/RouterLog/pc/)
add_library(morvane_routerlog STATIC ${MORVANE_ROUTERLOG_SOURCES} ${routerlog_windows_sources})
target_link_libraries(morvane_routerlog PUBLIC morvane_console morvane_usb version)
morvane_precompile(morvane_routerlog)

# morvane_tool(<name> LIBRARIES library... SOURCES file...): a program in tools/<name>, with a resource script of its name.
function(morvane_tool name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    list(TRANSFORM arg_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/tools/${name}/)
    set(resources ${PROJECT_SOURCE_DIR}/tools/${name}/${name}.rc)
    morvane_add_console_program(${name} SOURCES ${arg_SOURCES} ${resources} LIBRARIES ${arg_LIBRARIES})
    set_source_files_properties(${resources} PROPERTIES OBJECT_DEPENDS "${MORVANE_VERSION_PARTS}")
    morvane_release(${name})
endfunction()

morvane_tool(RouterProbe LIBRARIES morvane_clientcalls morvane_console SOURCES
    ListenJob.cpp Main.cpp MeasureJob.cpp PortJob.cpp PortWorker.cpp Probe.cpp ProbeHelp.cpp ProbeOptions.cpp
    Refusal.cpp RoundTrips.cpp RouterWatch.cpp SendJob.cpp)
morvane_module(playinstrument FOLDER tools/PlayInstrument USES instrument console win32 SOURCES PlayProgram.cpp)
morvane_tool(InstrumentSimulator LIBRARIES morvane_playinstrument SOURCES Main.cpp)
morvane_tool(InstrumentBus LIBRARIES morvane_playinstrument SOURCES Main.cpp)
morvane_tool(RouterLog LIBRARIES morvane_routerlog SOURCES
    BundleCommand.cpp DoctorCommand.cpp ExplainCommand.cpp ExportCommand.cpp FollowCommand.cpp Help.cpp Main.cpp)
add_dependencies(InstrumentBus MorvaneTestInstrument)
if(MORVANE_CHECKED)
    # Its portable half has the sanitizers of the native tree; no test of this one runs it.
    set_target_properties(RouterLog morvane_routerlog PROPERTIES EXCLUDE_FROM_ALL ON)
endif()
