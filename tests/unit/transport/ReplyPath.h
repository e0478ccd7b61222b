// The reply path alone: the connection, the downloader and the replies, without the driver's threads.
#pragma once

#include "tests/unit/ports/FakeTransport.h"
#include "tests/unit/transport/FakeHost.h"
#include "transport/Replies.h"

/// Stands for the transport that the replies come from.
class ReplyPath final : public FakeTransport, private IFirmwareTransport
{
public:
    explicit ReplyPath(FakeHost& host) : connection(host), m_firmware(*this, host) {}

    void DispatchToDevice(const std::uint8_t* data, std::uint32_t length) override
    {
        replies.Dispatch({data, length});
    }

    Connection connection;

private:
    void SubmitFirmware(std::span<const std::uint8_t>) override {}
    void ClearCommandQueue() override {}

    FirmwareDownloader m_firmware;

public:
    Replies replies{*this, connection, m_firmware};
};
