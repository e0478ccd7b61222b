// The bytes on their way through a pipe.
#include "simulation/kernel/Call.h"
#include "simulation/kernel/Pipes.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/kernel/World.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace sim {

namespace {

/// Fills one read: a pending one by the first write alone, since it is all that is there then; one that finds data
/// across message borders.
DWORD Fill(Channel& channel, const Request& read, bool wholeMessages, DWORD& count)
{
    while (count < read.length && !channel.messages.empty()) {
        Message& message = channel.messages.front();
        const std::size_t taken = std::min<std::size_t>(read.length - count, message.Left());
        std::memcpy(read.buffer + count, message.bytes.data() + message.taken, taken);
        message.taken += taken;
        count += static_cast<DWORD>(taken);
        if (message.Left() > 0) {
            return wholeMessages ? ERROR_MORE_DATA : ERROR_SUCCESS;
        }
        if (message.writer) {
            Complete(*message.writer, ERROR_SUCCESS, static_cast<DWORD>(message.bytes.size()));
        }
        channel.messages.pop_front();
        if (wholeMessages) {
            break;
        }
    }
    return ERROR_SUCCESS;
}

// CancelIoEx does not wait for what it cancels.
void EndCancelled(const Request& request, bool mustEnd)
{
    if (!mustEnd && TheWorld().switches.Take(Switch::PipeCancelsLate)) {
        Defer([request] { Complete(request, ERROR_OPERATION_ABORTED, 0); });
    } else {
        Complete(request, ERROR_OPERATION_ABORTED, 0);
    }
}

// A write is done when what is unread fits the quota: success never means read.
void GiveRoom(Channel& channel)
{
    std::size_t buffered = channel.Buffered();
    for (Message& message : channel.messages) {
        if (!message.writer) {
            continue;
        }
        if (buffered + message.Left() > channel.quota) {
            return;
        }
        buffered += message.Left();
        Complete(*message.writer, ERROR_SUCCESS, static_cast<DWORD>(message.bytes.size()));
        message.writer.reset();
    }
}

} // namespace

std::size_t Channel::Buffered() const
{
    std::size_t sum = 0;
    for (const Message& message : messages) {
        sum += message.writer ? 0 : message.Left();
    }
    return sum;
}

void Pump(Pipe& pipe, bool toServer)
{
    Channel& channel = toServer ? pipe.toServer : pipe.toClient;
    const bool wholeMessages = !toServer && pipe.client != nullptr && pipe.client->readsMessages;
    while (!channel.reads.empty() && !channel.messages.empty()) {
        const Request read = channel.reads.front();
        channel.reads.pop_front();
        DWORD count = 0;
        const DWORD error = Fill(channel, read, wholeMessages, count);
        if (IPipeWatch* const watch = TheWorld().pipes->watch; toServer && watch != nullptr) {
            watch->OnServerRead(pipe.name, read.buffer, count);
        }
        Complete(read, error, count);
    }
    GiveRoom(channel);
    if (channel.messages.empty()) {
        WakeFlushes(pipe, ERROR_SUCCESS);
    }
}

void FailAll(Channel& channel, DWORD readError, DWORD writeError)
{
    for (const Request& read : std::exchange(channel.reads, {})) {
        Complete(read, readError, 0);
    }
    for (const Message& message : std::exchange(channel.messages, {})) {
        if (message.writer) {
            Complete(*message.writer, writeError, 0);
        }
    }
}

void WakeFlushes(Pipe& pipe, DWORD result)
{
    if (pipe.flushing == 0) {
        return;
    }
    ForBlocked(&pipe, [result](Fiber& fiber) {
        Wake(fiber, result);
        return true;
    });
}

BOOL ReadPipe(PipeEnd& end, const Request& request, DWORD* read)
{
    Pipe& pipe = *end.pipe;
    if (end.detached || pipe.state == Pipe::State::Disconnected) {
        return RefuseStart(request, ERROR_PIPE_NOT_CONNECTED, false);
    }
    if (pipe.state == Pipe::State::Listening) {
        return RefuseStart(request, ERROR_PIPE_LISTENING, false);
    }
    if (end.In().messages.empty() && !end.IsOtherOpen()) {
        return RefuseStart(request, ERROR_BROKEN_PIPE, false);
    }
    end.In().reads.push_back(request);
    Pump(pipe, end.server);
    return AnswerStart(request, read);
}

BOOL WritePipe(PipeEnd& end, const Request& request, const void* data, DWORD* written)
{
    Pipe& pipe = *end.pipe;
    if (end.detached || pipe.state == Pipe::State::Disconnected) {
        return RefuseStart(request, ERROR_PIPE_NOT_CONNECTED, false);
    }
    if (pipe.state == Pipe::State::Listening) {
        return RefuseStart(request, ERROR_PIPE_LISTENING, false);
    }
    if (!end.IsOtherOpen()) {
        return RefuseStart(request, ERROR_NO_DATA, false);
    }
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    end.Out().messages.push_back({std::vector<std::uint8_t>(bytes, bytes + request.length), 0, request});
    Pump(pipe, !end.server);
    return AnswerStart(request, written);
}

// Blocks until all is read. The other end's closing, a disconnect and CancelSynchronousIo end it early.
BOOL FlushPipe(PipeEnd& end)
{
    const Ref<Object> kept(&end);
    Pipe& pipe = *end.pipe;
    while (!end.detached && pipe.state == Pipe::State::Connected && end.IsOtherOpen() &&
           !end.Out().messages.empty())
    {
        Fiber& self = Current();
        self.blocksInFile = true;
        ++pipe.flushing;
        const DWORD result = Block(NeverUs, &pipe);
        --pipe.flushing;
        self.blocksInFile = false;
        if (result != ERROR_SUCCESS) {
            pipe.flushGivenUp = true;
            return Call::Refuse(result);
        }
    }
    return TRUE;
}

bool HasUnread(HANDLE handle)
{
    return !static_cast<PipeEnd&>(ObjectOf(handle, Object::Kind::PipeEnd)).Out().messages.empty();
}

bool CancelPipeRequest(Object& object, const OVERLAPPED* record, bool mustEnd)
{
    auto& end = static_cast<PipeEnd&>(object);
    Pipe& pipe = *end.pipe;
    if (end.server && pipe.connect && pipe.connect->record == record) {
        EndCancelled(*std::exchange(pipe.connect, std::nullopt), mustEnd);
        return true;
    }
    std::deque<Request>& reads = end.In().reads;
    const auto read =
        std::find_if(reads.begin(), reads.end(), [=](const Request& r) { return r.record == record; });
    if (read != reads.end()) {
        const Request request = *read;
        reads.erase(read);
        EndCancelled(request, mustEnd);
        return true;
    }
    std::deque<Message>& messages = end.Out().messages;
    const auto message = std::find_if(messages.begin(), messages.end(),
                                      [=](const Message& m) { return m.writer && m.writer->record == record; });
    if (message == messages.end()) {
        return false;
    }
    const Request request = *message->writer; // what was read of it stays read, the rest vanishes
    messages.erase(message);
    EndCancelled(request, mustEnd);
    if (messages.empty()) {
        WakeFlushes(pipe, ERROR_SUCCESS);
    }
    return true;
}

} // namespace sim
