#include "tests/instrument/InstrumentControl.h"

#include "tests/instrument/RemoteCall.h"

#include <cstring>
#include <stdexcept>
#include <string>

namespace instrumentbus {

namespace {

// The longest write that is taken whole.
constexpr std::size_t LongestWrite = 128u << 10;

template <class T>
std::span<const std::uint8_t> BytesOf(const T& object)
{
    return {reinterpret_cast<const std::uint8_t*>(&object), sizeof object};
}

[[noreturn]] void ThrowRefusal(std::uint32_t code, DWORD error)
{
    throw std::runtime_error("remote request " + std::to_string(code) + " failed with error " +
                             std::to_string(error));
}

} // namespace

InstrumentControl::InstrumentControl() : m_remote(OpenRemote())
{
    if (!m_remote) {
        throw std::runtime_error("the simulated instruments' driver is not installed");
    }
}

Bytes InstrumentControl::Ask(std::uint32_t code, std::span<const std::uint8_t> input, std::size_t answerSize)
{
    Bytes answer(answerSize);
    std::uint32_t answered = 0;
    if (const DWORD error = RemoteCall(m_remote.Get(), code, input, answer, answered, DefaultTimeout)) {
        ThrowRefusal(code, error);
    }
    answer.resize(answered);
    return answer;
}

void InstrumentControl::Clear()
{
    Ask(RemoteClear, {});
}

void InstrumentControl::Plug(std::uint32_t slot, const Description& description)
{
    Ask(RemotePlug, Encoded(description, slot));
}

void InstrumentControl::Unplug(std::uint32_t slot)
{
    Ask(RemoteUnplug, BytesOf(Target{slot, 0}));
}

std::optional<Written> InstrumentControl::TakeWritten(std::uint32_t slot, std::uint8_t endpoint,
                                                      Milliseconds timeout)
{
    m_taken.resize(sizeof(Taken) + LongestWrite);
    std::uint32_t taken = 0;
    const Target target{slot, endpoint};
    const DWORD error = RemoteCall(m_remote.Get(), RemoteTake, BytesOf(target), m_taken, taken, timeout);
    if (error == ERROR_OPERATION_ABORTED) {
        return std::nullopt;
    }
    if (error != ERROR_SUCCESS) {
        ThrowRefusal(RemoteTake, error);
    }
    Taken head{};
    std::memcpy(&head, m_taken.data(), sizeof head);
    return Written{head.connection, Bytes(m_taken.begin() + sizeof head, m_taken.begin() + taken)};
}

void InstrumentControl::Feed(std::uint32_t slot, std::uint8_t endpoint, std::span<const std::uint8_t> bytes)
{
    const Target target{slot, endpoint};
    const auto head = BytesOf(target);
    Bytes input(head.begin(), head.end());
    input.insert(input.end(), bytes.begin(), bytes.end());
    Ask(RemoteFeed, input);
}

void InstrumentControl::SetRule(const Rule& rule)
{
    Ask(RemoteRule, BytesOf(rule));
}

void InstrumentControl::Release(std::uint32_t slot, std::uint32_t endpoint)
{
    Ask(RemoteRelease, BytesOf(Target{slot, endpoint}));
}

Counters InstrumentControl::Count(std::uint32_t slot, std::uint8_t endpoint)
{
    const Bytes answer = Ask(RemoteCounters, BytesOf(Target{slot, endpoint}), sizeof(Counters));
    Counters counters{};
    std::memcpy(&counters, answer.data(), sizeof counters);
    return counters;
}

bool InstrumentControl::WaitFor(std::uint32_t slot, std::uint8_t endpoint,
                                const std::function<bool(const Counters&)>& holds, Milliseconds timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!holds(Count(slot, endpoint))) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        ::Sleep(1); // the driver counts without announcing it
    }
    return true;
}

} // namespace instrumentbus
