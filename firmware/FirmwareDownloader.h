// Loads a firmware image from a file beside the program and sends it to the instrument at connection.
// DownloadDialogue decides what is sent when; this class gives it the file, the clock, the events and one lock.
//
// The lock (m_mutex) is held for one whole event of the dialogue, with everything that the event sends, so that
// messages leave in the order of the events that caused them. Hence the order of locks: m_mutex before whatever
// lock IFirmwareTransport's operations take. NeedsDownload and IsDownloading never wait for m_mutex and may be
// called with any lock held; the other operations must not be called with a lock held that SubmitFirmware or
// ClearCommandQueue takes. No file is touched under m_mutex.
#pragma once

#include "firmware/DownloadDialogue.h"
#include "firmware/FirmwareFile.h"
#include "win32/CriticalSection.h"
#include "win32/Handle.h"
#include "win32/MirroredEvent.h"

#include <cstdint>

/// Part of a transport and used only while that lives. Nothing thrown leaves any operation: a failed allocation
/// ends the dialogue like a refusal by the instrument.
class FirmwareDownloader : private IDialogueOutput
{
public:
    /// Names the trace channels 0 and -1 in `names`. `transport` must outlive this.
    FirmwareDownloader(IFirmwareTransport& transport, IDeviceNames& names,
                       FirmwareSurroundings surroundings = FirmwareSurroundings::OfThisProcess());

    /// Replaces the image by the product's file, if there is one; returns whether an image was loaded. Bootloader
    /// version 1 is sent the whole image without waiting for acknowledgements, from now on. Command thread.
    bool ReadFirmwareFile(std::uint16_t productId, std::int32_t bootloaderVersion) noexcept;

    /// Restarts the dialogue, with all its re-sends. Command thread.
    void Download() noexcept;

    /// Whether the ports have to wait: an image is loaded and no dialogue has ended yet. Each query may re-send
    /// PREPARE_DOWNLOAD to an instrument that has not answered for more than 3000 ms. Any thread, cheap.
    bool NeedsDownload() noexcept;

    /// Whether the dialogue is running. Any thread.
    bool IsDownloading() const noexcept { return Dialogue().IsDownloading(); }

    /// One reply of the instrument: `length` bytes of text, with or without a terminating zero. Nothing when null
    /// or empty. Reply thread.
    void OnReceive(const std::uint8_t* bytes, std::uint32_t length) noexcept;

    /// Forgets a running dialogue. Any thread, but waits for an event being handled.
    void SetForDownloadOnNextConnect() noexcept;

private:
    void Completed() noexcept override REQUIRES(m_mutex);
    void Report(const char* line) noexcept override;
    void ReportChunk(std::uint32_t offset, std::uint32_t size) noexcept override;

    FirmwareReading ReadProductFile(std::uint16_t productId) noexcept;
    void ResendWhenDue() noexcept;
    /// For its const operations, which any thread may call without m_mutex; hence outside the analysis.
    const DownloadDialogue& Dialogue() const noexcept NO_THREAD_SAFETY_ANALYSIS { return m_Dialogue; }
    bool OwnCompletionMutex() noexcept REQUIRES(m_mutex);

    const FirmwareSurroundings m_Surroundings;
    win32::MirroredEvent m_hDownloaded; // once set, set for the life of the object

    win32::SharedLock m_mutex;
    DownloadDialogue m_Dialogue GUARDED_BY(m_mutex);
    const win32::KernelHandle m_CompletionMutex; // unnamed
    bool m_bCompletionOwned GUARDED_BY(m_mutex) = false;
    std::int32_t m_nSpare GUARDED_BY(m_mutex) = -1; // set on completion and read by no one
};
