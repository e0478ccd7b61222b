# Sources without <windows.h>, compiled a second time natively with the sanitizers and fuzzed there.
set(MORVANE_PORTABLE_SOURCES
    ports/packet/WireFormat.cpp
    firmware/ChunkPlan.cpp
    firmware/DownloadDialogue.cpp
    host/ScriptParser.cpp
    trace/PacketText.cpp
    usb/Descriptors.cpp
    console/CommandLine.cpp
    console/HexDump.cpp
    console/TypedBytes.cpp
    instrument/Bootloader.cpp
    instrument/Engine.cpp
    instrument/Output.cpp
    instrument/Script.cpp
    tools/RouterProbe/RoundTrips.cpp)
list(TRANSFORM MORVANE_PORTABLE_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/)
