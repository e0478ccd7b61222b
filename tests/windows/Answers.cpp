#include "tests/windows/Answers.h"

#include "tests/support/UniqueName.h"
#include "tests/support/WaitUntil.h"

#include <stdexcept>
#include <utility>

namespace windowscheck {

namespace {

win32::FileHandle CreateEnd(const std::wstring& path, DWORD instances)
{
    return win32::FileHandle(::CreateNamedPipeW(path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                                PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE | PIPE_WAIT, instances,
                                                AnsweringPipe::BufferSize, AnsweringPipe::BufferSize, 0, nullptr));
}

win32::FileHandle OpenEnd(const std::wstring& path)
{
    return win32::FileHandle(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                           FILE_FLAG_OVERLAPPED, nullptr));
}

} // namespace

std::vector<Answer> AllAnswers()
{
    std::vector<Answer> all;
    for (const auto& part : {InstanceAnswers(), ReadAnswers(), WriteAnswers(), WaitAnswers(), FileAnswers()}) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::string Error(DWORD error)
{
    return "error " + std::to_string(error);
}

std::string Bytes(DWORD count)
{
    return std::to_string(count) + " bytes";
}

std::string Done(BOOL done)
{
    return done ? "done" : Error(::GetLastError());
}

std::string Begun(BOOL done, DWORD count, HANDLE file, Record& record)
{
    const DWORD error = ::GetLastError();
    if (done) {
        return Bytes(count);
    }
    if (error != ERROR_IO_PENDING && error != ERROR_MORE_DATA) {
        return Error(error) + (record.event.IsSet() ? ", event set" : ", event unset");
    }
    // Also a request that is complete may be said to be pending.
    if (!::GetOverlappedResult(file, &record.overlapped, &count, FALSE) && ::GetLastError() == ERROR_IO_INCOMPLETE)
    {
        return "pending";
    }
    return Ended(file, record);
}

std::string Ended(HANDLE file, Record& record)
{
    DWORD count = 0;
    if (!support::WaitFor(record.event.Get())) {
        ::CancelIoEx(file, &record.overlapped);
        ::GetOverlappedResult(file, &record.overlapped, &count, TRUE);
        return "no end";
    }
    return ::GetOverlappedResult(file, &record.overlapped, &count, TRUE) ? Bytes(count) : Error(::GetLastError());
}

AnsweringPipe::AnsweringPipe(DWORD instances)
    : m_path(support::PipePath(support::UniqueName(L"Answers"))), m_server(CreateEnd(m_path, instances))
{
    if (!m_server) {
        throw std::runtime_error("no pipe, " + Error(::GetLastError()));
    }
}

std::string AnsweringPipe::Open()
{
    m_client = OpenEnd(m_path);
    return Done(m_client ? TRUE : FALSE);
}

std::string AnsweringPipe::CreateAnother(DWORD instances)
{
    win32::FileHandle server = CreateEnd(m_path, instances);
    const std::string answer = Done(server ? TRUE : FALSE);
    m_others.push_back(std::move(server));
    return answer;
}

std::string AnsweringPipe::OpenAnother()
{
    win32::FileHandle client = OpenEnd(m_path);
    const std::string answer = Done(client ? TRUE : FALSE);
    m_others.push_back(std::move(client));
    return answer;
}

void AnsweringPipe::ReadMessages() const
{
    DWORD mode = PIPE_READMODE_MESSAGE;
    ::SetNamedPipeHandleState(m_client.Get(), &mode, nullptr, nullptr);
}

std::string WriteTo(HANDLE end, const std::string& text)
{
    Record record;
    DWORD count = 0;
    const BOOL done = ::WriteFile(end, text.data(), static_cast<DWORD>(text.size()), &count, &record.overlapped);
    const std::string begun = Begun(done, count, end, record);
    return begun == "pending" ? Ended(end, record) : begun;
}

std::string ReadFrom(HANDLE end, DWORD size)
{
    Record record;
    std::string buffer(size, '?');
    DWORD count = 0;
    const BOOL done = ::ReadFile(end, buffer.data(), size, &count, &record.overlapped);
    std::string answer = Begun(done, count, end, record);
    if (answer == "pending") {
        answer = Ended(end, record);
    }
    std::string text(1, '"');
    text += buffer.substr(0, buffer.find('?'));
    text += '"';
    if (answer == Error(ERROR_MORE_DATA)) {
        return answer + " with " + text;
    }
    return answer.find("bytes") == std::string::npos ? answer : text;
}

} // namespace windowscheck
