// Reading from a pipe.
#include "tests/windows/Answers.h"

#include <functional>

namespace windowscheck {

namespace {

constexpr const char* ReadPage = "ReadFile function";
constexpr const char* ModesPage = "Named Pipe Type, Read, and Wait Modes";
constexpr const char* CancelPage = "CancelIoEx function";
constexpr const char* ResultPage = "GetOverlappedResult function";

std::string ReadOfAListeningOne()
{
    const AnsweringPipe pipe;
    return ReadFrom(pipe.Server());
}

/// Begins a read of up to 64 bytes on the server's end, and tells what becomes of it after `change`.
std::string ReadDuring(const std::function<void(AnsweringPipe&, OVERLAPPED&)>& change)
{
    AnsweringPipe pipe;
    pipe.Open();
    Record record;
    std::string buffer(64, '?');
    DWORD count = 0;
    const BOOL done = ::ReadFile(pipe.Server(), buffer.data(), 64, &count, &record.overlapped);
    const std::string begun = Begun(done, count, pipe.Server(), record);
    change(pipe, record.overlapped);
    return begun + ", " + Ended(pipe.Server(), record);
}

std::string ReadAheadOfTheData()
{
    return ReadDuring([](AnsweringPipe& pipe, OVERLAPPED& /*read*/) { WriteTo(pipe.Client(), "12345"); });
}

std::string ReadAheadOfTwoMessages()
{
    return ReadDuring([](AnsweringPipe& pipe, OVERLAPPED& /*read*/) {
        WriteTo(pipe.Client(), "12345");
        WriteTo(pipe.Client(), "678");
    });
}

std::string ReadAheadOfAnEmptyMessage()
{
    return ReadDuring([](AnsweringPipe& pipe, OVERLAPPED& /*read*/) { WriteTo(pipe.Client(), ""); });
}

std::string ReadWhileTheClientCloses()
{
    return ReadDuring([](AnsweringPipe& pipe, OVERLAPPED& /*read*/) { pipe.CloseClient(); });
}

std::string ReadWhileTheServerDisconnects()
{
    return ReadDuring([](AnsweringPipe& pipe, OVERLAPPED& /*read*/) { ::DisconnectNamedPipe(pipe.Server()); });
}

std::string ClientsReadWhile(const std::function<void(AnsweringPipe&)>& change)
{
    AnsweringPipe pipe;
    pipe.Open();
    Record record;
    std::string buffer(64, '?');
    DWORD count = 0;
    const BOOL done = ::ReadFile(pipe.Client(), buffer.data(), 64, &count, &record.overlapped);
    const std::string begun = Begun(done, count, pipe.Client(), record);
    change(pipe);
    return begun + ", " + Ended(pipe.Client(), record);
}

std::string ClientsReadWhileTheServerCloses()
{
    return ClientsReadWhile([](AnsweringPipe& pipe) { pipe.CloseServer(); });
}

std::string ClientsReadWhileTheServerDisconnects()
{
    return ClientsReadWhile([](AnsweringPipe& pipe) { ::DisconnectNamedPipe(pipe.Server()); });
}

std::string ReadOfALongerMessage()
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Client(), "12345678");
    const std::string first = ReadFrom(pipe.Server(), 5);
    return first + ", " + ReadFrom(pipe.Server(), 5);
}

std::string ReadOfTwoMessagesAsBytes()
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Client(), "12345");
    WriteTo(pipe.Client(), "678");
    return ReadFrom(pipe.Server());
}

std::string ReadOfTwoMessagesAsMessages()
{
    AnsweringPipe pipe;
    pipe.Open();
    pipe.ReadMessages();
    WriteTo(pipe.Server(), "12345");
    WriteTo(pipe.Server(), "678");
    const std::string first = ReadFrom(pipe.Client());
    return first + ", " + ReadFrom(pipe.Client());
}

