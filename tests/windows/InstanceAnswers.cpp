// Instances of a pipe: created, opened, connected, disconnected.
#include "tests/windows/Answers.h"

#include <algorithm>
#include <cwctype>
#include <utility>

namespace windowscheck {

namespace {

constexpr const char* CreatePage = "CreateNamedPipe function";
constexpr const char* ConnectPage = "ConnectNamedPipe function";
constexpr const char* DisconnectPage = "DisconnectNamedPipe function";
constexpr const char* ClientPage = "Named Pipe Client";

/// Begins a connect.
std::string Connect(HANDLE server, Record& record)
{
    const BOOL done = ::ConnectNamedPipe(server, &record.overlapped);
    return Begun(done, 0, server, record);
}

/// A connect's count means nothing.
std::string Connected(HANDLE server, Record& record)
{
    const std::string end = Ended(server, record);
    return end.find("bytes") != std::string::npos ? "connected" : end;
}

std::string OpenOfNone()
{
    AnsweringPipe pipe;
    pipe.CloseServer();
    return pipe.Open();
}

std::string OpenBeforeTheConnect()
{
    AnsweringPipe pipe;
    return pipe.Open();
}

std::string OpenInCapitals()
{
    const AnsweringPipe pipe;
    std::wstring path = pipe.Path();
    std::ranges::transform(path, path.begin(), [](wchar_t c) {
        return static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
    });
    const win32::FileHandle client(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                                 OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    return Done(client ? TRUE : FALSE);
}

std::string OpenOfABusyOne()
{
    AnsweringPipe pipe;
    pipe.Open();
    return pipe.OpenAnother();
}

std::string OpenAfterAClientHasGone()
{
    AnsweringPipe pipe;
    pipe.Open();
    pipe.CloseClient();
    return pipe.OpenAnother();
}

std::string OpenOfADisconnectedOne()
{
    AnsweringPipe pipe;
    pipe.Open();
    pipe.CloseClient();
    ::DisconnectNamedPipe(pipe.Server());
    return pipe.Open();
}

std::string OpenOfTwo()
{
    AnsweringPipe pipe(2);
    pipe.CreateAnother(2);
    std::string answers = pipe.OpenAnother();
    answers += ", " + pipe.OpenAnother();
    return answers + ", " + pipe.OpenAnother();
}

std::string CreateBeyondTheLimit()
{
    AnsweringPipe pipe;
    return pipe.CreateAnother(1);
}

std::string CreateUpToTheLimit()
{
    AnsweringPipe pipe(2);
    const std::string second = pipe.CreateAnother(2);
    return second + ", " + pipe.CreateAnother(2);
}

std::string CreateAfterTheServerHasClosed()
{
    AnsweringPipe pipe;
    pipe.CloseServer();
    return pipe.CreateAnother(1);
}

std::string ConnectWithoutAClient()
{
    AnsweringPipe pipe;
    Record record;
    const std::string begun = Connect(pipe.Server(), record);
    pipe.Open();
    return begun + ", " + Connected(pipe.Server(), record);
}

std::string ConnectOfTheConnected()
{
    AnsweringPipe pipe;
    pipe.Open();
    Record record;
    return Connect(pipe.Server(), record);
}

std::string ConnectAfterTheClientHasGone()
{
    AnsweringPipe pipe;
    pipe.Open();
    pipe.CloseClient();
    Record record;
    return Connect(pipe.Server(), record);
}

std::string ConnectAgain()
{
    AnsweringPipe pipe;
    pipe.Open();
    ::DisconnectNamedPipe(pipe.Server());
    pipe.CloseClient();
    Record record;
    std::string answers = Connect(pipe.Server(), record);
    answers += ", " + pipe.Open();
    return answers + ", " + Connected(pipe.Server(), record);
}

std::string ConnectWhoseClientComesAndGoes()
{
    AnsweringPipe pipe;
    Record record;
    Connect(pipe.Server(), record);
    pipe.Open();
    pipe.CloseClient();
    return Connected(pipe.Server(), record);
}

std::string ConnectOfNoHandle()
{
    Record record;
    return Done(::ConnectNamedPipe(nullptr, &record.overlapped));
}

std::string CancelledConnect()
{
    AnsweringPipe pipe;
    Record record;
    Connect(pipe.Server(), record);
    const std::string cancel = Done(::CancelIoEx(pipe.Server(), &record.overlapped));
    return cancel + ", " + Connected(pipe.Server(), record);
}

std::string OpenAfterACancelledConnect()
{
    AnsweringPipe pipe;
    Record record;
    Connect(pipe.Server(), record);
    ::CancelIoEx(pipe.Server(), &record.overlapped);
    Connected(pipe.Server(), record);
    return pipe.Open();
}

std::string DisconnectWithUnreadData()
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Server(), "12345");
    const std::string disconnect = Done(::DisconnectNamedPipe(pipe.Server()));
    return disconnect + ", read: " + ReadFrom(pipe.Client());
}

std::string DisconnectAfterTheClientHasGone()
{
    AnsweringPipe pipe;
    pipe.Open();
    WriteTo(pipe.Client(), "12345");
    pipe.CloseClient();
    const std::string disconnect = Done(::DisconnectNamedPipe(pipe.Server()));
    return disconnect + ", read: " + ReadFrom(pipe.Server());
}

std::string DisconnectTwice()
{
    AnsweringPipe pipe;
    pipe.Open();
    ::DisconnectNamedPipe(pipe.Server());
    return Done(::DisconnectNamedPipe(pipe.Server()));
}

std::string DisconnectDuringAConnect()
{
    const AnsweringPipe pipe;
    Record record;
    Connect(pipe.Server(), record);
    const std::string disconnect = Done(::DisconnectNamedPipe(pipe.Server()));
    if (disconnect != "done") {
        ::CancelIoEx(pipe.Server(), &record.overlapped);
    }
    return disconnect + ", " + Connected(pipe.Server(), record);
}

std::string DisconnectOfNoHandle()
{
    return Done(::DisconnectNamedPipe(nullptr));
}

} // namespace

