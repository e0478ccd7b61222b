// The instances of named pipes: created, connected, disconnected, closed.
#include "simulation/kernel/Pipes.h"

#include "simulation/kernel/Call.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/kernel/World.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>
#include <utility>

namespace sim {

namespace {

constexpr std::string_view Prefix = "\\\\.\\pipe\\";
constexpr std::size_t LongestName = 256;
constexpr std::size_t Page = 4096;
constexpr DWORD InvalidName = 123; // ERROR_INVALID_NAME

std::string KeyOf(const char* name)
{
    std::string key = name;
    std::transform(key.begin(), key.end(), key.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    return key;
}

bool IsPipeName(std::string_view name)
{
    return name.size() > Prefix.size() && name.size() <= LongestName &&
           name.substr(Prefix.size()).find('\\') == std::string_view::npos;
}

std::size_t QuotaOf(DWORD asked)
{
    Switches& switches = TheWorld().switches;
    if (switches.Take(Switch::QuotaIsZero)) {
        ForbidJudgement();
        return 0;
    }
    return switches.Take(Switch::QuotaRoundedUp) ? (std::size_t{asked} + Page - 1) / Page * Page : asked;
}

void FreeName(const Pipe& pipe)
{
    std::multimap<std::string, Pipe*>& instances = TheWorld().pipes->instances;
    std::erase_if(instances, [&](const auto& entry) { return entry.second == &pipe; });
}

// The server's end counts: its name is free with it, or, as one page has it, with the last end.
void CloseServer(PipeEnd& end)
{
    Pipe& pipe = *end.pipe;
    pipe.serverOpen = false;
    if (pipe.connect) {
        Complete(*std::exchange(pipe.connect, std::nullopt), ERROR_BROKEN_PIPE, 0);
    }
    const bool clientLingers = pipe.client != nullptr || pipe.clientOpen;
    if (!clientLingers || !TheWorld().switches.Take(Switch::NameBusyWhileOpen)) {
        FreeName(pipe);
    }
    FailAll(pipe.toServer, ERROR_BROKEN_PIPE, ERROR_NO_DATA);
    for (const Request& read : std::exchange(pipe.toClient.reads, {})) {
        Complete(read, ERROR_BROKEN_PIPE, 0); // where a read waits nothing is left
    }
    if (IPipeWatch* const watch = TheWorld().pipes->watch; watch != nullptr) {
        watch->OnServerClosed(pipe.name);
    }
}

// What the client had not read is dropped; what it had written stays readable.
void CloseClient(PipeEnd& end)
{
    Pipe& pipe = *end.pipe;
    pipe.clientOpen = false;
    pipe.client = nullptr;
    FailAll(pipe.toClient, ERROR_BROKEN_PIPE, ERROR_BROKEN_PIPE);
    for (const Request& read : std::exchange(pipe.toServer.reads, {})) {
        Complete(read, ERROR_BROKEN_PIPE, 0); // where a read waits nothing is left
    }
    std::deque<Message>& messages = pipe.toServer.messages;
    for (auto at = messages.begin(); at != messages.end();) {
        if (at->writer && !TheWorld().switches.Take(Switch::WriteOutlivesItsEnd)) {
            Complete(*at->writer, ERROR_OPERATION_ABORTED, 0);
            at = messages.erase(at);
            continue;
        }
        if (at->writer) {
            Complete(*std::exchange(at->writer, std::nullopt), ERROR_SUCCESS,
                     static_cast<DWORD>(at->bytes.size()));
        }
        ++at;
    }
    if (!pipe.serverOpen) {
        FreeName(pipe);
    }
}

} // namespace

void WatchPipes(IPipeWatch* watch)
{
    TheWorld().pipes->watch = watch;
}

void AwaitCreation(DWORD milliseconds)
{
    Block(std::uint64_t{milliseconds} * 1000, TheWorld().pipes.get());
}

void PipeEnd::OnClosed()
{
    const std::shared_ptr<Pipe> kept = pipe;
    if (!detached) {
        const bool writes = std::any_of(Out().messages.begin(), Out().messages.end(),
                                        [](const Message& message) { return message.writer.has_value(); });
        const bool mustCancel = server || Current().isProduct;
        if (mustCancel && (!In().reads.empty() || writes || (server && pipe->connect))) {
            Fault("a pipe is closed with a request pending on it");
        }
        if (server) {
            CloseServer(*this);
        } else {
            CloseClient(*this);
        }
        WakeFlushes(*kept, ERROR_BROKEN_PIPE);
    } else if (!server && !pipe->serverOpen) {
        FreeName(*pipe);
    }
}

HANDLE OpenPipe(const char* name, bool isOverlapped)
{
    const std::multimap<std::string, Pipe*>& instances = TheWorld().pipes->instances;
    const auto [begin, end] = instances.equal_range(KeyOf(name));
    bool isKnown = false;
    for (auto at = begin; at != end; ++at) {
        isKnown = isKnown || at->second->serverOpen;
        if (!at->second->serverOpen || at->second->state != Pipe::State::Listening) {
            continue;
        }
        Pipe& pipe = *at->second;
        pipe.state = Pipe::State::Connected;
        pipe.clientOpen = true;
        const Ref<Object> client(new PipeEnd(pipe.shared_from_this(), false, isOverlapped));
        pipe.client = static_cast<PipeEnd*>(client.get());
        const HANDLE handle = AddHandle(client);
        if (pipe.connect) {
            Complete(*std::exchange(pipe.connect, std::nullopt), ERROR_SUCCESS, 0);
        }
        Point("CreateFileA done");
        return handle;
    }
    Call::Refuse(isKnown ? ERROR_PIPE_BUSY : ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

BOOL ListenPipe(Call& call, PipeEnd& end, OVERLAPPED* record)
{
    Pipe& pipe = *end.pipe;
    const Request request = Accept(record, end, nullptr, 0);
    if (const DWORD error = call.Injected({ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_DATA}); error != 0) {
        return RefuseStart(request, error, false);
    }
    if (pipe.state == Pipe::State::Connected) {
        return RefuseStart(request, pipe.clientOpen ? ERROR_PIPE_CONNECTED : ERROR_NO_DATA, false);
    }
    pipe.state = Pipe::State::Listening;
    pipe.connect = request;
    Point("ConnectNamedPipe done");
    return Call::Refuse(ERROR_IO_PENDING);
}

} // namespace sim

using namespace sim;

HANDLE CreateNamedPipeA(const char* name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outSize,
                        DWORD inSize, DWORD /*timeout*/, SECURITY_ATTRIBUTES* /*security*/)
{
    Call call("CreateNamedPipeA");
    constexpr DWORD KnownPipeModes = PIPE_TYPE_MESSAGE | PIPE_REJECT_REMOTE_CLIENTS;
    if ((openMode & ~FILE_FLAG_OVERLAPPED) != PIPE_ACCESS_DUPLEX || (pipeMode & ~KnownPipeModes) != 0) {
        Fault("a pipe of a mode that is not known here");
    }
    if (call.Fails({ERROR_NOT_ENOUGH_MEMORY, ERROR_PIPE_BUSY, ERROR_ACCESS_DENIED, ERROR_NO_SYSTEM_RESOURCES})) {
        return INVALID_HANDLE_VALUE;
    }
    if (!IsPipeName(name)) {
        call.Refuse(InvalidName);
        return INVALID_HANDLE_VALUE;
    }
    std::multimap<std::string, Pipe*>& known = TheWorld().pipes->instances;
    const std::string key = KeyOf(name);
    if (known.count(key) >= instances) {
        call.Refuse(ERROR_PIPE_BUSY);
        return INVALID_HANDLE_VALUE;
    }
    const auto pipe = std::make_shared<Pipe>();
    pipe->name = key;
    pipe->toServer.quota = QuotaOf(inSize);
    pipe->toClient.quota = QuotaOf(outSize);
    known.emplace(key, pipe.get());
    ForBlocked(TheWorld().pipes.get(), [](Fiber& fiber) {
        Wake(fiber, WAIT_OBJECT_0);
        return true;
    });
    return AddHandle(Ref<Object>(new PipeEnd(pipe, true, (openMode & FILE_FLAG_OVERLAPPED) != 0)));
}

BOOL SetNamedPipeHandleState(HANDLE handle, DWORD* mode, DWORD* /*maximum*/, DWORD* /*timeout*/)
{
    Call call("SetNamedPipeHandleState");
    auto& end = static_cast<PipeEnd&>(ObjectOf(handle, Object::Kind::PipeEnd));
    end.readsMessages = (*mode & PIPE_READMODE_MESSAGE) != 0;
    return TRUE;
}

BOOL ConnectNamedPipe(HANDLE handle, OVERLAPPED* record)
{
    Call call("ConnectNamedPipe");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    auto& end = static_cast<PipeEnd&>(ObjectOf(handle, Object::Kind::PipeEnd));
    return ListenPipe(call, end, record);
}

BOOL DisconnectNamedPipe(HANDLE handle)
{
    Call call("DisconnectNamedPipe");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    auto& end = static_cast<PipeEnd&>(ObjectOf(handle, Object::Kind::PipeEnd));
    Pipe& pipe = *end.pipe;
    if (!end.server) {
        return Call::Refuse(ERROR_INVALID_FUNCTION);
    }
    if (pipe.state == Pipe::State::Disconnected) {
        return Call::Refuse(ERROR_PIPE_NOT_CONNECTED);
    }
    if (pipe.connect) {
        Complete(*std::exchange(pipe.connect, std::nullopt), ERROR_PIPE_NOT_CONNECTED, 0);
    }
    IPipeWatch* const watch = TheWorld().pipes->watch;
    if (watch != nullptr && pipe.clientOpen && !pipe.toClient.messages.empty() && !pipe.flushGivenUp) {
        watch->OnUnreadDropped(pipe.name);
    }
    if (pipe.client != nullptr) {
        pipe.client->detached = true;
        pipe.client = nullptr;
    }
    pipe.state = Pipe::State::Disconnected;
    FailAll(pipe.toServer, ERROR_PIPE_NOT_CONNECTED, ERROR_PIPE_NOT_CONNECTED);
    FailAll(pipe.toClient, ERROR_PIPE_NOT_CONNECTED, ERROR_PIPE_NOT_CONNECTED);
    pipe.clientOpen = false;
    WakeFlushes(pipe, ERROR_PIPE_NOT_CONNECTED);
    Point("DisconnectNamedPipe done");
    return TRUE;
}