std::string ReadOfALongerMessageAsMessage()
{
    AnsweringPipe pipe;
    pipe.Open();
    pipe.ReadMessages();
    WriteTo(pipe.Server(), "12345678");
    WriteTo(pipe.Server(), "9");
    const std::string first = ReadFrom(pipe.Client(), 5);
    return first + ", " + ReadFrom(pipe.Client(), 5);
}

std::string ReadOfAnEmptyMessage()
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Client(), "");
    return ReadFrom(pipe.Server());
}

std::string ReadOfWhatAClientLeft()
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Client(), "12345");
    pipe.CloseClient();
    const std::string first = ReadFrom(pipe.Server());
    return first + ", " + ReadFrom(pipe.Server());
}

std::string ReadOfWhatAServerLeft()
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Server(), "12345");
    pipe.CloseServer();
    const std::string first = ReadFrom(pipe.Client());
    return first + ", " + ReadFrom(pipe.Client());
}

std::string ReadOfADisconnectedOne()
{
    AnsweringPipe pipe;
    pipe.Open();
    ::DisconnectNamedPipe(pipe.Server());
    return ReadFrom(pipe.Server());
}

std::string ReadOfNoHandle()
{
    Record record;
    char byte = 0;
    return Done(::ReadFile(nullptr, &byte, 1, nullptr, &record.overlapped));
}

std::string ResultOfAPendingRead()
{
    AnsweringPipe pipe;
    pipe.Open();
    Record record;
    char byte = 0;
    ::ReadFile(pipe.Server(), &byte, 1, nullptr, &record.overlapped);
    DWORD count = 0;
    const std::string answer = Done(::GetOverlappedResult(pipe.Server(), &record.overlapped, &count, FALSE));
    WriteTo(pipe.Client(), "1");
    return answer + ", " + Ended(pipe.Server(), record);
}

std::string StartOfARead()
{
    AnsweringPipe pipe;
    pipe.Open();
    Record record;
    record.event.Set();
    char byte = 0;
    ::ReadFile(pipe.Server(), &byte, 1, nullptr, &record.overlapped);
    const std::string answer = record.event.IsSet() ? "event set" : "event unset";
    WriteTo(pipe.Client(), "1");
    Ended(pipe.Server(), record);
    return answer;
}

std::string CancelledRead()
{
    std::string cancel;
    const std::string read = ReadDuring([&cancel](AnsweringPipe& pipe, OVERLAPPED& pending) {
        cancel = Done(::CancelIoEx(pipe.Server(), &pending));
    });
    return cancel + ", " + read;
}

std::string CancelOfNothing()
{
    AnsweringPipe pipe;
    pipe.Open();
    Record record;
    return Done(::CancelIoEx(pipe.Server(), &record.overlapped));
}

std::string CancelOfAFinishedRead()
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Client(), "1");
    Record record;
    char byte = 0;
    DWORD count = 0;
    const BOOL done = ::ReadFile(pipe.Server(), &byte, 1, &count, &record.overlapped);
    const std::string read = Begun(done, count, pipe.Server(), record);
    return read + ", " + Done(::CancelIoEx(pipe.Server(), &record.overlapped));
}

std::string WriteAfterACancelledRead()
{
    AnsweringPipe pipe;
    pipe.Open();
    Record record;
    char byte = 0;
    ::ReadFile(pipe.Server(), &byte, 1, nullptr, &record.overlapped);
    ::CancelIoEx(pipe.Server(), &record.overlapped);
    Ended(pipe.Server(), record);
    WriteTo(pipe.Client(), "12345");
    return ReadFrom(pipe.Server());
}

std::string CancelOfNoHandle()
{
    Record record;
    return Done(::CancelIoEx(nullptr, &record.overlapped));
}

} // namespace

