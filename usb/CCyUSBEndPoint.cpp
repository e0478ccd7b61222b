#include "usb/CCyUSBEndPoint.h"

#include "usb/ControlCodes.h"

#include <algorithm>
#include <cstring>
#include <utility>

usb::RequestBlock* CCyUSBEndPoint::BeginDirectXfer(std::uint8_t* buffer, std::uint32_t length,
                                                   OVERLAPPED* overlapped)
{
    return StartDirect({.endpointAddress = Address()}, {buffer, length}, overlapped);
}

usb::RequestBlock* CCyUSBEndPoint::BeginBufferedXfer(std::uint8_t* buffer, std::uint32_t length,
                                                     OVERLAPPED* overlapped)
{
    const usb::TransferHeader header{
        .endpointAddress = Address(), .dataOffset = usb::TransferHeaderSize, .dataLength = length};
    return StartBuffered(usb::ControlBufferedTransfer, header, {buffer, length}, overlapped);
}

usb::RequestBlock* CCyUSBEndPoint::StartDirect(const usb::TransferHeader& header, std::span<std::uint8_t> data,
                                               OVERLAPPED* overlapped)
{
    auto block = std::make_unique<usb::RequestBlock>(header, std::size_t{header.isoPacketLength});
    Start(usb::ControlDirectTransfer, *block, data, overlapped);
    return block.release();
}

usb::RequestBlock* CCyUSBEndPoint::StartBuffered(DWORD code, const usb::TransferHeader& header,
                                                 std::span<const std::uint8_t> data, OVERLAPPED* overlapped)
{
    const std::size_t trailing = header.dataOffset - usb::TransferHeaderSize + data.size();
    auto block = std::make_unique<usb::RequestBlock>(header, trailing);
    std::copy(data.begin(), data.end(), block->Part(header.dataOffset, data.size()).begin());
    Start(code, *block, block->Bytes(), overlapped);
    return block.release();
}

void CCyUSBEndPoint::Start(DWORD code, usb::RequestBlock& block, std::span<std::uint8_t> output,
                           OVERLAPPED* overlapped) noexcept
{
    if (m_abandoned.IsFull()) {
        m_lastError = ERROR_NO_SYSTEM_RESOURCES;
        block.refusal = m_lastError;
        return;
    }
    const std::span<std::uint8_t> input = block.Bytes();
    DWORD returned = 0;
    const BOOL completed =
        ::DeviceIoControl(m_device, code, input.data(), static_cast<DWORD>(input.size()), output.data(),
                          static_cast<DWORD>(output.size()), &returned, overlapped);
    m_lastError = completed != FALSE ? ERROR_SUCCESS : ::GetLastError();
    if (completed != FALSE) {
        block.returnedAtOnce = returned;
    } else if (m_lastError != ERROR_IO_PENDING) {
        block.refusal = m_lastError;
    }
    KeepStatuses(block);
}

bool CCyUSBEndPoint::FinishDataXfer(std::uint8_t* buffer, std::uint32_t& length, OVERLAPPED* overlapped,
                                    usb::RequestBlock* context, std::span<usb::IsoPacketRecord> records) noexcept
{
    const std::uint32_t room = std::exchange(length, 0u);
    if (context == nullptr) {
        m_lastError = ERROR_INVALID_PARAMETER;
        ::SetLastError(m_lastError);
        return false;
    }
    DWORD returned = context->returnedAtOnce.value_or(0);
    bool worked = context->returnedAtOnce.has_value();
    m_lastError = context->refusal.value_or(ERROR_SUCCESS);
    // "GetOverlappedResult function": it reports a request that is or was pending. The record of a refused one may
    // hold any status, also success.
    if (context->IsPending()) {
        worked = ::GetOverlappedResult(m_device, overlapped, &returned, FALSE) != FALSE;
        m_lastError = worked ? ERROR_SUCCESS : ::GetLastError();
        if (m_lastError == ERROR_IO_INCOMPLETE) {
            return false; // asked before the event was signalled; GetLastError() still says so
        }
    }
    std::unique_ptr<usb::RequestBlock> block(context);
    KeepStatuses(*block);
    TakeData(*block, returned, {buffer, room});
    TakeRecords(*block, records);
    block.reset();
    length = m_transferred;
    const bool good = m_ntStatus == 0 && m_usbdStatus == 0;
    if (worked && !good) {
        // Only the driver's statuses report it, and no read follows a failed one. Were that no error of Windows
        // either, the transport would believe in a connection without reads.
        m_lastError = ERROR_GEN_FAILURE;
    }
    ::SetLastError(m_lastError);
    return worked && good;
}

void CCyUSBEndPoint::TakeData(usb::RequestBlock& block, std::uint32_t returned,
                              std::span<std::uint8_t> room) noexcept
{
    const std::uint32_t offset = block.Header().dataOffset; // 0 in direct requests
    m_transferred = returned > offset ? returned - offset : 0;
    if (m_in) {
        // A driver may report more than was asked for: that is cut.
        m_transferred = static_cast<std::uint32_t>(std::min<std::size_t>(m_transferred, room.size()));
    }
    if (offset != 0 && m_in && m_transferred != 0) {
        const std::span<const std::uint8_t> data = block.Part(offset, m_transferred);
        std::copy(data.begin(), data.end(), room.begin());
        m_transferred = static_cast<std::uint32_t>(data.size());
    }
}

void CCyUSBEndPoint::TakeRecords(usb::RequestBlock& block, std::span<usb::IsoPacketRecord> records) const noexcept
{
    if (records.empty() || m_transferred == 0) {
        return;
    }
    const usb::TransferHeader header = block.Header();
    const std::span<const std::uint8_t> bytes =
        block.Part(header.isoPacketOffset, std::min<std::size_t>(header.isoPacketLength, records.size_bytes()));
    std::memcpy(records.data(), bytes.data(), bytes.size());
}

void CCyUSBEndPoint::KeepStatuses(const usb::RequestBlock& block) noexcept
{
    const usb::TransferHeader header = block.Header();
    m_usbdStatus = header.usbdStatus;
    m_ntStatus = header.ntStatus;
}

bool CCyUSBEndPoint::Abort() noexcept
{
    DWORD returned = 0;
    std::uint8_t address = Address();
    return usb::DeviceControl(m_device, usb::ControlAbortPipe, {&address, 1}, returned, m_limits, m_abandoned);
}
