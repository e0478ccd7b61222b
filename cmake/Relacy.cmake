# Models of what lies below the calls, checked with relacy: the product's own sources over stand-ins for Windows, in
# every order of their threads. Debian's relacy-dev.

set(mutants ${PROJECT_BINARY_DIR}/mutants)

# A copy of a class of the product under another name and with one change, which must kill it.
#   morvane_mutant(FILES <file>... NAME <name> AS <new name> FROM <text> TO <text>)
# FROM has to stand in the files exactly once: a mutant whose place has changed is restated, not lost.
function(morvane_mutant)
    cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME;AS;FROM;TO" "FILES")
    set(changed 0)
    set(copies)
    foreach(file ${arg_FILES})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${file})
        file(READ ${PROJECT_SOURCE_DIR}/${file} text)
        string(FIND "${text}" "${arg_FROM}" first)
        if(NOT first EQUAL -1)
            string(FIND "${text}" "${arg_FROM}" last REVERSE)
            if(NOT first EQUAL last)
                message(FATAL_ERROR "${arg_AS}: its place stands in ${file} more than once")
            endif()
            math(EXPR changed "${changed} + 1")
            string(REPLACE "${arg_FROM}" "${arg_TO}" text "${text}")
        endif()
        string(REPLACE "${arg_NAME}" "${arg_AS}" text "${text}")
        string(REPLACE "${arg_NAME}" "${arg_AS}" copy ${file})
        file(CONFIGURE OUTPUT ${mutants}/${copy} CONTENT "${text}" @ONLY)
        if(copy MATCHES "\\.cpp$")
            list(APPEND copies ${mutants}/${copy})
        endif()
    endforeach()
    if(NOT changed EQUAL 1)
        message(FATAL_ERROR "${arg_AS}: its place stands in ${changed} of: ${arg_FILES}")
    endif()
    set(mutant_sources ${mutant_sources} ${copies} PARENT_SCOPE)
endfunction()