std::vector<Answer> ReadAnswers()
{
    return {
        {"ReadOfAListeningOne", "ReadFile, no client yet", "error 536, event unset", ReadPage,
         ReadOfAListeningOne},
        {"ReadAheadOfTheData", "ReadFile, then the client writes 5 bytes", "pending, 5 bytes", ReadPage,
         ReadAheadOfTheData},
        {"ReadAheadOfTwoMessages", "ReadFile, then the client writes 5 bytes and 3", "pending, 5 bytes", ReadPage,
         ReadAheadOfTwoMessages},
        {"ReadAheadOfAnEmptyMessage", "ReadFile, then the client writes 0 bytes", "pending, 0 bytes", ReadPage,
         ReadAheadOfAnEmptyMessage},
        {"ReadOfAnEmptyMessage", "ReadFile, the client has written 0 bytes", "\"\"", ReadPage,
         ReadOfAnEmptyMessage},
        {"ReadWhileTheClientCloses", "ReadFile, then the client closes", "pending, error 109", ReadPage,
         ReadWhileTheClientCloses},
        {"ReadWhileTheServerDisconnects", "ReadFile, then DisconnectNamedPipe", "pending, error 233",
         "DisconnectNamedPipe function", ReadWhileTheServerDisconnects},
        {"ClientsReadWhileTheServerCloses", "ReadFile of the client, then the server closes", "pending, error 109",
         ReadPage, ClientsReadWhileTheServerCloses},
        {"ClientsReadWhileTheServerDisconnects", "ReadFile of the client, then DisconnectNamedPipe",
         "pending, error 233", "DisconnectNamedPipe function", ClientsReadWhileTheServerDisconnects},
        {"ReadOfALongerMessage", "ReadFile as bytes, a message longer than the buffer", "\"12345\", \"678\"",
         ModesPage, ReadOfALongerMessage},
        {"ReadOfTwoMessagesAsBytes", "ReadFile as bytes, two messages", "\"12345678\"", ModesPage,
         ReadOfTwoMessagesAsBytes},
        {"ReadOfTwoMessagesAsMessages", "ReadFile as messages, two messages", "\"12345\", \"678\"", ModesPage,
         ReadOfTwoMessagesAsMessages},
        {"ReadOfALongerMessageAsMessage", "ReadFile as messages, a message longer than the buffer, then another",
         "error 234 with \"12345\", \"678\"", ModesPage, ReadOfALongerMessageAsMessage},
        {"ReadOfWhatAClientLeft", "ReadFile twice, the client has written and closed",
         "\"12345\", error 109, event unset", ReadPage, ReadOfWhatAClientLeft},
        {"ReadOfWhatAServerLeft", "ReadFile of the client twice, the server has written and closed",
         "\"12345\", error 109, event unset", ReadPage, ReadOfWhatAServerLeft},
        {"ReadOfADisconnectedOne", "ReadFile, disconnected", "error 233, event unset", ReadPage,
         ReadOfADisconnectedOne},
        {"ReadOfNoHandle", "ReadFile, no handle", "error 6", ReadPage, ReadOfNoHandle},
        {"ResultOfAPendingRead", "GetOverlappedResult without waiting, a read is pending", "error 996, 1 bytes",
         ResultPage, ResultOfAPendingRead},
        {"StartOfARead", "ReadFile that is pending, its event was set", "event unset", ReadPage, StartOfARead},
        {"CancelledRead", "CancelIoEx, a read is pending", "done, pending, error 995", CancelPage, CancelledRead},
        {"CancelOfNothing", "CancelIoEx, nothing was begun", "error 1168", CancelPage, CancelOfNothing},
        {"CancelOfAFinishedRead", "CancelIoEx, the read is done", "1 bytes, error 1168", CancelPage,
         CancelOfAFinishedRead},
        {"WriteAfterACancelledRead", "ReadFile, what was written after a cancelled one", "\"12345\"", CancelPage,
         WriteAfterACancelledRead},
        {"CancelOfNoHandle", "CancelIoEx, no handle", "error 6", CancelPage, CancelOfNoHandle},
    };
}

} // namespace windowscheck
