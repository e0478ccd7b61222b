#include "RouterWatch.h"

#include "console/Console.h"

#include <utility>

namespace {

std::string EndTextOf(DWORD code)
{
    return "router ended with code " + std::to_string(static_cast<long>(code));
}

} // namespace

void RouterWatch::Find()
{
    const win32::SectionScope scope(m_lock);
    if (!m_process.IsFound()) {
        m_process.Find();
    }
}

HANDLE RouterWatch::ProcessHandle()
{
    const win32::SectionScope scope(m_lock);
    return m_process.Get();
}

std::string RouterWatch::EndText()
{
    const win32::SectionScope scope(m_lock);
    const auto code = m_process.WaitForEnd(0);
    return code ? EndTextOf(*code) : "router still runs";
}

void RouterWatch::Forget()
{
    const win32::SectionScope scope(m_lock);
    m_process = RouterProcess();
}

std::optional<ProbeFault> RouterWatch::WaitForEnd(std::chrono::milliseconds timeout)
{
    RouterProcess process;
    {
        const win32::SectionScope scope(m_lock);
        process = std::exchange(m_process, RouterProcess());
    }
    if (!process.IsFound()) {
        return ProbeFault{ExitCode::RouterStays, "the router's process was not found"};
    }
    const auto start = console::Now();
    const auto code = process.WaitForEnd(static_cast<DWORD>(timeout.count()));
    if (!code) {
        return ProbeFault{ExitCode::RouterStays,
                          "the router still runs " + std::to_string(timeout.count()) + " ms after its release"};
    }
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(console::Now() - start);
    console::Say(EndTextOf(*code) + " after " + std::to_string(waited.count()) + " ms");
    return *code == 0 ? std::nullopt : std::optional(ProbeFault{ExitCode::RouterFailed, EndTextOf(*code)});
}
