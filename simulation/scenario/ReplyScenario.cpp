#include "simulation/scenario/ReplyScenario.h"

#include "ports/packet/WireFormat.h"
#include "simulation/kernel/Memory.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/scenario/Surroundings.h"
#include "transport/ReadThreads.h"
#include "transport/Replies.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"
#include "win32/Thread.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <vector>

namespace sim {

namespace {

constexpr const char* PipeName = "\\\\.\\pipe\\replies";
constexpr DWORD ReplyPipeBuffer = 4096;
constexpr std::uint32_t Packets = 60;
constexpr DWORD LongestMs = 5000;

/// Takes what is delivered: numbers that rise.
class Sink final : public IPortDirectory
{
public:
    bool SendToPort(PortAddress /*address*/, CCommunicationDriver* /*source*/,
                    std::span<const std::uint8_t> payload) override
    {
        std::uint32_t number = 0;
        if (payload.size() != sizeof number) {
            return true;
        }
        std::memcpy(&number, payload.data(), sizeof number);
        if (number <= last && MayLatencyBeJudged()) {
            Fault("a packet is delivered twice or out of order");
        }
        ++delivered;
        last = number;
        return true;
    }
    void SendToPorts(std::int32_t /*port*/, CCommunicationDriver* /*source*/,
                     std::span<const std::uint8_t> /*payload*/) override
    {
    }
    void PacketCompleted(PortAddress /*address*/) override {}
    void SignalAllPorts() override { hasLost = true; }

    std::uint32_t delivered = 0, last = 0;
    bool hasLost = false;
};

/// The transport that the replies come from.
class ReplyPath final : public CCommunicationDriver, private IFirmwareTransport
{
public:
    ReplyPath(Sink& sink, IDeviceNames& names) : connection(sink), m_firmware(*this, names) {}

    void Reconnect() override {}
    void Send(std::uint8_t, std::uint8_t, const std::uint8_t*, std::uint32_t) override {}
    bool IsConnected() override { return true; }
    bool IsReady() override { return true; }
    bool IsUpdatingFirmware() override { return false; }
    std::uint32_t GetTransferredBytes() override { return 0; }
    void DispatchToDevice(const std::uint8_t* data, std::uint32_t length) override
    {
        replies.Dispatch({data, length});
    }

    Connection connection;

private:
    void SubmitFirmware(std::span<const std::uint8_t>) override {}
    void ClearCommandQueue() override {}

    FirmwareDownloader m_firmware;

public:
    Replies replies{*this, connection, m_firmware};
};

/// The other end of the pipe: packets, cut anywhere, until all are sent or it leaves.
class Writer
{
public:
    Writer()
        : m_pipe(::CreateNamedPipeA(PipeName, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED, PIPE_TYPE_BYTE, 1,
                                    ReplyPipeBuffer, ReplyPipeBuffer, 0, nullptr))
    {
    }

    void Run()
    {
        const std::uint32_t last = Random(3) == 0 ? static_cast<std::uint32_t>(Random(Packets)) : Packets;
        for (std::uint32_t number = 1; number <= last; ++number) {
            AppendPacket(number);
            while (m_bytes.size() > 20 || (number == last && !m_bytes.empty())) {
                if (!WriteSome()) {
                    return;
                }
            }
        }
        if (last < Packets) {
            m_pipe.Reset();
        }
    }

    /// Ends a write that is not read any more.
    void Leave() { m_leaves = true; }

private:
    void AppendPacket(std::uint32_t number)
    {
        std::array<std::uint8_t, sizeof number> payload{};
        std::memcpy(payload.data(), &number, sizeof number);
        const wire::Header header =
            wire::BuildHeader(static_cast<std::uint8_t>(number), wire::PortTraffic, 3, 1, payload.size());
        const wire::Trailer trailer = wire::BuildTrailer(payload);
        m_bytes.insert(m_bytes.end(), header.begin(), header.end());
        m_bytes.insert(m_bytes.end(), payload.begin(), payload.end());
        m_bytes.insert(m_bytes.end(), trailer.begin(), trailer.end());
    }

    bool WriteSome()
    {
        std::size_t length = 1 + Random(m_bytes.size());
        while (length < m_bytes.size() && m_bytes[length - 1] == wire::SyncByte) {
            ++length; // by design a lone '#' at the end of a block is dropped
        }
        win32::OverlappedOperation write;
        if (!write.Write(m_pipe.Get(), m_bytes.data(), static_cast<DWORD>(length))) {
            return false;
        }
        while (!write.HasCompleted() && !m_leaves) {
            ::WaitForSingleObject(write.EventHandle(), 20);
        }
        DWORD written = 0;
        if (!write.CancelAndFinish(written)) {
            return false;
        }
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + written);
        return true;
    }

    win32::FileHandle m_pipe;
    std::vector<std::uint8_t> m_bytes;
    bool m_leaves = false;
};

void Read(ReplyPath& path, HANDLE pipe)
{
    try {
        ReadThreads::SimulationReadWaitThread(path.connection, path.replies, pipe);
    } catch (const std::bad_alloc&) {
        path.connection.Drop(); // no event or no memory: the caller is told
    }
}

void Serve(Sink& sink, ReplyPath& path, HANDLE pipe, Writer& writer)
{
    win32::Thread replies, reader, sender;
    {
        const ProductAtWork product;
        if (!replies.Start([&path] { path.replies.ReplyProcessThread(); }) ||
            !reader.Start([&path, pipe] { Read(path, pipe); }))
        {
            sink.hasLost = true;
        }
    }
    sender.Start([&writer] { writer.Run(); });
    const ULONGLONG end = ::GetTickCount64() + LongestMs;
    const bool stopsEarly = Random(4) == 0;
    while (sink.delivered < Packets && !sink.hasLost && !stopsEarly && ::GetTickCount64() < end) {
        ::Sleep(5);
    }
    if (sink.delivered < Packets && !sink.hasLost && !stopsEarly && MayLatencyBeJudged()) {
        Fault("packets were sent and are not delivered");
    }
    const ProductAtWork product;
    path.connection.m_hStop.Set();
    path.connection.m_hStopRead.Set();
    path.replies.Interrupt();
    reader.Join();
    replies.Join();
    writer.Leave();
    sender.Join();
}

} // namespace

void PlayReplies()
{
    Account account;
    account.StopJudging(); // it knows the router's whole way only
    const TraceReader traces(account);
    Host host(account);
    Sink sink;
    std::unique_ptr<ReplyPath> path;
    {
        const ProductAtWork product;
        try {
            path = std::make_unique<ReplyPath>(sink, host);
            path->DispatchToDevice(nullptr, 0);
            Read(*path, INVALID_HANDLE_VALUE);
            ReadThreads::USBReadWaitThread(path->connection, path->replies, nullptr);
        } catch (const std::bad_alloc&) {
            return;
        }
    }
    Writer writer;
    const win32::FileHandle pipe(::CreateFileA(PipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                               FILE_FLAG_OVERLAPPED, nullptr));
    Serve(sink, *path, pipe.Get(), writer);
    const ProductAtWork product;
    path.reset();
}

} // namespace sim
