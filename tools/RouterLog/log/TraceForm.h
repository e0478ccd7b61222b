// The lines that the router writes, one name each. Portable.
#pragma once

#include <cstdint>

namespace routerlog {

enum class Form : std::uint8_t {
    // the tracer's own
    BeginLogging,
    EndLogging,
    ToBeContinued,
    Continued,
    TracerTerminating,
    EntriesNotProcessed,
    BufferOverflow,
    SkippedPacket,
    // start-up summary, automation objects
    DebugOptions,
    ObjectCreated,
    ObjectDestroyed,
    // raw traffic
    RawWrite,
    RawRead,
    ReplyError,
    // packets of a port
    Request,
    Reply,
    NoConnection,
    SendToSimulation,
    PacketIgnored,
    // life of a port's pipe
    PipeStarted,
    PipeEnded,
    PipeCreated,
    PipeShuttingDown,
    PipeConnectEvent,
    PipeConnected,
    PipeOpenBroken,
    PipeWriteBroken,
    PipeReadBroken,
    PipeConnectMissed,
    PipeIdle,
    PipeWriteDenied,
    SendIgnoredReal,
    SendIgnoredSimulated,
    SendQueueFull,
    SendNoClient,
    // connection to the instrument
    UsbThreadStarted,
    UsbThreadEnded,
    UsbLooking,
    UsbPendingWrites,
    UsbWritten,
    UsbWriteBusy,
    UsbWriteAborted,
    UsbIdleWriteAborted,
    UsbIdle,
    SimThreadStarted,
    SimThreadEnded,
    SimLooking,
    SimPendingWrites,
    SimWritten,
    SimWriteBusy,
    SimIdleWriteBusy,
    SimIdle,
    SubmitQueueFull,
    SubmitNoConnection,
    NotifyState,
    IterateDevices,
    QueryDevice,
    FoundDevice,
    ConnectFailed,
    ConnectOpened,
    SimConnectOpened,
    SendFailed,
    HostGone,
    ReadThreadStarted,
    ReadThreadEnded,
    SimReadThreadStarted,
    SimReadThreadEnded,
    BytesReceived,
    ReceiveFailed,
    ReplyThreadIdle,
    ReplyThreadForward,
    FirmwareReplyCame,
    Broadcast,
    NoDestination,
    NumberGap,
    // firmware dialogue
    FirmwareFile,
    FirmwareFileName,
    FirmwareDownload,
    FirmwareStart,
    FirmwareImage,
    FirmwareChunk,
    FirmwareReceiveReady,
    FirmwareUnable,
    FirmwareDeny,
    FirmwareReady,
    FirmwareFail,
    FirmwareOk,
    FirmwareRebooting,
    FirmwareRebootingCame,
    FirmwareRetry,
    FirmwareRetriesOver,
    FirmwareNeeded,
    FirmwareNextConnect,
    FirmwareCompleted,
    FirmwareCompletedEvent,
    // failures inside the router, told by their text
    SessionEndPortsAbandoned,
    SessionEndTransportAbandoned,
    ObjectNoMemory,
    ObjectNoTypeLibrary,
    StepNoThread,
    PipeNotRestricted,
    PipeThreadNotStarted,
    PipeThreadFailed,
    PipeThreadNoEvents,
    TransportThreadNotStarted,
    ReadThreadCannotRun,
    ReadThreadNotStarted,
    UsbThreadCannotRun,
    UsbThreadFailed,
    UsbThreadFault,
    SimThreadCannotRun,
    SimThreadFailed,
    FirmwareNoEvents,
    FirmwareNoMemoryForName,
    FirmwareNoMemory,
    DebugWindowNotCreated,
};

/// Whether such a line reports a failure inside the router that happens only when Windows lacks something.
constexpr bool IsRouterFailure(Form form) noexcept
{
    return form >= Form::SessionEndPortsAbandoned;
}

/// Whether the tracer writes the line without a stamp.
constexpr bool IsBare(Form form) noexcept
{
    return form == Form::ToBeContinued || form == Form::Continued || form == Form::TracerTerminating ||
           form == Form::EntriesNotProcessed;
}

} // namespace routerlog
