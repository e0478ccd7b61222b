#include "tests/unit/firmware/FirmwareFixture.h"

#include <fstream>
#include <new>

namespace firmwaretest {

std::atomic<DWORD> clockNow{0};

DWORD WINAPI FakeTickCount()
{
    return clockNow;
}

void ScriptedTransport::SubmitFirmware(std::span<const std::uint8_t> bytes)
{
    if (outOfMemory) {
        throw std::bad_alloc();
    }
    const std::string message(bytes.begin(), bytes.end());
    {
        const std::lock_guard guard(m_lock);
        m_messages.push_back(message);
    }
    if (onSubmit) {
        onSubmit(message);
    }
}

void ScriptedTransport::ClearCommandQueue()
{
    ++clears;
}

void ScriptedTransport::RegisterDeviceName(const std::wstring& name, std::int32_t device)
{
    names.emplace_back(name, device);
}

std::vector<std::string> ScriptedTransport::Messages() const
{
    const std::lock_guard guard(m_lock);
    return m_messages;
}

void ScriptedTransport::Forget()
{
    const std::lock_guard guard(m_lock);
    m_messages.clear();
}

std::string Contents(std::uint32_t size, std::uint32_t seed)
{
    // A prime period: no two chunks at different offsets look the same.
    std::string pattern(65'521, '\0');
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        pattern[at] = static_cast<char>((at * 31 + at / 251 + std::size_t{seed} * 97) & 0xFF);
    }
    std::string contents;
    contents.reserve(size);
    while (contents.size() < size) {
        contents.append(pattern, 0, size - contents.size());
    }
    return contents;
}

FirmwareTest::FirmwareTest()
{
    support::RecordingTrace::Clear();
    clockNow = 1'000'000;
}

std::filesystem::path FirmwareTest::FilePath(std::uint16_t product) const
{
    return folder.Path() / L"Firmware" / (L"Firmware_" + std::to_wstring(product) + L".Out");
}

std::string FirmwareTest::WriteFile(std::uint32_t size, std::uint16_t product, std::uint32_t seed) const
{
    std::string contents = Contents(size, seed);
    std::filesystem::create_directories(FilePath(product).parent_path());
    std::ofstream file(FilePath(product), std::ios::binary | std::ios::trunc);
    file.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    file.close();
    EXPECT_TRUE(file.good());
    return contents;
}

std::string FirmwareDownloaderTest::Begin(std::uint32_t size)
{
    std::string image = WriteFile(size);
    EXPECT_TRUE(downloader->ReadFirmwareFile(Product, 2));
    downloader->Download();
    transport.Forget();
    support::RecordingTrace::Clear();
    return image;
}

} // namespace firmwaretest
