// What the calls that the core makes have to answer, one row for each state that they meet. The same rows are
// asked of Windows (./windows-kit), of Wine and of the simulated Windows.
#pragma once

#include "win32/Event.h"
#include "win32/Handle.h"

#include <string>
#include <vector>

namespace windowscheck {

struct Answer
{
    const char* name; // of the test
    const char* call; // in which state
    const char* answer;
    const char* page; // the title of Microsoft's page about it
    std::string (*ask)();
    /// Where Wine differs: its answer, and what the page says. Null: no difference.
    const char* onWine = nullptr;
    const char* says = nullptr;
};

std::vector<Answer> AllAnswers();

// The parts of the table.
std::vector<Answer> InstanceAnswers();
std::vector<Answer> ReadAnswers();
std::vector<Answer> WriteAnswers();
std::vector<Answer> WaitAnswers();
std::vector<Answer> FileAnswers();

/// The record of one overlapped request.
struct Record
{
    Record() { overlapped.hEvent = event.Get(); }
    win32::Event event{win32::Event::Kind::ManualReset};
    OVERLAPPED overlapped{};
};

std::string Error(DWORD error);
std::string Bytes(DWORD count);

/// What a start has led to: "pending", "N bytes", "error N", and for a refusal whether it set the event. `done`
/// and `count` are the start's own; called right after it, while GetLastError() is the start's.
std::string Begun(BOOL done, DWORD count, HANDLE file, Record& record);
/// The result of a pending request: "N bytes" or "error N". Waits for it.
std::string Ended(HANDLE file, Record& record);
/// "done", or "error N" by GetLastError().
std::string Done(BOOL done);

/// A pipe as the router makes it: messages, overlapped, read as bytes by the server. Both ends do all they do on
/// the calling thread.
class AnsweringPipe
{
public:
    static constexpr DWORD BufferSize = 4096;

    explicit AnsweringPipe(DWORD instances = 1);

    /// The client's end.
    std::string Open();
    /// Another server's end of the same name, which lasts as long as this object.
    std::string CreateAnother(DWORD instances);
    /// Of those there are with that name.
    std::string OpenAnother();
    /// The client reads whole messages from now on.
    void ReadMessages() const;

    HANDLE Server() const { return m_server.Get(); }
    HANDLE Client() const { return m_client.Get(); }
    void CloseServer() { m_server.Reset(); }
    void CloseClient() { m_client.Reset(); }
    const std::wstring& Path() const { return m_path; }

private:
    std::wstring m_path;
    win32::FileHandle m_server;
    win32::FileHandle m_client;
    std::vector<win32::FileHandle> m_others;
};

/// One whole request each, its start and its result: "N bytes" or "error N".
std::string WriteTo(HANDLE end, const std::string& text);
/// The text that was read, or "error N"; with error 234 both.
std::string ReadFrom(HANDLE end, DWORD size = 64);

} // namespace windowscheck
