#include "bench/Roles.h"

#include "console/Console.h"
#include "tests/support/UniqueName.h"

#include <stdexcept>

namespace bench {

SharedInstrument::SharedInstrument(const std::wstring& name)
    : m_memory(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(InstrumentRecord),
                                    (name + L"-record").c_str())),
      m_record(static_cast<InstrumentRecord*>(
          ::MapViewOfFile(m_memory.Get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(InstrumentRecord)))),
      m_reached(::CreateEventW(nullptr, FALSE, FALSE, (name + L"-reached").c_str()))
{
    if (m_record == nullptr || !m_reached) {
        throw std::runtime_error("no shared memory for the instrument");
    }
}

int PlayRole(const std::vector<std::string>& arguments)
{
    if (arguments.size() != 5) {
        return console::UsageError;
    }
    const auto word = [&](std::size_t at) { return console::Wide(arguments[at]); };
    const RoleCall call{word(1), word(2), word(3), word(4)};
    return call.role == L"bus"      ? PlayBusInstrument(call)
         : call.role == L"pipeline" ? PlayBarePipeline(call)
                                    : PlayInstrument(call);
}

RoleProcess::RoleProcess(const std::wstring& role, const std::wstring& pipe, const std::wstring& other)
    : m_readyName(support::UniqueName(L"BenchReady")),
      m_ready(::CreateEventW(nullptr, TRUE, FALSE, m_readyName.c_str())),
      m_process(support::ProgramFolder() / L"bench.exe",
                L"--role " + role + L" " + m_readyName + L" " + pipe + L" " + other)
{
    if (!support::WaitFor(m_ready.Get())) {
        throw std::runtime_error("a child process does not get ready: " + console::Utf8(role));
    }
}

} // namespace bench
