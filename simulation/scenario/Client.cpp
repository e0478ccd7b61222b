#include "simulation/scenario/Client.h"

#include "simulation/kernel/Pipes.h"
#include "simulation/kernel/Scheduler.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace sim {

namespace {

constexpr DWORD FirstPauseMs = 3, LongestPauseMs = 48; // between two looks for the pipe
constexpr DWORD AnswerMs = 6000;
constexpr std::uint64_t AnswerUs = AnswerMs * std::uint64_t{1000};
constexpr std::uint64_t LongestSearchUs = 15'000'000;
// A packet that finds the write before it pending costs the command thread a millisecond.
std::uint64_t PausesUs(int requests)
{
    return 10'000 + 2000 * static_cast<std::uint64_t>(requests);
}

constexpr std::uint64_t LongestUnnoticedUs = 20'000;
constexpr int GreedyRequests = 620; // more than may be pending
constexpr int LooksForRead = 40;
constexpr std::uint64_t LongestReturnMs = 2500; // to a port that waits a second for its instrument
constexpr std::size_t LastWords = 20'000;       // more than a port's pipe holds
constexpr int MostVisits = 400;

} // namespace

Client::Client(const PortPlan& port, std::string pipe, ClientWorld& world)
    : m_port(port), m_pipeName(std::move(pipe)), m_world(world)
{
}

// While the instrument is there and quiet a port is served within the stated waits.
void Client::CheckService()
{
    const std::uint64_t trouble = Troubles();
    if (trouble != m_trouble || !m_world.instrument.IsThere()) {
        m_trouble = trouble;
        m_triesSince = NowUs();
    }
    if (NowUs() - m_triesSince > LongestSearchUs && MayLatencyBeJudged()) {
        Fault("a port is not served although the instrument is there");
    }
}

bool Client::Open()
{
    m_triesSince = NowUs();
    DWORD pause = FirstPauseMs;
    while (!m_world.ends && !m_world.portsEnd) {
        m_pipe.Reset(::CreateFileA(m_pipeName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_OVERLAPPED, nullptr));
        if (m_pipe) {
            DWORD mode = PIPE_READMODE_MESSAGE;
            ::SetNamedPipeHandleState(m_pipe.Get(), &mode, nullptr, nullptr);
            m_troubleAtOpen = Troubles();
            m_idleAtOpen = IdleUs();
            m_pluggedAtOpen = m_world.instrument.PluggedAt();
            m_answersOnOldPipe = 0;
            m_cut.clear();
            return true;
        }
        CheckService();
        if (m_port.client.hurries) {
            AwaitCreation(pause);
        } else {
            ::Sleep(pause);
        }
        pause = std::min(2 * pause, LongestPauseMs);
    }
    return false;
}

void Client::Run()
{
    for (int visits = 0; m_answered < m_port.client.requests && visits < MostVisits && Open(); ++visits) {
        m_settled = false;
        const Visit end = Stay();
        if (end == Visit::Broken) {
            CheckExpulsion();
        }
        if (end != Visit::Broken && m_world.plan.leavesTogether && Random(2) == 0) {
            m_world.instrument.Pull();
        }
        if (m_port.client.manner == Manner::Dying && end == Visit::Left) {
            Die();
        } else {
            Leave();
        }
        if (m_world.plan.LeavesStalled()) {
            ::Sleep(static_cast<DWORD>(Random(LongestReturnMs)));
        }
        if (Random(2) == 0 && m_port.client.leaves) {
            ::Sleep(static_cast<DWORD>(Random(60)));
        }
    }
}

// A port that recreates its pipe for want of a client may meet one that comes just then; it does not let it wait.
void Client::CheckExpulsion() const
{
    const bool mayBeUnnoticed = !m_settled && IdleUs() - m_idleAtOpen <= LongestUnnoticedUs;
    if (MayLatencyBeJudged() && Troubles() == m_troubleAtOpen && !mayBeUnnoticed && !m_write.IsRunning() &&
        !m_world.ends && !m_world.portsEnd && !m_world.plan.stopsEarly)
    {
        Fault("a client waits for its port and is thrown out, although the instrument is there");
    }
}

