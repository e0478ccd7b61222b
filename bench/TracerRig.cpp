#include "bench/TracerRig.h"

#include "trace/Trace.h"

#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

std::wstring g_program; // written before the tracer starts, read by its thread

std::optional<std::wstring> Program()
{
    return g_program;
}

CDebugThread::Owner NewTracer(const std::filesystem::path& folder)
{
    g_program = (folder / L"bench.exe").wstring();
    CDebugThread::Surroundings surroundings;
    surroundings.ProgramPath = &Program;
    return CDebugThread::Create(surroundings);
}

DebugOptionsMap RouterChannelOnly()
{
    CDebugOption option(trace::RouterChannel);
    option.SetMask(0xFFFF0000);
    DebugOptionsMap options;
    options.emplace(option.DeviceNumber, option);
    return options;
}

} // namespace

TracerRig::TracerRig() : m_tracer(NewTracer(m_folder.Path())), m_output(*m_tracer), m_frontEnd(m_output)
{
    m_frontEnd.Publish(RouterChannelOnly());
    m_tracer->SetOptions(0xFFFF0000, L"Bench.log", 1000, true);
    if (!m_tracer->Start()) {
        throw std::runtime_error("the tracer does not start");
    }
}

std::size_t TracerRig::LinesWith(const std::string& text) const
{
    std::ifstream log(m_folder.Path() / L"Log" / L"Bench.log", std::ios::binary);
    std::size_t count = 0;
    for (std::string line; std::getline(log, line);) {
        count += line.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

} // namespace bench
