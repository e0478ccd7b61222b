// A simulated USB instrument that answers.
#pragma once

#include "ports/packet/WireFormat.h"
#include "tests/instrument/InstrumentControl.h"
#include "tests/support/Frames.h"
#include "win32/Thread.h"

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

/// Echoes every packet to its sender.
class EchoInstrument
{
public:
    static constexpr std::uint32_t Slot = 0;
    static constexpr std::uint8_t Out = 0x02;
    static constexpr std::uint8_t In = 0x86;

    /// A long run drops them: kept payloads would look like a leak of its process.
    enum class Payloads { Kept, Dropped };

    explicit EchoInstrument(Payloads payloads = Payloads::Kept) : m_keeps(payloads == Payloads::Kept)
    {
        m_thread.Start([this] {
            while (m_go) {
                if (const auto written = m_control.TakeWritten(Slot, Out, std::chrono::milliseconds(100))) {
                    OnWritten(*written);
                }
            }
        });
    }
    ~EchoInstrument() { Stop(); }
    /// Ends it and returns the kept payloads in the order in which they arrived.
    const std::vector<std::string>& Stop()
    {
        m_go = false;
        m_thread.Join();
        return m_arrived;
    }

private:
    void OnWritten(const instrumentbus::Written& written)
    {
        const auto frame = wire::ParseFrame(written.bytes);
        if (!frame || frame->packetType != wire::PortTraffic) {
            return;
        }
        const std::string payload(frame->payload.begin(), frame->payload.end());
        if (m_keeps) {
            m_arrived.push_back(payload);
        }
        if (written.connection != m_connection) {
            m_connection = written.connection;
            m_number = 0;
        }
        const std::string echo = support::Frame(++m_number, 1, frame->deviceType, frame->port, payload);
        try {
            m_control.Feed(Slot, In, {reinterpret_cast<const std::uint8_t*>(echo.data()), echo.size()});
        } catch (const std::runtime_error&) {
            // Unplugged meanwhile: an instrument without a cable answers no one.
        }
    }

    const bool m_keeps;
    // All of the thread until it is joined.
    instrumentbus::InstrumentControl m_control;
    std::vector<std::string> m_arrived;
    std::uint32_t m_connection = 0;
    std::uint8_t m_number = 0;

    std::atomic<bool> m_go{true};
    win32::Thread m_thread;
};