Client::Visit Client::Stay()
{
    const ClientPlan& plan = m_port.client;
    if (m_world.plan.StaysUnanswered(m_port)) {
        return SayAndLeave();
    }
    const bool mayLeave = plan.leaves || plan.manner == Manner::Dying || plan.manner == Manner::Silent;
    const int leaveAfter = mayLeave && Random(2) == 0 ? m_answered + 1 + static_cast<int>(Random(20)) : 1 << 30;
    if (plan.manner == Manner::Greedy && m_serial == 0) {
        BeGreedy();
    }
    while (m_answered < plan.requests && !m_world.ends) {
        if (m_answered >= leaveAfter) {
            if (plan.manner == Manner::Silent) {
                BeSilent();
            }
            return Visit::Left;
        }
        const int together = 1 + static_cast<int>(Random(static_cast<std::uint64_t>(plan.together)));
        if (const Visit end = Ask(together); end != Visit::Done) {
            return end;
        }
        if (plan.pauseMs != 0 && !Pause()) {
            return Visit::Broken;
        }
    }
    return Visit::Done;
}

Client::Visit Client::SayAndLeave()
{
    if (!Write(RequestText(m_serial++))) {
        return Visit::Broken;
    }
    ++m_answered; // it wants no more
    ++TheOutcome().requests;
    return Visit::Left;
}

// Waits for what comes by itself, the end of its pipe included.
bool Client::Pause()
{
    for (;;) {
        bool late = false;
        std::string message;
        if (!ReadMessage(m_port.client.pauseMs, message, late)) {
            return late;
        }
        m_world.account.OnClientGot(m_pipeName, message);
    }
}

void Client::NoteFirstAnswer()
{
    const std::uint64_t pluggedAt = m_world.instrument.PluggedAt();
    if (m_pluggedAt != 0 && m_pluggedAt != pluggedAt) {
        TheOutcome().replugAnswerUs.push_back(static_cast<std::uint32_t>(NowUs() - pluggedAt));
    }
    m_pluggedAt = pluggedAt;
}

Client::Visit Client::Ask(int together)
{
    const std::uint64_t idle = IdleUs();
    m_firstAwaited = m_serial;
    m_pluggedAtAsking = m_world.instrument.PluggedAt();
    m_trouble = Troubles();
    for (int i = 0; i < together; ++i) {
        const bool writesNothing = m_world.plan.writesNothing && Random(4) == 0;
        if ((writesNothing && !Write({})) || !Write(RequestText(m_serial++))) {
            return Visit::Broken;
        }
    }
    if (m_port.client.manner == Manner::Dying && Random(16) == 0) {
        return Visit::Left;
    }
    return AwaitAnswers(together, idle);
}

bool Client::IsJudged() const
{
    return MayLatencyBeJudged() && m_world.plan.IsSmooth() && m_settled && m_world.plan.pulls == 0;
}

// Requests written together may arrive merged, and cut where the port's buffer ended: the answers are counted by
// the numbers of the requests in them, each followed by a blank.
int Client::CountAnswers(const std::string& message)
{
    if (message == BroadcastText) {
        return 0; // it may come between two parts
    }
    int count = 0;
    m_cut += message;
    for (;;) {
        const std::size_t number = m_cut.find('#');
        const std::size_t end = m_cut.find(' ', number);
        if (number == std::string::npos || end == std::string::npos) {
            m_cut.erase(0, number);
            return count;
        }
        count += std::atoi(m_cut.c_str() + number + 1) >= m_firstAwaited ? 1 : 0; // else of an earlier visit
        m_cut.erase(0, end);
    }
}

