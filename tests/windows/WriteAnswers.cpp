// Writing to a pipe, and waiting until it is read.
#include "tests/support/WaitUntil.h"
#include "tests/windows/Answers.h"
#include "win32/Thread.h"

#include <chrono>
#include <functional>

namespace windowscheck {

namespace {

constexpr const char* WritePage = "WriteFile function";
constexpr const char* FlushPage = "FlushFileBuffers function";
/// More than any Windows makes of the size that was asked for.
constexpr DWORD Much = 16 * AnsweringPipe::BufferSize;

std::string WriteToAListeningOne()
{
    const AnsweringPipe pipe;
    return WriteTo(pipe.Server(), "12345");
}

std::string WriteWithSpace()
{
    AnsweringPipe pipe;
    pipe.Open();
    return WriteTo(pipe.Server(), "12345");
}

std::string WriteOfNothing()
{
    AnsweringPipe pipe;
    pipe.Open();
    return WriteTo(pipe.Server(), "");
}

std::string WriteAfterTheClientHasGone()
{
    AnsweringPipe pipe;
    pipe.Open();
    pipe.CloseClient();
    return WriteTo(pipe.Server(), "12345");
}

std::string WriteAfterTheServerHasGone()
{
    AnsweringPipe pipe;
    pipe.Open();
    pipe.CloseServer();
    return WriteTo(pipe.Client(), "12345");
}

std::string WriteToADisconnectedOne()
{
    AnsweringPipe pipe;
    pipe.Open();
    ::DisconnectNamedPipe(pipe.Server());
    const std::string server = WriteTo(pipe.Server(), "12345");
    return server + "; of the client " + WriteTo(pipe.Client(), "12345");
}

std::string WriteToNoHandle()
{
    Record record;
    return Done(::WriteFile(nullptr, "1", 1, nullptr, &record.overlapped));
}

/// Begins a write that the pipe has no space for, and tells what becomes of it after `change`.
std::string MuchWrittenThen(const std::function<std::string(AnsweringPipe&, OVERLAPPED&)>& change)
{
    AnsweringPipe pipe;
    pipe.Open();
    Record record;
    const std::string text(Much, 'x');
    DWORD count = 0;
    const BOOL done = ::WriteFile(pipe.Server(), text.data(), Much, &count, &record.overlapped);
    const std::string begun = Begun(done, count, pipe.Server(), record);
    const std::string changed = change(pipe, record.overlapped);
    return begun + ", " + changed + ", " + Ended(pipe.Server(), record);
}

std::string WriteThatIsRead()
{
    return MuchWrittenThen([](AnsweringPipe& pipe, OVERLAPPED& /*write*/) {
        const std::string text = ReadFrom(pipe.Client(), Much);
        return text == "\"" + std::string(Much, 'x') + "\"" ? std::string("all is read") : text;
    });
}

std::string WriteWhileTheClientCloses()
{
    return MuchWrittenThen([](AnsweringPipe& pipe, OVERLAPPED& /*write*/) {
        pipe.CloseClient();
        return std::string("closed");
    });
}

std::string WriteWhileTheServerDisconnects()
{
    return MuchWrittenThen(
        [](AnsweringPipe& pipe, OVERLAPPED& /*write*/) { return Done(::DisconnectNamedPipe(pipe.Server())); });
}

std::string CancelledWrite()
{
    return MuchWrittenThen(
        [](AnsweringPipe& pipe, OVERLAPPED& write) { return Done(::CancelIoEx(pipe.Server(), &write)); });
}

std::string FlushOfAnEmptyOne()
{
    AnsweringPipe pipe;
    pipe.Open();
    return Done(::FlushFileBuffers(pipe.Server()));
}

std::string FlushAfterTheClientHasGone()
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Server(), "12345");
    pipe.CloseClient();
    return Done(::FlushFileBuffers(pipe.Server()));
}

