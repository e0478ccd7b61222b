// The text dialogue that downloads an image into the instrument, as a state machine without files, threads or
// Windows.
//
//   router                         instrument
//   PREPARE_DOWNLOAD <size>\r  ->
//                              <-  RECEIVE_READY <size> <chunk size>
//   DOWNLOAD <bytes>           ->
//                              <-  DOWNLOAD_OK              (for each chunk)
//   DOWNLOAD_DONE\r\0          ->
//                              <-  DOWNLOAD_OK
//
// Anything else from the instrument ends the dialogue, and every end is the same: the ports are released.
#pragma once

#include "firmware/ChunkPlan.h"
#include "firmware/FirmwareImage.h"
#include "firmware/FirmwareTransport.h"

#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

/// Hears of the dialogue while it handles an event.
class IDialogueOutput
{
public:
    virtual ~IDialogueOutput() = default;

    /// The dialogue has ended, one way or another.
    virtual void Completed() noexcept = 0;
    virtual void Report(const char* line) noexcept = 0;
    virtual void ReportChunk(std::uint32_t offset, std::uint32_t size) noexcept = 0;
};

/// One thread at a time, but for the operations named for any thread. Nothing thrown leaves it: a failed
/// allocation, its own or the transport's, ends the dialogue.
class DownloadDialogue
{
public:
    enum class State : std::int32_t {
        Idle = 0,
        WaitingForReady = 2, // PREPARE_DOWNLOAD is sent
        SendingImage = 4,
        Unused = 5 // nothing enters it; it counts as not downloading
    };

    static constexpr std::int32_t DefaultChunkSize = 4000;
    static constexpr std::int32_t MaxRetries = 3;
    static constexpr std::uint32_t RetryAfter = 3000; // ms

    /// Both are borrowed.
    DownloadDialogue(IFirmwareTransport& transport, IDialogueOutput& output) noexcept
        : m_Transport(transport), m_Output(output)
    {
    }

    /// The image for the next dialogue, null for none; one that is being sent goes on with its own.
    void SetImage(FirmwareImagePtr image) noexcept;
    /// The size that PREPARE_DOWNLOAD tells; stays when an image is taken away.
    void SetImageSize(std::uint32_t size) noexcept { m_nImageSize = size; }
    /// From now on all chunks go out at once, unasked.
    void SwitchQueuedModeOff() noexcept { m_bQueued = false; }

    /// Begins the dialogue with all its retries. `tick` is the time now in ms.
    void Start(std::uint32_t tick) noexcept;
    /// Sends PREPARE_DOWNLOAD once more, when that is due.
    void Retry(std::uint32_t tick) noexcept;
    /// One reply of the instrument; its text ends at the first zero.
    void Receive(std::string_view reply) noexcept;
    void Reset() noexcept { m_nState = State::Idle; }

    // Any thread. Each answer is right by itself; Retry decides again.
    State CurrentState() const noexcept { return m_nState; }
    bool IsDownloading() const noexcept;
    bool HasImage() const noexcept { return m_bImage; }
    bool IsRetryDue(std::uint32_t tick) const noexcept;
    std::int32_t RetryCount() const noexcept { return m_nRetries; }

private:
    enum class Event { Start = 1, InstrumentReady = 3, ChunkAcknowledged = 4, End = 5 };

    void Dispatch(Event event) noexcept;
    void Handle(Event event);
    void ReceiveWhileWaiting(std::string_view text) noexcept;
    void ReceiveWhileSending(std::string_view text) noexcept;
    void DownloadStart();
    void DownloadImage();
    /// Reports the chunk at `offset` and returns its size, 0 when there is none.
    std::uint32_t ReportChunk(const ChunkPlan& chunks, std::uint32_t offset) noexcept;
    /// Sends the next message of `chunks`, made in `message`; false when none is left.
    bool SubmitNext(ChunkPlan& chunks, std::vector<std::uint8_t>& message);

    IFirmwareTransport& m_Transport;
    IDialogueOutput& m_Output;
    FirmwareImagePtr m_Image;
    std::uint32_t m_nImageSize = 0;
    std::int32_t m_nChunkSize = DefaultChunkSize; // bytes, the instrument's answer: any number
    bool m_bQueued = true;                        // one chunk for each acknowledgement
    ChunkPlan m_Chunks;                           // what a queued download has yet to send

    // Written as above, read by any thread.
    std::atomic<State> m_nState{State::Idle};
    std::atomic<bool> m_bImage{false};
    std::atomic<std::uint32_t> m_nStartTick{0}; // ms, of the last PREPARE_DOWNLOAD
    std::atomic<std::int32_t> m_nRetries{0};
};
