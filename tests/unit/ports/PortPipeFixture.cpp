#include "tests/unit/ports/PortPipeFixture.h"

#include "win32/Event.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>

PortPipe::PortPipe()
{
    RecordingTrace::Clear();
}

PortPipe::~PortPipe()
{
    client.Close();
    port.reset();
    if (HasFailure()) {
        for (const std::string& line : RecordingTrace::Texts()) {
            std::printf("  %s\n", line.c_str());
        }
    }
    RecordingTrace::Clear();
}

InspectedPort& PortPipe::Make(std::int32_t readSize, std::int32_t writeSize, PortOptions options)
{
    port = std::make_unique<InspectedPort>(&transport, PortAddress{3, 1}, name, readSize, writeSize, options);
    return *port;
}

void PortPipe::Connect()
{
    // An open may fall into the moment of a re-creation; the port's own flag tells which open counts.
    ASSERT_TRUE(support::WaitUntil([this] {
        return client.Open(name) &&
               support::WaitUntil([this] { return port->IsPipeConnected(); }, std::chrono::milliseconds(200));
    }));
}

bool PortPipe::ClientIsOut()
{
    return client.WaitForBreak(std::chrono::milliseconds(0));
}

void PortPipe::SendToClient(const std::string& payload)
{
    port->Send(&transport, {reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size()});
}

void PortPipe::CompleteAtOnce()
{
    // Not the owner, which is null while it destroys the port: a last request may still be on its way.
    transport.OnSend([served = port.get()] { served->PacketCompleted(); });
}

void PortPipe::LeaveUnread()
{
    SendToClient("unread");
    ASSERT_TRUE(support::WaitUntil([this] { return client.Available() > 0; }));
}

void PortPipe::WhileWriting(const std::function<void()>& action)
{
    struct Moments
    {
        win32::Event writing{win32::Event::Kind::ManualReset};
        win32::Event go{win32::Event::Kind::ManualReset};
    };
    const auto moments = std::make_shared<Moments>(); // the port's thread may still be in the hook at the end
    RecordingTrace::WantDumps(true);
    RecordingTrace::OnLine([moments](const std::string& line) {
        if (line.starts_with("DEV<-PCR[03,01][004]")) {
            moments->writing.Set();
            moments->go.Wait(20'000);
        }
    });
    SendToClient("hold");
    ASSERT_TRUE(support::WaitFor(moments->writing.Get()));
    action();
    RecordingTrace::OnLine(nullptr);
    moments->go.Set();
}

testing::AssertionResult PortPipe::Traced(const std::string& text, std::int32_t device, std::uint32_t classMask)
{
    for (const support::TraceLine& line : RecordingTrace::Lines()) {
        if (line.text == text) {
            return line.device == device && line.classMask == classMask
                     ? testing::AssertionSuccess()
                     : testing::AssertionFailure()
                           << text << ": device " << line.device << ", class " << std::hex << line.classMask;
        }
    }
    return testing::AssertionFailure() << text << ": not traced";
}
