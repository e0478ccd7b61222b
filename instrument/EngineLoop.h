// The loop that plays a scripted instrument, without its cable: the ends (a pipe, a simulated USB device) derive from
// it and do the I/O.
#pragma once

#include "instrument/InstrumentEngine.h"
#include "win32/Windows.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

/// Used by the thread that runs it.
class EngineLoop
{
public:
    /// Taken: somebody else plays at this place; Refused: it can't be played at, Failure() tells why.
    enum class End { Stopped, TimeOver, EnoughRequests, Taken, Refused };

    struct Limits
    {
        std::optional<std::chrono::microseconds> time;
        std::optional<std::uint64_t> requests; // ends when so many were taken and all that was due is written
    };

    /// What the run tells, from inside itself; all may be empty.
    struct Listener
    {
        std::function<void()> served;                              // the router can find the instrument; once
        std::function<void()> connected;                           // the router is there
        std::function<void(const std::string& reason)> routerGone; // the reason may be empty
        std::function<void()> vanished;
        std::function<void()> returned;
        std::function<void()> pass; // after each pass of the loop
    };

    virtual ~EngineLoop() = default;
    EngineLoop(const EngineLoop&) = delete;
    EngineLoop& operator=(const EngineLoop&) = delete;

    End Run(const Limits& limits);

    /// After End::Refused: why, in a few words.
    const std::string& Failure() const noexcept { return m_failure; }

protected:
    EngineLoop(instrument::InstrumentEngine& engine, Listener listener);

    /// After so many steps in a row without waiting, the wait is asked again, for the sake of the stop signal.
    static constexpr int Burst = 64;

    // What an end does.
    /// The instrument can be found from now on, or FinishWith was called.
    virtual void Begin() = 0;
    /// Waits for one event of the end's, at most `milliseconds`, and handles it.
    virtual void Await(DWORD milliseconds) = 0;
    virtual bool IsWriting() const = 0;
    /// Writes `bytes`, which stay as they are until IsWriting() is false again.
    virtual void Write(const instrument::Bytes& bytes) = 0;
    virtual void Vanish() = 0;
    virtual void Return() = 0;
    /// The instrument cannot be found any more.
    virtual void Leave() = 0;
    /// What the end itself has to do at some time, and when.
    virtual void DoWhatIsDue() {}
    virtual std::optional<std::chrono::microseconds> NextDue() const { return std::nullopt; }

    // What an end tells.
    void FinishWith(End end, std::string failure = {});
    bool IsFinishedWith(End end) const noexcept { return m_end == end; }
    /// Takes back an end that was none after all.
    void GoOn() noexcept { m_end.reset(); }
    void OnServed();
    void OnConnected();
    void OnRouterGone(const std::string& reason);
    /// Plays what the engine has to write or to do just now, as far as no write is under way.
    void PlayWhatIsDue();

    instrument::InstrumentEngine& m_engine;

private:
    DWORD Patience(std::optional<std::chrono::microseconds> end) const;
    bool Play(instrument::InstrumentEngine::Order order);
    void CheckLimits(const Limits& limits, std::optional<std::chrono::microseconds> end);

    const Listener m_listener;
    instrument::Bytes m_writing;
    bool m_announced = false;
    std::string m_failure;
    std::optional<End> m_end;
};
