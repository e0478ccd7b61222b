// The router's end of the simulator pipe, for tests of the simulator.
#pragma once

#include "client/ClientPipe.h"
#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"
#include "tests/support/Frames.h"
#include "tests/support/UniqueName.h"
#include "tests/support/WaitUntil.h"
#include "win32/Event.h"

#include <optional>
#include <string>
#include <vector>

/// One thread.
class RouterEnd
{
public:
    explicit RouterEnd(const std::wstring& pipeName) : m_pipe(support::PipePath(pipeName), m_never.Get()) {}

    bool Open()
    {
        m_number = 0;
        m_received.Clear();
        return m_pipe.Open(support::DefaultTimeout) == ClientPipe::Outcome::Done;
    }
    void Close() { m_pipe.Close(); }

    bool Send(std::uint8_t deviceType, std::uint8_t port, const std::string& payload)
    {
        return WriteBytes(support::Frame(m_number++, wire::PortTraffic, deviceType, port, payload));
    }
    bool WriteBytes(const std::string& bytes)
    {
        const std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
        return m_pipe.Write(copy, support::DefaultTimeout) == ClientPipe::Outcome::Done;
    }

    struct Packet
    {
        int number;
        int deviceType;
        int port;
        std::string payload;
    };

    /// The next whole packet; none when the pipe broke first.
    std::optional<Packet> Next()
    {
        for (;;) {
            if (const auto sync = wire::FindSync(m_received.Bytes())) {
                m_received.Consume(*sync);
                if (const auto frame = wire::ParseFrame(m_received.Bytes())) {
                    Packet packet{frame->packetNumber, frame->deviceType, frame->port,
                                  std::string(frame->payload.begin(), frame->payload.end())};
                    m_received.Consume(frame->Length());
                    return packet;
                }
            }
            if (!ReadMore()) {
                return std::nullopt;
            }
        }
    }

    /// What one read gives, unparsed; empty when the pipe broke.
    std::string ReadPiece()
    {
        std::vector<std::uint8_t> bytes;
        return m_pipe.Read(bytes, support::DefaultTimeout) == ClientPipe::Outcome::Done
                 ? std::string(bytes.begin(), bytes.end())
                 : std::string();
    }

    std::size_t Unparsed() const { return m_received.Size(); }

private:
    bool ReadMore()
    {
        std::vector<std::uint8_t> bytes;
        if (m_pipe.Read(bytes, support::DefaultTimeout) != ClientPipe::Outcome::Done) {
            return false;
        }
        m_received.Append(bytes);
        return true;
    }

    win32::Event m_never{win32::Event::Kind::ManualReset};
    ClientPipe m_pipe;
    ReceiveBuffer m_received;
    std::uint8_t m_number = 0;
};
