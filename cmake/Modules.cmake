# The modules as static libraries, the program, and the tools.

# What Windows itself provides.
add_library(morvane_system INTERFACE)
target_link_libraries(morvane_system INTERFACE
    ole32 oleaut32 uuid advapi32 user32 gdi32 shell32 comctl32 setupapi)

# The generated automation header comes from widl and is not held to our warnings.
add_library(morvane_generated INTERFACE)
target_include_directories(morvane_generated SYSTEM INTERFACE ${MORVANE_GENERATED_DIR})
add_dependencies(morvane_generated morvane_typelib)

# In the checked tree windows.h is read once for all modules, which halves its build. In the release tree every
# file reads its own headers, so a missing #include is found there; and GCC 12, optimising, takes inlined code of
# precompiled headers for the file's own and warns about what it would not mention in a system header.
function(morvane_precompile target)
    if(NOT MORVANE_CHECKED)
        return()
    elseif(target STREQUAL "morvane_win32")
        target_precompile_headers(${target} PRIVATE <windows.h> <functional> <memory> <string> <vector>)
    else()
        target_precompile_headers(${target} REUSE_FROM morvane_win32)
    endif()
endfunction()

# morvane_module(<name> [FOLDER folder] [USES module...] SOURCES file...): one module, its files in a folder of its name or
# in FOLDER. What it uses is what cmake/check-includes lets it include, so the linker needs no second look at a library.
function(morvane_module name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "USES;SOURCES")
    if(NOT arg_FOLDER)
        set(arg_FOLDER ${name})
    endif()
    list(TRANSFORM arg_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/${arg_FOLDER}/)
    add_library(morvane_${name} STATIC ${arg_SOURCES})
    list(TRANSFORM arg_USES PREPEND morvane_)
    target_link_libraries(morvane_${name} PUBLIC morvane_flags morvane_generated ${arg_USES} morvane_system)
    morvane_precompile(morvane_${name})
endfunction()

morvane_module(win32 SOURCES
    ModulePath.cpp OverlappedOperation.cpp OwnUserSecurity.cpp RegistryKey.cpp Text.cpp Thread.cpp
    TimerResolution.cpp)
morvane_module(trace SOURCES
    PacketText.cpp Trace.cpp)
morvane_module(packet FOLDER ports/packet USES win32 SOURCES
    CCommandQueue.cpp CSerialPortCommand.cpp WireFormat.cpp)
morvane_module(usb USES trace win32 SOURCES
    BulkTransfer.cpp CCyUSBEndPoint.cpp Descriptors.cpp DeviceControl.cpp DeviceInterfaces.cpp EndPointKinds.cpp
    Transfer.cpp UsbDevice.cpp UsbDeviceIdentity.cpp)
morvane_module(firmware USES packet trace win32 SOURCES
    ChunkPlan.cpp DownloadDialogue.cpp FirmwareDownloader.cpp FirmwareFile.cpp)
morvane_module(transport USES firmware usb packet trace win32 SOURCES
    CCyUSBDriver.cpp CommandTexts.cpp CommandThread.cpp Outgoing.cpp ReadThreads.cpp Replies.cpp
    SimulationLink.cpp SkippedPacketLog.cpp UsbLink.cpp)
morvane_module(ports USES transport packet trace win32 SOURCES
    CCDevicePortPipe.cpp PipeServer.cpp PipeWorker.cpp ReplyWriter.cpp RequestReader.cpp)
morvane_module(diag USES trace win32 SOURCES
    CDebugOption.cpp CDebugOptionDlg.cpp CDebugThread.cpp CDebugWindow.cpp DebugList.cpp LogFile.cpp TimeStamp.cpp
    TraceQueue.cpp TracerWorker.cpp TrayIcon.cpp)
morvane_module(host USES diag ports transport firmware usb packet trace win32 SOURCES
    BoundedStep.cpp CMorvanePortRouterModule.cpp CMorvaneUSBRouter.cpp CommandLine.cpp ComServer.cpp
    ConfigurationStore.cpp HostWatch.cpp PortTable.cpp Registration.cpp ScriptParser.cpp TraceFrontEnd.cpp
    TraceOptionsTable.cpp)

# Resources of the program: also linked into the test programs that need its dialogs and scripts.
set(resource_script ${PROJECT_SOURCE_DIR}/host/MorvanePortRouter.rc)
set(resource_parts
    AppId.rgs Interface.rgs MorvanePortRouter.manifest MorvaneUSBRouter.rgs TypeLibrary.rgs Resource.h)
list(TRANSFORM resource_parts PREPEND ${PROJECT_SOURCE_DIR}/host/)
add_library(morvane_resources OBJECT ${resource_script})
target_link_libraries(morvane_resources PRIVATE morvane_flags)
target_include_directories(morvane_resources PRIVATE ${MORVANE_GENERATED_DIR} ${PROJECT_SOURCE_DIR}/host)
set_source_files_properties(${resource_script} PROPERTIES
    OBJECT_DEPENDS "${resource_parts};${MORVANE_TYPELIB_OUTPUTS};${MORVANE_GENERATED_DIR}/MorvanePortRouter.manifest;${MORVANE_VERSION_PARTS}")
add_dependencies(morvane_resources morvane_typelib)

# morvane_add_resources(target)
function(morvane_add_resources target)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:morvane_resources>)
endfunction()

add_executable(MorvanePortRouter WIN32 ${PROJECT_SOURCE_DIR}/host/Main.cpp)
target_link_options(MorvanePortRouter PRIVATE -municode)
morvane_add_resources(MorvanePortRouter)
target_link_libraries(MorvanePortRouter PRIVATE morvane_host)
morvane_release(MorvanePortRouter)

include(Tools)
