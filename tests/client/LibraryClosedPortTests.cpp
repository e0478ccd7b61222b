// Calls that found their port before another thread closed it and enter it after that: they end at once and touch
// neither the pipe nor the caller's functions. No caller of the DLL can time this, so the port itself is called.
#include "client/Port.h"
#include "tests/support/WaitUntil.h"
#include "tests/unit/tools/FakePort.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace {

using clientlib::Port;

constexpr std::uint32_t Patient = static_cast<std::uint32_t>(support::DefaultTimeout.count());
constexpr std::uint8_t Message[] = {'x'};

int MORVANE_CALL Counts(void* count, const void*, std::uint32_t)
{
    ++*static_cast<std::atomic<int>*>(count);
    return 0;
}

struct LibraryClosedPort : testing::Test
{
    clientlib::Settings Attached(const std::wstring& name)
    {
        clientlib::Settings settings;
        settings.registration.pipeName = name;
        settings.registration.readSize = settings.registration.writeSize = 100;
        settings.flags = MORVANE_ATTACH;
        settings.openTimeout = Patient;
        settings.queueLimit = 10;
        settings.unsolicited = Counts;
        settings.unsolicitedContext = &judged;
        return settings;
    }
    void OpenAt(const std::wstring& name, std::uint32_t flags = 0)
    {
        clientlib::Settings settings = Attached(name);
        settings.flags |= flags;
        port.emplace(std::move(settings), com);
        ASSERT_TRUE(port->Open().IsOk());
    }
    /// Runs the call, which would wait far longer than a closed port may keep it.
    void ExpectThatItEnds(const std::function<clientlib::Result()>& call)
    {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(call().code, MORVANE_E_CLOSED);
        EXPECT_LT(std::chrono::steady_clock::now() - start, support::DefaultTimeout / 2);
    }

    std::atomic<int> judged{0};
    std::vector<std::uint8_t> room = std::vector<std::uint8_t>(100);
    std::uint32_t length = 0;
    clientlib::ComThread com; // not used: the ports are attached
    std::optional<Port> port;
};

TEST_F(LibraryClosedPort, EndsCallsThatWaitForTheConnection)
{
    OpenAt(support::UniqueName(L"Absent"), MORVANE_BACKGROUND);
    port->Close();
    ExpectThatItEnds([&] { return port->WaitReady(Patient); });
    ExpectThatItEnds([&] { return port->Reopen(Patient); });
    morvane_event event{};
    ExpectThatItEnds([&] { return port->NextEvent(event, Patient); });
}

TEST_F(LibraryClosedPort, EndsAFlushWithoutASenderOfItsOwn)
{
    const win32::Event go(win32::Event::Kind::ManualReset);
    FakePort server([&](const std::string&) {
        go.Wait(Patient);
        return FakePort::Replies{};
    });
    OpenAt(server.Name());
    // The second one stays in the pipe.
    ASSERT_TRUE(port->Send(Message, Patient).IsOk());
    ASSERT_TRUE(port->Send(Message, Patient).IsOk());
    port->Close();
    ExpectThatItEnds([&] { return port->Flush(Patient); });
    go.Set();
}

TEST_F(LibraryClosedPort, RefusesEachCall)
{
    FakePort server(Echo);
    OpenAt(server.Name());
    port->Close();
    const Port::Room into{room.data(), 100, length};
    ExpectThatItEnds([&] { return port->Send(Message, Patient); });
    ExpectThatItEnds([&] { return port->Request(Message, nullptr, nullptr, into, Patient); });
    ExpectThatItEnds([&] { return port->Receive(Port::Kind::Expected, into, Patient); });
    ExpectThatItEnds([&] { return port->Receive(Port::Kind::Unsolicited, into, Patient); });
    ExpectThatItEnds([&] { return port->Resync(0, Patient); });
    ExpectThatItEnds([&] { return port->Cancel(); });
    HANDLE handle = nullptr;
    ExpectThatItEnds([&] { return port->WaitHandle(handle); });
}

TEST_F(LibraryClosedPort, CallsNoFunctionOfTheCaller)
{
    FakePort server(Echo, {.breaksAtFirst = 0, .breaksAtMessage = 0, .messages = true, .greeting = "welcome"});
    OpenAt(server.Name());
    HANDLE ready = nullptr;
    ASSERT_TRUE(port->WaitHandle(ready).IsOk());
    morvane_event event{};
    ASSERT_TRUE(port->NextEvent(event, Patient).IsOk());
    ASSERT_TRUE(support::WaitFor(ready)) << "the greeting has not come";
    port->Close();
    ExpectThatItEnds([&] { return port->Receive(Port::Kind::Expected, {room.data(), 100, length}, Patient); });
    EXPECT_EQ(judged, 0);
}

} // namespace