set(on_demand FILES win32/OnDemandEvent.h NAME OnDemandEvent)
morvane_mutant(${on_demand} AS OnDemandEventM1
    FROM "        m_isArmed.store(true);
        return m_isSet.load();"
    TO "        const bool isSet = m_isSet.load();
        m_isArmed.store(true);
        return isSet;")
morvane_mutant(${on_demand} AS OnDemandEventM2
    FROM "        m_isSet.store(true);
        if (m_isArmed.exchange(false)) {
            m_event.Set();
        }"
    TO "        const bool isArmed = m_isArmed.exchange(false);
        m_isSet.store(true);
        if (isArmed) {
            m_event.Set();
        }")
morvane_mutant(${on_demand} AS OnDemandEventM3
    FROM "m_isSet.exchange(false)" TO "m_isSet.exchange(false, std::memory_order_relaxed)")

set(mirrored FILES win32/MirroredEvent.h NAME MirroredEvent)
morvane_mutant(${mirrored} AS MirroredEventM1
    FROM "        m_isSet.store(true);
        m_event.Set();"
    TO "        m_event.Set();
        m_isSet.store(true);")
morvane_mutant(${mirrored} AS MirroredEventM2
    FROM "        m_event.Reset();
        m_isSet.store(false);"
    TO "        m_isSet.store(false);
        m_event.Reset();")
morvane_mutant(${mirrored} AS MirroredEventM3
    FROM "Event::Kind::ManualReset" TO "Event::Kind::AutoReset")

set(queue FILES ports/packet/CCommandQueue.h ports/packet/CCommandQueue.cpp NAME CCommandQueue)
morvane_mutant(${queue} AS CCommandQueueM1
    FROM "    const CCriticalSectionHelper lock(m_Section);
    if (Commands().empty() && m_NotEmpty) {
        m_NotEmpty->Reset();
    }"
    TO "    bool empty = false;
    {
        const CCriticalSectionHelper lock(m_Section);
        empty = Commands().empty();
    }
    if (empty && m_NotEmpty) {
        m_NotEmpty->Reset();
    }")
morvane_mutant(${queue} AS CCommandQueueM2
    FROM "    const CCriticalSectionHelper lock(m_Section);
    if (Commands().empty()) {
        return nullptr;
    }"
    TO "    if (Commands().empty()) {
        return nullptr;
    }")
morvane_mutant(${queue} AS CCommandQueueM3
    FROM "    if (count == 1) {" TO "    if (GetCount() == 1) {")
morvane_mutant(${queue} AS CCommandQueueM4
    FROM "        const CCriticalSectionHelper lock(m_Section);
        m_Interrupted = true;"
    TO "        m_Interrupted = true;")
morvane_mutant(${queue} AS CCommandQueueM5
    FROM "!Commands().empty() || m_Interrupted ||" TO "m_Interrupted ||")
morvane_mutant(${queue} AS CCommandQueueM6
    FROM "!Commands().empty() || m_Interrupted ||" TO "!Commands().empty() ||")

set(trace_table FILES host/TraceOptionsTable.h host/TraceOptionsTable.cpp NAME TraceOptions)
morvane_mutant(${trace_table} AS TraceOptionsM1
    FROM "    Entry& entry = m_entries.emplace_front(device, Pack(options), before);
    list.store(&entry, std::memory_order_release);"
    TO "    Entry& entry = m_entries.emplace_front(device, std::uint64_t{0}, before);
    list.store(&entry, std::memory_order_release);
    entry.options.store(Pack(options), std::memory_order_relaxed);")
morvane_mutant(${trace_table} AS TraceOptionsM2
    FROM "list.store(&entry, std::memory_order_release)" TO "list.store(&entry, std::memory_order_relaxed)")
morvane_mutant(${trace_table} AS TraceOptionsM3
    FROM "Pack(options), before)" TO "Pack(options), nullptr)")

set(port_table FILES host/PortTable.h host/PortTable.cpp NAME PortTable)
morvane_mutant(${port_table} AS PortTableM1
    FROM "    const win32::SharedScope scope(m_lock);
    CCDevicePortPipe* const pipe = FindLocked(address);
    if (pipe != nullptr && !payload.empty()) {"
    TO "    CCDevicePortPipe* const pipe = FindPort(address);
    if (pipe != nullptr && !payload.empty()) {")
morvane_mutant(${port_table} AS PortTableM2
    FROM "    const win32::ExclusiveScope scope(m_lock);
    const auto found"
    TO "    const win32::SharedScope scope(m_lock);
    const auto found")
morvane_mutant(${port_table} AS PortTableM3
    FROM "        const win32::ExclusiveScope scope(m_lock);
        ports.swap(m_ports);"
    TO "        ports.swap(m_ports);")

set(sources
    CommandQueueModel.cpp Main.cpp MirroredEventModel.cpp OnDemandEventModel.cpp PortTableModel.cpp
    TraceTableModel.cpp)
list(TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/tests/relacy/)
add_executable(relacy_models
    ${sources} ${mutant_sources} ports/packet/CCommandQueue.cpp host/PortTable.cpp host/TraceOptionsTable.cpp)
# Each model names its cases alike.
set_target_properties(relacy_models PROPERTIES UNITY_BUILD OFF)
# The stand-ins come before the product's headers of the same name.
target_include_directories(relacy_models PRIVATE
    ${PROJECT_SOURCE_DIR}/tests/relacy/standin ${mutants} ${PROJECT_SOURCE_DIR})
# Every standard header is included before the names of some are taken, see Relacy.h. The model checker has its own
# stacks, which the sanitizers do not know, and replaces new and delete, but not the sized delete.
target_compile_options(relacy_models PRIVATE -O2 -g0 -w -fno-sized-deallocation)
target_precompile_headers(relacy_models PRIVATE ${PROJECT_SOURCE_DIR}/tests/relacy/Relacy.h)
add_test(NAME ${MORVANE_TEST_PREFIX}relacy_models COMMAND relacy_models)
set_tests_properties(${MORVANE_TEST_PREFIX}relacy_models PROPERTIES LABELS relacy TIMEOUT 240 COST 30)
