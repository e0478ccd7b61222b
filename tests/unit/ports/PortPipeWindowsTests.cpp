// What Windows may answer to the calls of a port, and what the port says to Windows.
#include "tests/support/PatchedImport.h"
#include "tests/unit/ports/PortPipeFixture.h"

#include <process.h>

#include <atomic>
#include <stdexcept>
#include <string>

namespace {

using support::PatchedImport;

/// Replaced functions are free functions: what they share with the test stands here.
const PatchedImport* replaced = nullptr;

class PortPipeOnWindows : public PortPipe
{
protected:
    ~PortPipeOnWindows() override
    {
        client.Close();
        port.reset(); // before the replacement
        replaced = nullptr;
    }
};

struct Creation
{
    std::string name;
    DWORD openMode = 0;
    DWORD pipeMode = 0;
    DWORD instances = 0;
    DWORD outSize = 0;
    DWORD inSize = 0;
    DWORD timeout = 1;
    bool hasSecurity = false;
};
Creation created;
std::atomic<bool> isCreated{false};

HANDLE WINAPI RecordCreation(LPCSTR name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outSize,
                             DWORD inSize, DWORD timeout, LPSECURITY_ATTRIBUTES security)
{
    if (!isCreated) {
        created = {name, openMode, pipeMode, instances, outSize, inSize, timeout, security != nullptr};
        isCreated = true;
    }
    return replaced->Original<decltype(::CreateNamedPipeA)>()(name, openMode, pipeMode, instances, outSize, inSize,
                                                              timeout, security);
}

class PortPipeCreation : public PortPipeOnWindows
{
protected:
    PortPipeCreation()
    {
        isCreated = false;
        replaced = &m_patch;
    }
    ~PortPipeCreation() override { port.reset(); }

    const PatchedImport m_patch{"CreateNamedPipeA", reinterpret_cast<void*>(RecordCreation)};
};

TEST_F(PortPipeCreation, HasTheParametersThatClientsRelyOn)
{
    Make(1000, 2000);
    ASSERT_TRUE(support::WaitUntil([] { return isCreated.load(); }));
    EXPECT_EQ(created.name, fullName);
    EXPECT_EQ(created.openMode, 0x40000003u);
    EXPECT_EQ(created.pipeMode, 4u);
    EXPECT_EQ(created.instances, 1u);
    EXPECT_EQ(created.outSize, 1000u) << "the read buffer size is the buffer towards the client";
    EXPECT_EQ(created.inSize, 2000u);
    EXPECT_EQ(created.timeout, 0u);
    EXPECT_FALSE(created.hasSecurity);
}

TEST_F(PortPipeCreation, RestrictedRejectsRemoteClientsAndHasSecurity)
{
    Make(1000, 2000, {.restrictPipe = true});
    ASSERT_TRUE(support::WaitUntil([] { return isCreated.load(); }));
    EXPECT_EQ(created.pipeMode, 4u | PIPE_REJECT_REMOTE_CLIENTS);
    EXPECT_TRUE(created.hasSecurity);
    CompleteAtOnce();
    Connect();
    ASSERT_TRUE(client.Write("own user"));
    EXPECT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
}

BOOL WINAPI RefuseToken(HANDLE, DWORD, PHANDLE)
{
    ::SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

TEST_F(PortPipeCreation, RestrictedIsNotMadeWithoutItsSecurity)
{
    const PatchedImport patch("OpenProcessToken", reinterpret_cast<void*>(RefuseToken));
    Make(1000, 2000, {.restrictPipe = true});
    const std::string text = "(" + fullName + ") Pipe cannot be restricted (5), not created";
    ASSERT_TRUE(RecordingTrace::WaitForLine(text));
    EXPECT_TRUE(Traced(text, 3, 0x40004));
    EXPECT_FALSE(isCreated);
    port.reset();
}

TEST_F(PortPipeCreation, ControlCharactersAreShownInTracesOnly)
{
    const std::string odd = name + "\n\x1F";
    port = std::make_unique<InspectedPort>(&transport, PortAddress{3, 1}, odd, 64, 64);
    ASSERT_TRUE(support::WaitUntil([] { return isCreated.load(); }));
    EXPECT_EQ(created.name, "\\\\.\\pipe\\" + odd);
    EXPECT_TRUE(RecordingTrace::WaitForLine("Started (" + fullName + "\\x0A\\x1F)"));
    ASSERT_TRUE(RecordingTrace::WaitForLine("Pipe Created"));
    for (const std::string& line : RecordingTrace::Texts()) {
        EXPECT_EQ(line.find('\n'), std::string::npos) << line;
    }
}

TEST_F(PortPipe, AClientThatComesBeforeTheConnectIsServed)
{
    // The line about the created pipe stands between creating it and waiting for the client.
    bool opened = false;
    RecordingTrace::OnLine([&](const std::string& line) {
        if (!opened && line.find("Pipe Created 0 th time") != std::string::npos) {
            opened = client.TryOpen(name) && client.Write("early");
        }
    });
    Make();
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
    EXPECT_TRUE(opened);
    EXPECT_TRUE(port->IsPipeConnected());
    EXPECT_EQ(RecordingTrace::Count("CCDevicePortPipe::PipeProcessThread (" + fullName + ") Connected"), 1u);
    EXPECT_EQ(RecordingTrace::Count("(" + fullName + ") Pipe connected"), 1u);
    EXPECT_EQ(RecordingTrace::Count("NEVER received"), 0u);
    SendToClient("welcome");
    EXPECT_EQ(client.Read(), "welcome");
    port.reset(); // its lines look at `opened`
}

BOOL WINAPI RefuseConnect(HANDLE, LPOVERLAPPED)
{
    ::SetLastError(ERROR_NO_SYSTEM_RESOURCES);
    return FALSE;
}

TEST_F(PortPipeOnWindows, AMissingConnectEventIsMadeUpForByAMessage)
{
    const PatchedImport patch("ConnectNamedPipe", reinterpret_cast<void*>(RefuseConnect));
    bool opened = false;
    RecordingTrace::OnLine([&](const std::string& line) {
        if (!opened && line.find("Pipe Created 0 th time") != std::string::npos) {
            opened = client.TryOpen(name) && client.Write("early");
        }
    });
    Make();
    const std::string text =
        "CCDevicePortPipe::PipeProcessThread (" + fullName + ") Pipe connect event NEVER received, compensating";
    ASSERT_TRUE(RecordingTrace::WaitForLine(text));
    EXPECT_TRUE(Traced(text, 3, 0x40004));
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == 1; }));
    EXPECT_TRUE(port->IsPipeConnected());
    SendToClient("welcome");
    EXPECT_EQ(client.Read(), "welcome");
    client.Close();
    port.reset();
}

