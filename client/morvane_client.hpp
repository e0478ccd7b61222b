// MorvaneClient.dll for C++20: a port as an object. Header only, so the DLL's interface stays plain C. A call
// with an `int& error` does not throw; one without it throws morvane::Error. The commonest have both forms.
#pragma once

#include "morvane_client.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// As in windows.h, which this header does not need.
extern "C" __declspec(dllimport) unsigned long __stdcall GetLastError(void);

namespace morvane {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;
using Timeout = std::chrono::milliseconds;
inline constexpr Timeout Forever{MORVANE_FOREVER};

class Error : public std::runtime_error
{
public:
    explicit Error(int error) : Error(error, static_cast<std::uint32_t>(::GetLastError())) {}
    Error(int error, std::uint32_t lastError)
        : std::runtime_error(std::string(morvane_error_name(error)) + ": " + morvane_error_text(error)),
          code(error),
          windowsError(lastError)
    {
    }

    const int code;                   // MORVANE_E_...
    const std::uint32_t windowsError; // or HRESULT; 0: none
};

inline View Of(std::string_view text)
{
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// Options with their size set and everything else at its default.
inline morvane_options Options(std::int32_t deviceType, std::uint32_t port)
{
    morvane_options options{};
    options.size = sizeof options;
    options.device_type = deviceType;
    options.port = port;
    return options;
}

/// Closed at the end of its life. Any thread may call any member but Close and the destructor, which are one
/// thread's.
class Port
{
public:
    Port() noexcept = default;
    Port(const morvane_options& options, int& error) noexcept { error = morvane_open_ex(&options, &m_port); }
    explicit Port(const morvane_options& options) { Check(morvane_open_ex(&options, &m_port)); }
    Port(std::int32_t deviceType, std::uint32_t port) : Port(Options(deviceType, port)) {}
    Port(Port&& other) noexcept : m_port(std::exchange(other.m_port, 0)) {}
    Port& operator=(Port&& other) noexcept
    {
        std::swap(m_port, other.m_port);
        return *this;
    }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    ~Port() { Close(); }

    int Close() noexcept { return m_port != 0 ? morvane_close(std::exchange(m_port, 0)) : MORVANE_OK; }
    /// For the functions of morvane_client.h.
    morvane_port Get() const noexcept { return m_port; }

    void Send(View message, Timeout timeout, int& error) const noexcept
    {
        error = morvane_send(m_port, message.data(), Length(message), Milliseconds(timeout));
    }
    void Send(View message, Timeout timeout) const { Throwing(&Port::Send, message, timeout); }

    void Flush(Timeout timeout, int& error) const noexcept
    {
        error = morvane_flush(m_port, Milliseconds(timeout));
    }
    void Flush(Timeout timeout) const { Check(morvane_flush(m_port, Milliseconds(timeout))); }

    /// Into the caller's memory; the message's length, also with MORVANE_E_BUFFER.
    std::size_t Receive(std::span<std::uint8_t> room, Timeout timeout, int& error) const noexcept
    {
        std::uint32_t length = 0;
        error = morvane_receive(m_port, room.data(), Length(room), &length, Milliseconds(timeout));
        return length;
    }
    Bytes Receive(Timeout timeout, int& error) const { return Fetch(morvane_receive, timeout, error); }
    Bytes Receive(Timeout timeout) const
    {
        int error = MORVANE_OK;
        Bytes message = Receive(timeout, error);
        Check(error);
        return message;
    }
    Bytes ReceiveUnsolicited(Timeout timeout, int& error) const
    {
        return Fetch(morvane_receive_unsolicited, timeout, error);
    }

    /// Into the caller's memory, as above.
    std::size_t Request(View message, std::span<std::uint8_t> room, Timeout timeout, int& error) const noexcept
    {
        std::uint32_t length = 0;
        error = morvane_request(m_port, message.data(), Length(message), room.data(), Length(room), &length,
                                Milliseconds(timeout));
        return length;
    }
    Bytes Request(View message, Timeout timeout, int& error) const
    {
        return Ask(message, nullptr, nullptr, timeout, error);
    }
    Bytes Request(View message, Timeout timeout) const
    {
        int error = MORVANE_OK;
        Bytes reply = Request(message, timeout, error);
        Check(error);
        return reply;
    }
    /// `match` is called with a View and returns whether it is the reply. It must not throw.
    template <class Match>
    Bytes RequestMatch(View message, Match&& match, Timeout timeout, int& error) const
    {
        return Ask(message, Matching<Match>, Context(match), timeout, error);
    }
    /// Into the caller's memory, as above.
    template <class Match>
    std::size_t RequestMatch(View message, Match&& match, std::span<std::uint8_t> room, Timeout timeout,
                             int& error) const
    {
        std::uint32_t length = 0;
        error = morvane_request_match(m_port, message.data(), Length(message), Matching<Match>, Context(match),
                                      room.data(), Length(room), &length, Milliseconds(timeout));
        return length;
    }

    void Resync(Timeout quiet, Timeout timeout, int& error) const noexcept
    {
        error = morvane_resync(m_port, Milliseconds(quiet), Milliseconds(timeout));
    }
    void Reopen(Timeout timeout, int& error) const noexcept
    {
        error = morvane_reopen(m_port, Milliseconds(timeout));
    }
    void WaitReady(Timeout timeout, int& error) const noexcept
    {
        error = morvane_wait_ready(m_port, Milliseconds(timeout));
    }
    void Cancel() const noexcept { morvane_cancel(m_port); }

    /// None when `timeout` is over, or the port is closed.
    std::optional<morvane_event> NextEvent(Timeout timeout) const noexcept
    {
        morvane_event event{};
        event.size = sizeof event;
        const bool any = morvane_next_event(m_port, &event, Milliseconds(timeout)) == MORVANE_OK;
        return any ? std::optional(event) : std::nullopt;
    }

private:
    /// For every message at the first try: at a second one another thread may have taken it.
    struct Room
    {
        std::uint8_t
            data[MORVANE_LONGEST_MESSAGE + 1]; // not filled with zeros, which would cost more than the call

        Bytes Message(int error, std::uint32_t length) const
        {
            return error == MORVANE_OK ? Bytes(data, data + length) : Bytes();
        }
    };

    template <class Match>
    static int MORVANE_CALL Matching(void* context, const void* data, std::uint32_t length)
    {
        auto& match = *static_cast<std::remove_reference_t<Match>*>(context);
        return match(View(static_cast<const std::uint8_t*>(data), length)) ? 1 : 0;
    }
    template <class Match>
    static void* Context(Match& match) noexcept
    {
        return const_cast<void*>(static_cast<const void*>(&match));
    }
    static void Check(int error)
    {
        if (error != MORVANE_OK) {
            throw Error(error);
        }
    }
    static std::uint32_t Milliseconds(Timeout timeout) noexcept
    {
        const auto count = timeout.count();
        return count <= 0 ? 0 : count >= MORVANE_FOREVER ? MORVANE_FOREVER : static_cast<std::uint32_t>(count);
    }
    template <class Span>
    static std::uint32_t Length(const Span& span) noexcept
    {
        return span.size() < UINT32_MAX ? static_cast<std::uint32_t>(span.size()) : UINT32_MAX;
    }
    void Throwing(void (Port::*call)(View, Timeout, int&) const noexcept, View message, Timeout timeout) const
    {
        int error = MORVANE_OK;
        (this->*call)(message, timeout, error);
        Check(error);
    }
    template <class Function>
    Bytes Fetch(Function receive, Timeout timeout, int& error) const
    {
        Room room;
        std::uint32_t length = 0;
        error = receive(m_port, room.data, sizeof room.data, &length, Milliseconds(timeout));
        return room.Message(error, length);
    }
    Bytes Ask(View message, morvane_match match, void* context, Timeout timeout, int& error) const
    {
        Room room;
        std::uint32_t length = 0;
        error = morvane_request_match(m_port, message.data(), Length(message), match, context, room.data,
                                      sizeof room.data, &length, Milliseconds(timeout));
        return room.Message(error, length);
    }

    morvane_port m_port = 0;
};

} // namespace morvane