/// Flushes what the client has not read, on another thread.
std::string FlushUntil(const std::function<void(AnsweringPipe&, win32::Thread&)>& change)
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Server(), "12345");
    const win32::Event done(win32::Event::Kind::ManualReset);
    std::string answer;
    win32::Thread flusher;
    flusher.Start([&] {
        answer = Done(::FlushFileBuffers(pipe.Server()));
        done.Set();
    });
    const bool blocks = !support::WaitFor(done.Get(), std::chrono::milliseconds(100));
    change(pipe, flusher);
    if (!support::WaitFor(done.Get())) {
        pipe.CloseClient();
    }
    flusher.Join();
    return (blocks ? "blocks, " : "does not block, ") + answer;
}

std::string FlushUntilAllIsRead()
{
    return FlushUntil([](AnsweringPipe& pipe, win32::Thread& /*flusher*/) { ReadFrom(pipe.Client()); });
}

std::string FlushUntilTheClientCloses()
{
    return FlushUntil([](AnsweringPipe& pipe, win32::Thread& /*flusher*/) { pipe.CloseClient(); });
}

std::string FlushThatIsCancelled()
{
    return FlushUntil(
        [](AnsweringPipe& /*pipe*/, win32::Thread& flusher) { ::CancelSynchronousIo(flusher.Get()); });
}

std::string FlushOfNoHandle()
{
    return Done(::FlushFileBuffers(nullptr));
}

} // namespace

std::vector<Answer> WriteAnswers()
{
    return {
        {"WriteToAListeningOne", "WriteFile, no client yet", "error 536, event unset", WritePage,
         WriteToAListeningOne},
        {"WriteWithSpace", "WriteFile, without a reader", "5 bytes", "CreateNamedPipe function", WriteWithSpace},
        {"WriteOfNothing", "WriteFile of 0 bytes", "0 bytes", WritePage, WriteOfNothing},
        {"WriteAfterTheClientHasGone", "WriteFile, the client has closed", "error 232, event unset", WritePage,
         WriteAfterTheClientHasGone},
        {"WriteAfterTheServerHasGone", "WriteFile of the client, the server has closed", "error 232, event unset",
         WritePage, WriteAfterTheServerHasGone},
        {"WriteToADisconnectedOne", "WriteFile of each end, disconnected",
         "error 233, event unset; of the client error 233, event unset", "DisconnectNamedPipe function",
         WriteToADisconnectedOne},
        {"WriteToNoHandle", "WriteFile, no handle", "error 6", WritePage, WriteToNoHandle},
        {"WriteThatIsRead", "WriteFile of more than the pipe holds, then the client reads it",
         "pending, all is read, 65536 bytes", "CreateNamedPipe function", WriteThatIsRead},
        {"WriteWhileTheClientCloses", "WriteFile of more than the pipe holds, then the client closes",
         "pending, closed, error 109", WritePage, WriteWhileTheClientCloses},
        {"WriteWhileTheServerDisconnects", "WriteFile of more than the pipe holds, then DisconnectNamedPipe",
         "pending, done, error 233", "DisconnectNamedPipe function", WriteWhileTheServerDisconnects},
        {"CancelledWrite", "CancelIoEx, a write is pending", "pending, done, error 995", "CancelIoEx function",
         CancelledWrite},
        {"FlushOfAnEmptyOne", "FlushFileBuffers, nothing was written", "done", FlushPage, FlushOfAnEmptyOne},
        {"FlushAfterTheClientHasGone", "FlushFileBuffers, the client has closed", "done", FlushPage,
         FlushAfterTheClientHasGone},
        {"FlushUntilAllIsRead", "FlushFileBuffers, then the client reads", "blocks, done", FlushPage,
         FlushUntilAllIsRead},
        {"FlushUntilTheClientCloses", "FlushFileBuffers, then the client closes", "blocks, error 109", FlushPage,
         FlushUntilTheClientCloses},
        {"FlushThatIsCancelled", "FlushFileBuffers, then CancelSynchronousIo", "blocks, error 995",
         "CancelSynchronousIo function", FlushThatIsCancelled},
        {"FlushOfNoHandle", "FlushFileBuffers, no handle", "error 6", FlushPage, FlushOfNoHandle},
    };
}

} // namespace windowscheck
