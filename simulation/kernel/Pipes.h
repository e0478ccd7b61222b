// Named pipes: instances, their two channels, and what each end may do in which state.
#pragma once

#include "simulation/kernel/Requests.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim {

class Call;
struct PipeEnd;

/// One write, as long as any of it is unread.
struct Message
{
    std::vector<std::uint8_t> bytes;
    std::size_t taken = 0;
    std::optional<Request> writer; // until there is space for the rest, or all is read
    std::size_t Left() const { return bytes.size() - taken; }
};

/// The bytes on their way to one end.
struct Channel
{
    std::deque<Message> messages;
    std::deque<Request> reads;
    std::size_t quota = 0;
    std::size_t Buffered() const;
};

struct Pipe : std::enable_shared_from_this<Pipe>
{
    enum class State { Listening, Connected, Disconnected };

    std::string name;
    State state = State::Listening;
    bool serverOpen = true, clientOpen = false;
    std::optional<Request> connect;
    Channel toServer, toClient;
    PipeEnd* client = nullptr;
    int flushing = 0;          // threads that wait for the other end to read
    bool flushGivenUp = false; // one of them was cancelled
};

/// Hears what happens on pipes, for the account. From inside the calls.
class IPipeWatch
{
public:
    /// A read of the server's end has completed with these bytes.
    virtual void OnServerRead(const std::string& pipe, const std::uint8_t* bytes, std::size_t length) = 0;
    virtual void OnServerClosed(const std::string& pipe) = 0;
    /// The server disconnects a client that has not read everything, and has not waited for it.
    virtual void OnUnreadDropped(const std::string& pipe) = 0;

protected:
    ~IPipeWatch() = default;
};

struct PipeNames
{
    std::multimap<std::string, Pipe*> instances; // whose server end is open, or whose name is still taken
    IPipeWatch* watch = nullptr;
};

struct PipeEnd final : Object
{
    PipeEnd(std::shared_ptr<Pipe> both, bool isServer, bool isOverlapped)
        : Object(Kind::PipeEnd), pipe(std::move(both)), server(isServer), overlapped(isOverlapped)
    {
    }
    void OnClosed() override;
    Channel& In() { return server ? pipe->toServer : pipe->toClient; }
    Channel& Out() { return server ? pipe->toClient : pipe->toServer; }
    bool IsOtherOpen() const { return server ? pipe->clientOpen : pipe->serverOpen; }

    const std::shared_ptr<Pipe> pipe;
    const bool server, overlapped;
    bool readsMessages = false;
    bool detached = false; // a client that was thrown out: the pipe may have another one
};

void WatchPipes(IPipeWatch* watch);

/// Blocks the thread until a pipe is created, at most for `milliseconds`: for a client that looks without a pause.
void AwaitCreation(DWORD milliseconds);

/// CreateFile on "\\.\pipe\...".
HANDLE OpenPipe(const char* name, bool isOverlapped);
/// The server's end listens for a client.
BOOL ListenPipe(Call& call, PipeEnd& end, OVERLAPPED* record);
BOOL ReadPipe(PipeEnd& end, const Request& request, DWORD* read);
BOOL WritePipe(PipeEnd& end, const Request& request, const void* data, DWORD* written);
BOOL FlushPipe(PipeEnd& end);

/// Whether the other end has not read all that was written to this one.
bool HasUnread(HANDLE end);

/// Gives what is there to the reads that wait, and space to the writes.
void Pump(Pipe& pipe, bool toServer);
/// All pending requests of the channel end, and what is in it is dropped.
void FailAll(Channel& channel, DWORD readError, DWORD writeError);
void WakeFlushes(Pipe& pipe, DWORD result);

} // namespace sim
