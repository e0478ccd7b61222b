# Sources without <windows.h>, compiled a second time natively with the sanitizers and fuzzed there.
morvane_sources(MORVANE_PORTABLE_SOURCES
    ports/packet/WireFormat.cpp
    firmware/ChunkPlan.cpp
    firmware/DownloadDialogue.cpp
    usb/Descriptors.cpp
    tools/common/Instrument*.cpp
    tools/common/CommandLine.cpp
    tools/common/HexDump.cpp
    tools/common/RoundTrips.cpp
    tools/common/SequencedPayload.cpp)