BOOL WINAPI AbortConnect(HANDLE pipe, LPOVERLAPPED overlapped)
{
    const BOOL done = replaced->Original<decltype(::ConnectNamedPipe)>()(pipe, overlapped);
    const DWORD error = ::GetLastError();
    ::CancelIoEx(pipe, overlapped);
    ::SetLastError(error);
    return done;
}

TEST_F(PortPipeOnWindows, AConnectThatFailsIsABrokenOpen)
{
    const PatchedImport patch("ConnectNamedPipe", reinterpret_cast<void*>(AbortConnect));
    replaced = &patch;
    Make();
    const std::string text = "CCDevicePortPipe::PipeProcessThread (" + fullName + ") Open Pipe Broken (995)";
    EXPECT_TRUE(RecordingTrace::WaitForLine(text));
    EXPECT_TRUE(Traced(text, 3, 0x40004));
    EXPECT_TRUE(RecordingTrace::WaitForLine("Pipe Created 1 th time"));
    port.reset();
}

BOOL WINAPI RefuseWrite(HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED overlapped)
{
    overlapped->Internal = static_cast<ULONG_PTR>(STATUS_PENDING); // as a refusal may leave it
    ::ResetEvent(overlapped->hEvent);
    ::SetLastError(ERROR_NO_DATA);
    return FALSE;
}

TEST_F(PortPipeOnWindows, AWriteThatIsRefusedIsABrokenWrite)
{
    Make();
    Connect();
    const PatchedImport patch("WriteFile", reinterpret_cast<void*>(RefuseWrite));
    SendToClient("lost");
    const std::string text = "CCDevicePortPipe::PipeProcessThread (" + fullName + ") Write Pipe Broken (232)";
    EXPECT_TRUE(RecordingTrace::WaitForLine(text));
    EXPECT_TRUE(Traced(text, 3, 0x40004));
    EXPECT_TRUE(client.WaitForBreak());
    port.reset();
    EXPECT_EQ(RecordingTrace::Count("Write Pipe Broken"), 1u);
}

