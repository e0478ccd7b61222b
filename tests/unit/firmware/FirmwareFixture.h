// A downloader with a scripted transport, a folder and a clock of its own.
#pragma once

#include "firmware/FirmwareDownloader.h"
#include "tests/support/RecordingTrace.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace firmwaretest {

inline constexpr std::uint16_t Product = 4660;
inline constexpr std::string_view Done = std::string_view("DOWNLOAD_DONE\r\0", 15);

/// Keeps what is sent to the instrument. Any thread.
class ScriptedTransport : public IFirmwareTransport, public IDeviceNames
{
public:
    void SubmitFirmware(std::span<const std::uint8_t> bytes) override;
    void ClearCommandQueue() override;
    void RegisterDeviceName(const std::wstring& name, std::int32_t device) override;

    std::vector<std::string> Messages() const;
    void Forget();

    std::vector<std::pair<std::wstring, std::int32_t>> names;
    std::atomic<int> clears{0};
    std::atomic<bool> outOfMemory{false};             // each submission fails
    std::function<void(const std::string&)> onSubmit; // called after a message was kept; set before use

private:
    mutable std::mutex m_lock;
    std::vector<std::string> m_messages; // guarded by m_lock
};

/// The time that the downloaders of all tests see, in ms.
extern std::atomic<DWORD> clockNow;
DWORD WINAPI FakeTickCount();

/// Contents of an image of that many bytes; `seed` tells one from another.
std::string Contents(std::uint32_t size, std::uint32_t seed = 1);
inline std::string Chunk(const std::string& image, std::size_t offset, std::size_t size)
{
    return "DOWNLOAD " + image.substr(offset, size);
}

class FirmwareTest : public testing::Test
{
protected:
    FirmwareTest();

    std::wstring ProgramPath() const { return (folder.Path() / L"Program.exe").wstring(); }
    std::filesystem::path FilePath(std::uint16_t product = Product) const;
    /// Writes the product's firmware file and returns its contents.
    std::string WriteFile(std::uint32_t size, std::uint16_t product = Product, std::uint32_t seed = 1) const;

    FirmwareSurroundings Surroundings(decltype(&::ReadFile) readFile = &::ReadFile) const
    {
        return {ProgramPath(), &FakeTickCount, readFile};
    }

    support::TempFolder folder;
    ScriptedTransport transport;
};

/// One downloader over the fixture's folder.
class FirmwareDownloaderTest : public FirmwareTest
{
protected:
    void Receive(std::string_view text)
    {
        downloader->OnReceive(reinterpret_cast<const std::uint8_t*>(text.data()),
                              static_cast<std::uint32_t>(text.size()));
    }
    /// A new downloader, as after the start of the program.
    void Restart(decltype(&::ReadFile) readFile = &::ReadFile)
    {
        transport.Forget();
        downloader = std::make_unique<FirmwareDownloader>(transport, transport, Surroundings(readFile));
    }
    /// Loads an image of that size and begins the dialogue; what was sent and traced for it is forgotten.
    std::string Begin(std::uint32_t size);

    std::unique_ptr<FirmwareDownloader> downloader{
        std::make_unique<FirmwareDownloader>(transport, transport, Surroundings())};
};

} // namespace firmwaretest
