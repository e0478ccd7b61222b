# RouterLog's portable half: everything but what asks Windows. The native trees compile it once more for its tests.
set(MORVANE_ROUTERLOG_SOURCES
    log/DumpText.cpp log/LineGrammar.cpp log/LineReader.cpp log/LogFiles.cpp log/LogTime.cpp log/Payloads.cpp
    log/TraceFormats.cpp
    analysis/Account.cpp analysis/ConnectionStory.cpp analysis/FirmwareStory.cpp analysis/Histogram.cpp
    analysis/Incident.cpp analysis/PortStory.cpp analysis/RouterStory.cpp analysis/SkippedPackets.cpp
    analysis/Timeline.cpp
    report/Findings.cpp report/HtmlReport.cpp report/JsonReport.cpp report/JsonWriter.cpp report/LineTexts.cpp
    report/LiveView.cpp report/Sentences.cpp report/Svg.cpp report/TextReport.cpp
    capture/PacketExport.cpp capture/PcapngWriter.cpp
    doctor/Diagnosis.cpp
    pack/Deflate.cpp pack/ZipWriter.cpp)
list(TRANSFORM MORVANE_ROUTERLOG_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/tools/RouterLog/)
