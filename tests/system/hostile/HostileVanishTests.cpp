// An instrument that goes away in every state, and one that is there and does not take part.
#include "tests/support/UniqueName.h"
#include "tests/system/ServedPort.h"
#include "tests/system/hostile/HostileFixture.h"
#include "tests/system/hostile/InstrumentScript.h"
#include "win32/Event.h"

namespace {

using hostile::Case;
using hostile::End;
using support::PipeClient;

/// Sends the request that makes the instrument go until the pipe breaks.
void SendAway(End& end, const char* leaving)
{
    auto& client = end.Hold(std::make_shared<PipeClient>());
    const std::string pipe = end.Register(hostile::PortOfLeaving(leaving));
    ASSERT_TRUE(support::WaitUntil([&] {
        return client.Open(pipe) && client.Write(std::string(200, 'v')) &&
               client.WaitForBreak(std::chrono::seconds(5));
    }));
}

std::vector<Case> Leavings()
{
    std::vector<Case> cases;
    for (const hostile::Leaving& leaving : hostile::Leavings()) {
        cases.push_back({leaving.name, [name = leaving.name](End& end) { SendAway(end, name); }, true});
    }
    return cases;
}

void WhileAClientWrites1MB(End& end)
{
    auto& writer = end.Hold(std::make_shared<PipeClient>());
    ASSERT_NO_FATAL_FAILURE(end.Open(writer, 1));
    // Nothing is read meanwhile, so the write stops where the instrument's answers stop being taken.
    writer.Write(std::string(1u << 20, 'm'), std::chrono::milliseconds(50));
    ASSERT_NO_FATAL_FAILURE(SendAway(end, "BeforeTheAnswer"));
}

void WhileAListenerIsStuck(End& end)
{
    auto& stuck = end.Hold(std::make_shared<PipeClient>());
    ASSERT_NO_FATAL_FAILURE(end.Open(stuck, 2));
    for (int request = 0; request < 20; ++request) {
        ASSERT_TRUE(stuck.Write(std::string(30'000, 's')));
    }
    ASSERT_NO_FATAL_FAILURE(SendAway(end, "InMidPayload"));
}

void WhilePortsComeAndGo(End& end)
{
    ASSERT_NO_FATAL_FAILURE(SendAway(end, "BeforeTheAnswer"));
    for (ULONG port = 30; port < 60; ++port) {
        end.Register(port);
        EXPECT_EQ(end.Router().Unregister(End::DeviceType, port - 1), S_OK);
    }
}

void TwiceInARow(End& end)
{
    for (int time = 0; time < 2; ++time) {
        ASSERT_NO_FATAL_FAILURE(SendAway(end, "AfterTheHeader"));
        ASSERT_EQ(end.Router().Unregister(End::DeviceType, hostile::PortOfLeaving("AfterTheHeader")), S_OK);
    }
}

void Killed(End& end)
{
    end.Everyone().KillInstrument();
    end.Everyone().StartInstrument();
}

/// Serves the instrument's pipe itself. One thread.
class MuteInstrument
{
public:
    MuteInstrument()
        : m_pipe(::CreateNamedPipeW(LR"(\\.\pipe\UsbPipeSimulator)", PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                    PIPE_TYPE_BYTE, 1, 512, 512, 0, nullptr))
    {
    }
    bool WaitForRouter()
    {
        DWORD unused = 0;
        return m_connect.ConnectPipe(m_pipe.Get()) && support::WaitFor(m_connect.EventHandle()) &&
               m_connect.Finish(m_pipe.Get(), unused);
    }
    void Say(std::string_view bytes)
    {
        m_said = bytes;
        m_write.Write(m_pipe.Get(), m_said.data(), static_cast<DWORD>(m_said.size()));
        support::WaitFor(m_write.EventHandle());
    }
    /// Whether the router writes anything at all.
    bool WaitForBytes() const
    {
        return support::WaitUntil([&] {
            DWORD available = 0;
            return ::PeekNamedPipe(m_pipe.Get(), nullptr, 0, nullptr, &available, nullptr) && available > 0;
        });
    }
    void Hang(PipeClient& client)
    {
        while (client.Write(std::string(5000, 'h'), std::chrono::milliseconds(100))) {
        }
    }
    void Leave()
    {
        m_connect.Cancel();
        m_write.Cancel();
        ::DisconnectNamedPipe(m_pipe.Get());
    }

private:
    std::string m_said;
    win32::FileHandle m_pipe;
    win32::OverlappedOperation m_connect;
    win32::OverlappedOperation m_write;
};

void InstrumentNeverReads(End& end)
{
    end.Everyone().KillInstrument();
    {
        MuteInstrument mute;
        ASSERT_TRUE(mute.WaitForRouter());
        auto& client = end.Hold(std::make_shared<PipeClient>());
        ASSERT_TRUE(client.Open(end.Register(1)));
        mute.Hang(client);
        ASSERT_TRUE(mute.WaitForBytes());
    }
    end.Everyone().StartInstrument();
}

void LeavesAtOnceEachTime(End& end)
{
    end.Everyone().KillInstrument();
    {
        MuteInstrument mute;
        for (int time = 0; time < 20; ++time) {
            ASSERT_TRUE(mute.WaitForRouter());
            mute.Leave();
        }
    }
    end.Everyone().StartInstrument();
}

void SaysOneByteAndLeaves(End& end)
{
    end.Everyone().KillInstrument();
    {
        MuteInstrument mute;
        for (int time = 0; time < 20; ++time) {
            ASSERT_TRUE(mute.WaitForRouter());
            mute.Say("#");
            mute.Leave();
        }
    }
    end.Everyone().StartInstrument();
}

class HostileInstrumentThatLeaves : public hostile::HostileEnd
{};

TEST_P(HostileInstrumentThatLeaves, ServesTheOtherClientAgain)
{
    ActAndLook();
}

INSTANTIATE_TEST_SUITE_P(Leaves, HostileInstrumentThatLeaves, testing::ValuesIn(Leavings()), hostile::NameOf);
INSTANTIATE_TEST_SUITE_P(Goes, HostileInstrumentThatLeaves,
                         testing::Values(Case{"WhileAClientWrites1MB", WhileAClientWrites1MB, true},
                                         Case{"WhileAListenerIsStuck", WhileAListenerIsStuck, true},
                                         Case{"WhilePortsComeAndGo", WhilePortsComeAndGo, true},
                                         Case{"TwiceInARow", TwiceInARow, true}, Case{"Killed", Killed, true},
                                         Case{"NeverReads", InstrumentNeverReads, true},
                                         Case{"LeavesAtOnceEachTime", LeavesAtOnceEachTime, true},
                                         Case{"SaysOneByteAndLeaves", SaysOneByteAndLeaves, true}),
                         hostile::NameOf);

} // namespace
