// A program that uses one port: connects to its pipe, asks, reads the answers, leaves, comes back.
#pragma once

#include "simulation/scenario/Account.h"
#include "simulation/scenario/Instrument.h"
#include "simulation/scenario/Plan.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"

#include <array>
#include <cstdint>
#include <string>

namespace sim {

/// What all clients of a run share.
struct ClientWorld
{
    Account& account;
    Instrument& instrument;
    const Plan& plan;
    bool ends = false;     // leave as soon as possible
    bool portsEnd = false; // no port comes back any more
};

/// Runs on a thread of its own until its requests are answered or it is told to end.
class Client
{
public:
    Client(const PortPlan& port, std::string pipe, ClientWorld& world);

    void Run();
    bool IsServed() const { return m_answered >= m_port.client.requests; }

private:
    enum class Visit { Done, Broken, Left };

    bool Open();
    Visit Stay();
    Visit SayAndLeave();
    Visit Ask(int together);
    Visit AwaitAnswers(int together, std::uint64_t idleBefore);
    void BeSilent();
    void BeGreedy();
    void Die();
    void Leave();
    bool Write(std::string message);
    bool ReadMessage(DWORD milliseconds, std::string& message, bool& late);
    std::string RequestText(int number);
    bool IsJudged() const;
    void CheckExpulsion() const;
    int CountAnswers(const std::string& message);
    void CheckPipeIsNew();
    std::uint64_t Troubles() const { return m_world.account.Losses() + m_world.instrument.Pulls(); }
    void CheckService();
    void NoteFirstAnswer();
    bool Pause();

    const PortPlan& m_port;
    const std::string m_pipeName; // in full
    ClientWorld& m_world;
    win32::FileHandle m_pipe;
    std::array<char, 32768> m_buffer{}; // longer than any message: a port's buffer, echoed
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;
    std::string m_writing;
    int m_answered = 0;
    int m_serial = 0; // over all requests ever written: no two are alike
    int m_firstAwaited = 0;
    std::string m_cut;           // what has come of a number that is not complete
    bool m_settled = false;      // answered once since it connected
    std::uint64_t m_trouble = 0; // losses and pulls when it asked
    std::uint64_t m_troubleAtOpen = 0, m_idleAtOpen = 0, m_pluggedAtOpen = 0;
    std::uint64_t m_pluggedAtAsking = 0;
    int m_answersOnOldPipe = 0;
    std::uint64_t m_triesSince = 0; // us: it looks for its pipe
    std::uint64_t m_pluggedAt = 0;  // us: the plugging that was answered last
};

} // namespace sim