std::vector<Answer> InstanceAnswers()
{
    return {
        {"OpenOfNone", "CreateFile, no instance", "error 2", ClientPage, OpenOfNone},
        {"OpenBeforeTheConnect", "CreateFile, an instance without a call of ConnectNamedPipe", "done",
         "Named Pipe Operations", OpenBeforeTheConnect},
        {"OpenInCapitals", "CreateFile, the name in capital letters", "done", CreatePage, OpenInCapitals},
        {"OpenOfABusyOne", "CreateFile, all instances have a client", "error 231", ClientPage, OpenOfABusyOne},
        {"OpenAfterAClientHasGone", "CreateFile, the client of the only instance has closed its end", "error 231",
         "DisconnectNamedPipe function", OpenAfterAClientHasGone},
        {"OpenOfADisconnectedOne", "CreateFile, the only instance is disconnected", "error 231",
         "DisconnectNamedPipe function", OpenOfADisconnectedOne},
        {"OpenOfTwo", "CreateFile three times, two instances", "done, done, error 231", ClientPage, OpenOfTwo},
        {"CreateBeyondTheLimit", "CreateNamedPipe, one instance of one", "error 231", CreatePage,
         CreateBeyondTheLimit},
        {"CreateUpToTheLimit", "CreateNamedPipe twice, one instance of two", "done, error 231", CreatePage,
         CreateUpToTheLimit},
        {"CreateAfterTheServerHasClosed", "CreateNamedPipe, the server of the only instance has closed its end",
         "done", CreatePage, CreateAfterTheServerHasClosed},
        {"ConnectWithoutAClient", "ConnectNamedPipe, then a client opens", "pending, connected", ConnectPage,
         ConnectWithoutAClient},
        {"ConnectOfTheConnected", "ConnectNamedPipe, a client is there", "error 535, event unset", ConnectPage,
         ConnectOfTheConnected},
        {"ConnectAfterTheClientHasGone", "ConnectNamedPipe, a client has come and gone", "error 232, event unset",
         ConnectPage, ConnectAfterTheClientHasGone},
        {"ConnectAgain", "ConnectNamedPipe after DisconnectNamedPipe, then a client opens",
         "pending, done, connected", ConnectPage, ConnectAgain},
        {"ConnectWhoseClientComesAndGoes", "ConnectNamedPipe, then a client opens and closes", "connected",
         ConnectPage, ConnectWhoseClientComesAndGoes},
        {"ConnectOfNoHandle", "ConnectNamedPipe, no handle", "error 6", ConnectPage, ConnectOfNoHandle},
        {"CancelledConnect", "CancelIoEx, a connect is pending", "done, error 995", "CancelIoEx function",
         CancelledConnect},
        {"OpenAfterACancelledConnect", "CreateFile, the connect was cancelled", "done", "Named Pipe Operations",
         OpenAfterACancelledConnect},
        {"DisconnectWithUnreadData", "DisconnectNamedPipe, the client has not read everything",
         "done, read: error 233, event unset", DisconnectPage, DisconnectWithUnreadData},
        {"DisconnectAfterTheClientHasGone", "DisconnectNamedPipe, the client has written and closed",
         "done, read: error 233, event unset", DisconnectPage, DisconnectAfterTheClientHasGone},
        {"DisconnectTwice", "DisconnectNamedPipe, disconnected", "error 233", DisconnectPage, DisconnectTwice},
        {"DisconnectDuringAConnect", "DisconnectNamedPipe, a connect is pending", "done, error 233",
         DisconnectPage, DisconnectDuringAConnect, "error 536, error 995", "nothing of an instance that listens"},
        {"DisconnectOfNoHandle", "DisconnectNamedPipe, no handle", "error 6", DisconnectPage,
         DisconnectOfNoHandle},
    };
}

} // namespace windowscheck
