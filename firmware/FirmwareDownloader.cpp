#include "firmware/FirmwareDownloader.h"

#include "trace/Trace.h"
#include "win32/Text.h"

#include <limits>
#include <string>
#include <utility>

FirmwareDownloader::FirmwareDownloader(IFirmwareTransport& transport, IDeviceNames& names,
                                       FirmwareSurroundings surroundings)
    : m_Surroundings(std::move(surroundings)),
      m_Dialogue(transport, *this),
      m_CompletionMutex(::CreateMutexW(nullptr, FALSE, nullptr))
{
    names.RegisterDeviceName(L"_FirmwareDownload", trace::FirmwareChannel);
    names.RegisterDeviceName(L"_FirmwareDebug", trace::RouterChannel);
    if (m_hDownloaded.Get() == nullptr || !m_CompletionMutex) {
        Report(
            "FirmwareDownloader::FirmwareDownloader() Windows has no event or mutex for it, no download can end");
    }
}

bool FirmwareDownloader::ReadFirmwareFile(std::uint16_t productId, std::int32_t bootloaderVersion) noexcept
{
    Report("FirmwareDownloader::ReadFirmwareFile()");
    FirmwareReading reading = ReadProductFile(productId);
    if (reading.outcome == FirmwareReading::Outcome::Discarded) {
        m_hDownloaded.Set();
    }
    const bool loaded = reading.outcome == FirmwareReading::Outcome::Loaded;

    const win32::ExclusiveScope turn(m_mutex);
    // Without a file the product has no image, also when one was loaded for the product before it.
    m_Dialogue.SetImage(std::move(reading.image));
    if (reading.outcome != FirmwareReading::Outcome::NoFile) {
        m_Dialogue.SetImageSize(reading.count);
    }
    if (bootloaderVersion == 1) {
        m_Dialogue.SwitchQueuedModeOff();
    }
    return loaded;
}

FirmwareReading FirmwareDownloader::ReadProductFile(std::uint16_t productId) noexcept
{
    try {
        const std::wstring name = FirmwareFileName(m_Surroundings.programPath, productId);
        Trace(trace::FirmwareChannel, trace::Usb, "FirmwareDownloader::ReadFirmwareFile() firmware filename=%s",
              win32::ToAnsi(name).c_str());
        return ReadFirmware(name, m_Surroundings.readFile);
    } catch (...) {
        Report("FirmwareDownloader::ReadFirmwareFile() out of memory for the firmware filename");
        return {};
    }
}

void FirmwareDownloader::Download() noexcept
{
    Report("FirmwareDownloader::Download()");
    const win32::ExclusiveScope turn(m_mutex);
    m_Dialogue.Start(m_Surroundings.tickCount());
}

bool FirmwareDownloader::NeedsDownload() noexcept
{
    bool needed = true;
    if (m_hDownloaded.Get() != nullptr) {
        if (m_hDownloaded.IsSet()) {
            needed = false;
        } else {
            needed = Dialogue().HasImage();
            ResendWhenDue();
        }
    }
    Trace(trace::FirmwareChannel, trace::Usb, "FirmwareDownloader::NeedsDownload() %d", needed ? 1 : 0);
    return needed;
}

void FirmwareDownloader::ResendWhenDue() noexcept
{
    if (Dialogue().IsRetryDue(m_Surroundings.tickCount())) {
        // Another thread that holds the mutex advances the dialogue by itself. The next query looks again.
        if (m_mutex.TryEnter()) {
            m_Dialogue.Retry(m_Surroundings.tickCount());
            m_mutex.Leave();
        }
    } else if (Dialogue().RetryCount() > DownloadDialogue::MaxRetries) {
        // Not reached, since the counter ends at the maximum; kept by design.
        Report(
            "FirmwareDownloader::NeedsDownload() max numer of retries reached, new Firmware will not be loaded!");
    }
}

void FirmwareDownloader::OnReceive(const std::uint8_t* bytes, std::uint32_t length) noexcept
{
    if (bytes == nullptr || length == 0 || length > std::uint32_t{std::numeric_limits<std::int32_t>::max()}) {
        return;
    }
    const win32::ExclusiveScope turn(m_mutex);
    m_Dialogue.Receive({reinterpret_cast<const char*>(bytes), length});
}

void FirmwareDownloader::SetForDownloadOnNextConnect() noexcept
{
    Report("FirmwareDownloader::SetForDownloadOnNextConnect()");
    const win32::ExclusiveScope turn(m_mutex);
    m_Dialogue.Reset();
}

void FirmwareDownloader::Completed() noexcept
{
    Report("FirmwareDownloader::Completed()");
    if (!OwnCompletionMutex()) {
        return;
    }
    Report("FirmwareDownloader::Completed() setting event m_hDownloaded");
    m_hDownloaded.Set();
    m_nSpare = -1;
}

bool FirmwareDownloader::OwnCompletionMutex() noexcept
{
    // By design the mutex is acquired by the first completion and never released. Completions nearly always
    // come from the reply thread, which would get it again at once. Others (a dialogue that ends for want of
    // memory while the command thread or a port thread begins it) would wait for ever, and even the owner's
    // acquisitions are counted by Windows and may not exceed 2^31, which an instrument that keeps talking would
    // reach in the end. So it is waited for once; m_mutex keeps completions apart.
    if (!m_bCompletionOwned) {
        const DWORD result = ::WaitForSingleObject(m_CompletionMutex.Get(), INFINITE);
        m_bCompletionOwned = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
    }
    return m_bCompletionOwned;
}

void FirmwareDownloader::Report(const char* line) noexcept
{
    Trace(trace::FirmwareChannel, trace::Usb, "%s", line);
}

void FirmwareDownloader::ReportChunk(std::uint32_t offset, std::uint32_t size) noexcept
{
    Trace(trace::FirmwareChannel, trace::Usb,
          "FirmwareDownloader::DownloadImage() Firmware image queued Offset %d Size %d",
          static_cast<std::int32_t>(offset), static_cast<std::int32_t>(size));
}
