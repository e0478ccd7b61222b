#include "simulation/scenario/TransferScenario.h"

#include "simulation/kernel/Devices.h"
#include "simulation/kernel/Memory.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"
#include "usb/BulkTransfer.h"
#include "usb/UsbDevice.h"
#include "win32/Event.h"
#include "win32/Thread.h"

#include <array>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

namespace sim {

namespace {

constexpr GUID AnyClass{};
constexpr std::uint32_t ReadLength = 512;
constexpr DWORD AnswerMs = 50;

/// An instrument that sends back each write as it came, and whose cable is pulled now and then.
class Echo
{
public:
    Echo()
    {
        TheInstrument().wake = Ref<Object>(&ObjectOf(m_wake.Get()));
        m_thread.Start([this] { Run(); });
    }
    ~Echo()
    {
        m_ends = true;
        m_wake.Set();
        m_thread.Join();
        TheInstrument().wake.reset();
    }
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;

private:
    void Run()
    {
        UsbInstrument& device = TheInstrument();
        while (!m_ends) {
            Plug(device);
            Serve(1 + Random(60));
            Unplug(device);
            ::Sleep(static_cast<DWORD>(Random(20)));
        }
    }

    void Serve(std::uint64_t writes)
    {
        UsbInstrument& device = TheInstrument();
        while (!m_ends && writes > 0) {
            m_wake.Wait(100);
            while (!device.fromRouter.empty() && writes > 0) {
                const Bytes bytes = std::move(device.fromRouter.front());
                device.fromRouter.pop_front();
                Feed(device, bytes);
                --writes;
            }
            writes -= Random(8) == 0 ? 1 : 0;
        }
    }

    win32::Event m_wake{win32::Event::Kind::AutoReset};
    bool m_ends = false;
    win32::Thread m_thread;
};

/// Now and then a transfer is aborted at once.
void AwaitMostly(const usb::BulkTransfer& transfer)
{
    if (Random(16) != 0) {
        ::WaitForSingleObject(transfer.EventHandle(), AnswerMs);
    }
}

/// Writes numbered messages and reads what comes back.
class Caller
{
public:
    void Run();

private:
    void UseDevice();
    void Write();
    void Read();
    /// By the endpoint's own calls, without BulkTransfer.
    void WriteByHand();
    std::vector<std::uint8_t> NextMessage();
    void Check(std::span<const std::uint8_t> message);

    usb::CallLimits m_limits;
    UsbDevice m_device{nullptr, AnyClass, false, m_limits};
    CCyUSBEndPoint* m_in = nullptr;
    CCyUSBEndPoint* m_out = nullptr;
    std::unique_ptr<usb::BulkTransfer> m_read, m_write;
    std::uint32_t m_written = 0, m_got = 0; // numbers of messages
};

void Caller::Run()
{
    for (int connections = 0; connections < 8; ++connections) {
        if (m_device.DeviceCount() == 0 || !m_device.Open(0)) {
            ::Sleep(5);
            continue;
        }
        UseDevice();
        m_device.Close();
    }
}

void Caller::UseDevice()
{
    m_in = m_out = nullptr;
    for (std::size_t slot = 1; slot < m_device.EndpointCount(); ++slot) {
        CCyUSBEndPoint* const endpoint = m_device.Endpoint(slot);
        endpoint->SetDirect(Random(2) == 0);
        (endpoint->IsIn() ? m_in : m_out) = endpoint;
    }
    if (m_in == nullptr || m_out == nullptr) {
        return; // the device left while it was opened
    }
    m_read = std::make_unique<usb::BulkTransfer>();
    m_write = std::make_unique<usb::BulkTransfer>();
    for (int step = 0; step < 40; ++step) {
        Random(4) == 0 ? WriteByHand() : Write();
        Read();
    }
    m_read.reset();
    m_write.reset();
}

std::vector<std::uint8_t> Caller::NextMessage()
{
    std::vector<std::uint8_t> message(sizeof m_written + Random(ReadLength - sizeof m_written));
    std::memcpy(message.data(), &++m_written, sizeof m_written);
    for (std::size_t i = sizeof m_written; i < message.size(); ++i) {
        message[i] = static_cast<std::uint8_t>(m_written + i);
    }
    return message;
}

void Caller::Check(std::span<const std::uint8_t> message)
{
    std::uint32_t number = 0;
    if (message.size() < sizeof number) {
        return Fault("a read brings less than was sent");
    }
    std::memcpy(&number, message.data(), sizeof number);
    if (number <= m_got || number > m_written) {
        Fault("a read brings what was not sent, twice, or out of order");
    }
    m_got = number;
    for (std::size_t i = sizeof number; i < message.size(); ++i) {
        if (message[i] != static_cast<std::uint8_t>(number + i)) {
            Fault("a read brings other bytes than were sent");
        }
    }
}

void Caller::Write()
{
    auto message = std::make_unique<std::vector<std::uint8_t>>(NextMessage());
    const std::span<const std::uint8_t> bytes(*message);
    m_write->ResetEvent();
    if (!m_write->BeginWrite(*m_out, usb::Keep(std::move(message)), bytes)) {
        return Fault("a write of an open device is not begun");
    }
    AwaitMostly(*m_write);
    std::uint32_t length = 0;
    if (!m_write->HasEnded()) {
        m_write->Abort();
    } else if (m_write->Finish(length) && length != bytes.size()) {
        Fault("a write that worked has another length");
    }
}

void Caller::Read()
{
    m_read->ResetEvent();
    if (!m_read->BeginRead(*m_in, ReadLength)) {
        return Fault("a read of an open device is not begun");
    }
    AwaitMostly(*m_read);
    std::uint32_t length = 0;
    if (!m_read->HasEnded()) {
        m_read->Abort();
    } else if (m_read->Finish(length) && length > 0) {
        Check(m_read->Received().first(length));
    }
}

void Caller::WriteByHand()
{
    auto transfer = std::make_unique<usb::Transfer>();
    const win32::Event ended(win32::Event::Kind::ManualReset);
    std::vector<std::uint8_t> message = NextMessage();
    std::uint32_t length = 0;
    if (m_out->FinishDataXfer(message.data(), length, &transfer->overlapped, nullptr) ||
        m_out->LastError() != ERROR_INVALID_PARAMETER)
    {
        Fault("a transfer without a context is finished");
    }
    transfer->overlapped.hEvent = ended.Get();
    usb::RequestBlock* const block =
        m_out->BeginDataXfer(message.data(), static_cast<std::uint32_t>(message.size()), &transfer->overlapped);
    std::array<usb::IsoPacketRecord, 1> records{};
    length = static_cast<std::uint32_t>(message.size());
    bool worked = m_out->FinishDataXfer(message.data(), length, &transfer->overlapped, block, records);
    while (!worked && m_out->LastError() == ERROR_IO_INCOMPLETE) {
        if (::WaitForSingleObject(ended.Get(), AnswerMs) != WAIT_OBJECT_0) {
            m_out->Abort();
        }
        length = static_cast<std::uint32_t>(message.size());
        worked = m_out->FinishDataXfer(message.data(), length, &transfer->overlapped, block, records);
    }
    if (worked && length != message.size()) {
        Fault("a write that worked has another length");
    }
}

} // namespace

void PlayTransfers()
{
    TheWorld().faultOneIn = 0;
    const Echo echo;
    const ProductAtWork product;
    std::make_unique<Caller>()->Run();
}

} // namespace sim
