#include "tests/unit/transport/UsbFixture.h"

#include <cstdio>

namespace usbtransport {

namespace {

// Stands in for the next packet's number while there is no connection.
constexpr std::uint8_t NotBegun = 177;

} // namespace

UsbTransport::UsbTransport()
{
    bus.Clear();
    host.AddPort(3, 1);
    RecordingTrace::Clear();
}

UsbTransport::~UsbTransport()
{
    if (HasFailure()) {
        for (const std::string& text : RecordingTrace::Texts()) {
            std::printf("%s\n", text.c_str());
        }
    }
    host.quietSeconds.Set();
    driver.reset();
    bus.Clear();
    RecordingTrace::Clear(); // a hook of the test is removed before what it refers to
}

void UsbTransport::Start()
{
    // On the command thread, in every connect procedure: no packet is submitted there before the numbering begins.
    RecordingTrace::OnLine([this](const std::string& line) {
        if (line == "CCyUSBDriver::NotifyState(Not Connected)") {
            m_started->m_outgoing.SetNextNumber(NotBegun);
            ++m_procedures;
        }
        if (onLine) {
            onLine(line);
        }
    });
    m_started = &driver.emplace(false, host);
    driver->Reconnect();
}

void UsbTransport::Connect(const instrumentbus::Description& description)
{
    bus.Plug(0, description);
    Start();
    AwaitConnection();
}

void UsbTransport::AwaitConnection(std::uint32_t slot)
{
    ASSERT_NO_FATAL_FAILURE(AwaitLoss());
    ASSERT_TRUE(support::WaitUntil([&] { return driver->m_outgoing.NextNumber() != NotBegun; }));
    ASSERT_TRUE(bus.WaitFor(slot, In, [](const Counters& c) { return c.pending == 1; }));
    m_proceduresBefore = m_procedures;
    m_connection = bus.Count(slot).opens;
    nextNumber = 0;
}

void UsbTransport::AwaitLoss()
{
    ASSERT_TRUE(support::WaitUntil([&] { return m_procedures > m_proceduresBefore; }));
}

void UsbTransport::Lose(std::uint32_t slot)
{
    bus.Unplug(slot);
    AwaitLoss();
}

void UsbTransport::Reopen()
{
    driver->Reconnect();
    AwaitConnection();
}

void UsbTransport::Send(std::string_view payload)
{
    driver->Send(3, 1, reinterpret_cast<const std::uint8_t*>(payload.data()),
                 static_cast<std::uint32_t>(payload.size()));
    host.quietSeconds.Set();
}

std::optional<std::string> UsbTransport::NextFrame(std::uint32_t slot)
{
    for (;;) {
        const std::optional<instrumentbus::Written> written = bus.TakeWritten(slot, Out);
        if (!written) {
            return std::nullopt;
        }
        if (written->connection >= m_connection) {
            return std::string(written->bytes.begin(), written->bytes.end());
        }
    }
}

std::optional<std::string> UsbTransport::NextRequest(std::uint32_t slot)
{
    for (;;) {
        std::optional<std::string> frame = NextFrame(slot);
        if (!frame || frame->size() < wire::FrameOverhead) {
            return std::nullopt;
        }
        EXPECT_EQ(static_cast<std::uint8_t>((*frame)[2]), nextNumber);
        if (*frame != Frame(nextNumber++, 238, 238, 238, "")) {
            return frame;
        }
    }
}

testing::AssertionResult UsbTransport::NextIs(std::string_view payload, std::uint32_t slot)
{
    const std::optional<std::string> frame = NextRequest(slot);
    if (!frame) {
        return testing::AssertionFailure() << "nothing was written";
    }
    const std::string expected = Frame(static_cast<std::uint8_t>(nextNumber - 1), 1, 3, 1, payload);
    return *frame == expected ? testing::AssertionSuccess()
                              : testing::AssertionFailure() << testing::PrintToString(*frame);
}

void UsbTransport::Feed(const std::string& bytes, std::uint32_t slot)
{
    bus.Feed(slot, In, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

testing::AssertionResult UsbTransport::Delivered(std::size_t count, std::string_view last)
{
    if (!support::WaitUntil([&] { return host.Deliveries().size() >= count; })) {
        return testing::AssertionFailure() << host.Deliveries().size() << " deliveries";
    }
    const std::vector<FakeHost::Delivery> deliveries = host.Deliveries();
    return deliveries.size() == count && deliveries.back().payload == last
             ? testing::AssertionSuccess()
             : testing::AssertionFailure()
                   << deliveries.size()
                   << " deliveries, the last: " << testing::PrintToString(deliveries.back().payload);
}

Rule UsbTransport::For(std::uint8_t endpoint, std::uint32_t actions, std::uint32_t count)
{
    Rule rule{};
    rule.endpoint = endpoint;
    rule.actions = actions;
    rule.count = count;
    return rule;
}

Rule UsbTransport::ForControl(std::uint32_t code, std::uint32_t actions)
{
    Rule rule{};
    rule.code = code;
    rule.actions = actions;
    return rule;
}

testing::AssertionResult UsbTransport::TracedInOrder(std::initializer_list<std::string_view> parts)
{
    const std::vector<std::string> texts = RecordingTrace::Texts();
    auto next = texts.begin();
    for (const std::string_view part : parts) {
        while (next != texts.end() && next->find(part) == std::string::npos) {
            ++next;
        }
        if (next == texts.end()) {
            return testing::AssertionFailure() << "missing, or not in its place: " << part;
        }
        ++next;
    }
    return testing::AssertionSuccess();
}

} // namespace usbtransport