/// Leaves an operation that was done at once as the documentation allows: no event, a record that says "pending".
BOOL LeaveNoTrace(BOOL done, LPOVERLAPPED overlapped)
{
    if (done) {
        overlapped->Internal = static_cast<ULONG_PTR>(STATUS_PENDING);
        overlapped->InternalHigh = 0;
        ::ResetEvent(overlapped->hEvent);
    }
    return done;
}

const PatchedImport* replacedWrite = nullptr;

BOOL WINAPI SilentRead(HANDLE file, LPVOID buffer, DWORD length, LPDWORD count, LPOVERLAPPED overlapped)
{
    return LeaveNoTrace(replaced->Original<decltype(::ReadFile)>()(file, buffer, length, count, overlapped),
                        overlapped);
}

BOOL WINAPI SilentWrite(HANDLE file, LPCVOID data, DWORD length, LPDWORD count, LPOVERLAPPED overlapped)
{
    return LeaveNoTrace(replacedWrite->Original<decltype(::WriteFile)>()(file, data, length, count, overlapped),
                        overlapped);
}

TEST_F(PortPipeOnWindows, WhatIsDoneAtOnceNeedsNoEventAndNoRecord)
{
    constexpr int Packets = 20;
    Make(16);
    CompleteAtOnce();
    Connect();
    const PatchedImport patchedRead("ReadFile", reinterpret_cast<void*>(SilentRead));
    const PatchedImport patchedWrite("WriteFile", reinterpret_cast<void*>(SilentWrite));
    replaced = &patchedRead;
    replacedWrite = &patchedWrite;
    for (int packet = 0; packet < Packets; ++packet) {
        // The client's own operations go the same way.
        ASSERT_TRUE(client.Write(std::string(16, static_cast<char>('a' + packet))));
        SendToClient(std::string(5, static_cast<char>('A' + packet)));
    }
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() == Packets; }));
    for (int packet = 0; packet < Packets; ++packet) {
        ASSERT_TRUE(support::WaitUntil([&] { return client.Available() > 0; }));
        EXPECT_EQ(client.Read(), std::string(5, static_cast<char>('A' + packet)));
        EXPECT_EQ(transport.TheSent()[static_cast<std::size_t>(packet)].payload,
                  std::string(16, static_cast<char>('a' + packet)));
    }
    EXPECT_EQ(RecordingTrace::Count("Broken"), 0u);
    client.Close();
    port.reset();
}

std::uintptr_t __cdecl RefuseThread(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*)
{
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

TEST_F(PortPipeOnWindows, AThreadThatCannotStartIsTraced)
{
    const PatchedImport patch("_beginthreadex", reinterpret_cast<void*>(RefuseThread));
    Make();
    EXPECT_TRUE(Traced("CCDevicePortPipe::PipeProcessThread could not be started (8)", 3, 0x40004));
    port.reset();
}

HANDLE WINAPI RefuseEvent(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR)
{
    return nullptr;
}

TEST_F(PortPipeOnWindows, AWorkerWithoutEventsIsTraced)
{
    RecordingTrace::OnLine([](const std::string&) {});
    Make();
    port.reset();
    RecordingTrace::Clear();
    const PatchedImport patch("CreateEventW", reinterpret_cast<void*>(RefuseEvent));
    Make();
    const std::string text =
        "CCDevicePortPipe::PipeProcessThread has no events, port not served (" + fullName + ")";
    EXPECT_TRUE(RecordingTrace::WaitForLine(text));
    EXPECT_TRUE(Traced(text, 3, 0x40004));
    port.reset();
}

TEST_F(PortPipe, AWorkerThatFailsIsTracedAndNothingIsQueuedForIt)
{
    Make();
    transport.OnSend([] { throw std::runtime_error("thrown by the test"); });
    Connect();
    ASSERT_TRUE(client.Write("request"));
    const std::string text = "CCDevicePortPipe::PipeProcessThread failed, port not served";
    ASSERT_TRUE(RecordingTrace::WaitForLine(text));
    EXPECT_TRUE(Traced(text, 3, 0x40004));
    EXPECT_TRUE(client.WaitForBreak());
    SendToClient("for a client that is gone");
    EXPECT_EQ(port->Queue().GetCount(), 0);
    EXPECT_TRUE(Traced("DEV<-PCR[03,01] ** NO_CONNECTION **", 3, 0x20002));
}

} // namespace
