#include "tests/support/ChildProcess.h"

#include "tests/support/UniqueName.h"
#include "win32/ModulePath.h"

#include <fstream>
#include <iterator>

namespace support {

ChildProcess::ChildProcess(const std::filesystem::path& program, const std::wstring& arguments)
    : m_output(std::filesystem::temp_directory_path() / UniqueName(L"output")),
      m_job(::CreateJobObjectW(nullptr, nullptr))
{
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    ::SetInformationJobObject(m_job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);

    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    const win32::FileHandle output(::CreateFileW(m_output.c_str(), GENERIC_WRITE,
                                                 FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable, CREATE_ALWAYS,
                                                 FILE_ATTRIBUTE_NORMAL, nullptr));
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = output.Get();
    start.hStdError = output.Get();
    PROCESS_INFORMATION process{};
    std::wstring commandLine(1, L'"');
    commandLine.append(program.wstring()).append(L"\" ").append(arguments);
    const auto begin = [&] {
        return ::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED,
                                nullptr, program.parent_path().c_str(), &start, &process) != FALSE;
    };
    // Wine refuses one start in some thousand with this error while other threads start programs, too.
    if (!begin() && (::GetLastError() != ERROR_INTERNAL_ERROR || !begin())) {
        return;
    }
    m_process.Reset(process.hProcess);
    m_id = process.dwProcessId;
    ::AssignProcessToJobObject(m_job.Get(), m_process.Get());
    const win32::KernelHandle thread(process.hThread);
    ::ResumeThread(thread.Get());
}

ChildProcess::~ChildProcess()
{
    if (m_process) {
        ::TerminateJobObject(m_job.Get(), 99);
        Kill();
        WaitForExit();
    }
    std::error_code ignored;
    std::filesystem::remove(m_output, ignored);
}

bool ChildProcess::Running() const noexcept
{
    return m_process && ::WaitForSingleObject(m_process.Get(), 0) == WAIT_TIMEOUT;
}

std::optional<DWORD> ChildProcess::WaitForExit(std::chrono::milliseconds timeout) const
{
    DWORD code = 0;
    if (!m_process || !WaitFor(m_process.Get(), timeout) || !::GetExitCodeProcess(m_process.Get(), &code)) {
        return std::nullopt;
    }
    return code;
}

void ChildProcess::Kill() const noexcept
{
    ::TerminateProcess(m_process.Get(), 99);
}

std::string ChildProcess::Output() const
{
    std::ifstream in(m_output, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::filesystem::path ProgramFolder()
{
    return win32::FolderOf(win32::ModulePath().value_or(std::wstring()));
}

} // namespace support
