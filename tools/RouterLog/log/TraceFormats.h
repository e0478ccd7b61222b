// Every line that the router writes into its logs: format, class, meaning. The one table that parsing goes by. Portable.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace routerlog {

/// What must be traced for a line to appear. Firmware is the class of USB events on device number 0, which has a mask
/// of its own.
enum class TraceClass : std::uint8_t {
    Always, // written by the tracer itself, or to the skipped-packet log
    ReadWrite,
    Packets,
    Pipe,
    Usb,
    Firmware,
    Dispatch,
    General,
};
inline constexpr std::size_t TraceClassCount = 8;

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

/// Whether such a line tells of a failure inside the router that happens only when Windows lacks something.
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

struct TraceFormat
{
    Form form;
    TraceClass traceClass;
    std::string_view format;  // as the router's source has it, without a line end
    std::string_view meaning; // for people, in a few words
};

/// In no particular order.
std::span<const TraceFormat> TraceFormats() noexcept;

struct TraceClassText
{
    std::string_view key;    // in JSON and on the command line
    std::string_view name;   // the label of the Debug Options dialog
    std::string_view device; // whose mask
    std::uint32_t fileBit;   // in that mask; 0 for none
};

const TraceClassText& TextOf(TraceClass traceClass) noexcept;

} // namespace routerlog