Client::Visit Client::AwaitAnswers(int together, std::uint64_t idleBefore)
{
    const std::uint64_t askedAt = NowUs();
    int missing = together;
    while (missing > 0) {
        bool late = false;
        std::string message;
        const bool read = ReadMessage(AnswerMs, message, late);
        if (!read && !late) {
            return Visit::Broken;
        }
        if (read) {
            m_world.account.OnClientGot(m_pipeName, message);
        }
        // Old answers and repeated ones may come all the time.
        if (late || NowUs() - askedAt > AnswerUs) {
            if (m_trouble == Troubles() && MayLatencyBeJudged() && !m_world.ends && !m_world.plan.MayCut()) {
                Fault("no answer in 6 s");
            }
            return Visit::Left;
        }
        missing -= CountAnswers(message);
        if (missing <= 0 && IsJudged() && IdleUs() - idleBefore > PausesUs(together)) {
            Fault("an answer comes by a timeout only");
        }
    }
    m_answered += m_serial - m_firstAwaited;
    TheOutcome().requests += static_cast<std::uint64_t>(m_serial - m_firstAwaited);
    m_settled = true;
    NoteFirstAnswer();
    CheckPipeIsNew();
    return Visit::Done;
}

// An instrument that comes back finds new pipes. One answer may overtake the end of an old one.
void Client::CheckPipeIsNew()
{
    if (m_pluggedAtAsking != m_pluggedAtOpen && ++m_answersOnOldPipe > 1 && MayLatencyBeJudged()) {
        Fault("a client keeps its pipe although the instrument was gone");
    }
}

// Writes and does not read until it leaves.
void Client::BeSilent()
{
    for (int i = 0; i < 10 && Write(RequestText(m_serial++)); ++i) {
    }
    ::Sleep(static_cast<DWORD>(Random(400)));
}

void Client::BeGreedy()
{
    for (int i = 0; i < GreedyRequests && !m_world.ends && Write(RequestText(m_serial++)); ++i) {
        // Each is to be read by itself, for the port counts reads. It may have stopped reading.
        for (int looks = 0; looks < LooksForRead && HasUnread(m_pipe.Get()); ++looks) {
            ::Sleep(0);
        }
        bool late = false;
        std::string message;
        if (ReadMessage(0, message, late)) {
            m_world.account.OnClientGot(m_pipeName, message);
        } else if (!late) {
            return;
        }
    }
}

std::string Client::RequestText(int number)
{
    std::string text(1, static_cast<char>('a' + m_port.deviceType % 26));
    text += '#' + std::to_string(number) + ' ';
    text.append(Random(static_cast<std::uint64_t>(m_port.client.longest)), '.');
    return text + ';';
}

bool Client::Write(std::string message)
{
    if (m_write.IsRunning()) {
        return false;
    }
    m_writing = std::move(message);
    if (!m_write.Write(m_pipe.Get(), m_writing.data(), static_cast<DWORD>(m_writing.size()))) {
        return false;
    }
    if (!m_write.HasCompleted()) {
        ::WaitForSingleObject(m_write.EventHandle(), AnswerMs);
    }
    DWORD length = 0;
    return m_write.Finish(m_pipe.Get(), length);
}

// A read that was late goes on: cancelling it could lose what it has.
bool Client::ReadMessage(DWORD milliseconds, std::string& message, bool& late)
{
    if (!m_read.IsPending() && !m_read.Read(m_pipe.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size()))) {
        return false;
    }
    if (!m_read.HasCompleted()) {
        if (::WaitForSingleObject(m_read.EventHandle(), milliseconds) != WAIT_OBJECT_0 && !m_read.HasCompleted()) {
            late = true;
            return false;
        }
    }
    DWORD length = 0;
    if (!m_read.Finish(m_pipe.Get(), length)) {
        return false;
    }
    message.assign(m_buffer.data(), length);
    return true;
}

void Client::Leave()
{
    m_read.Cancel();
    m_write.Cancel();
    m_pipe.Reset();
}

// Its process ends: its handle closes while requests are pending.
void Client::Die()
{
    if (!m_write.IsPending() && Random(2) == 0) {
        m_writing = RequestText(m_serial++) + std::string(LastWords, '.');
        m_write.Write(m_pipe.Get(), m_writing.data(), static_cast<DWORD>(m_writing.size()));
    }
    m_pipe.Reset();
    DWORD unused = 0;
    m_read.Finish(nullptr, unused);
    m_write.Finish(nullptr, unused);
}

} // namespace sim
