// A world for the download dialogue that writes down what is done to it.
#pragma once

#include "firmware/DownloadDialogue.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace firmwaretest {

inline constexpr std::string_view Done = std::string_view("DOWNLOAD_DONE\r\0", 15);

/// An image of that many bytes; `seed` tells one from another.
inline FirmwareImagePtr MakeImage(std::uint32_t size, std::uint32_t seed = 1)
{
    auto image = std::make_shared<FirmwareImage>();
    image->bytes.reset(new std::uint8_t[size]);
    image->size = size;
    // A prime period: no two chunks at different offsets look the same.
    constexpr std::uint32_t period = 65'521;
    std::uint8_t* const bytes = image->bytes.get();
    for (std::uint32_t at = 0; at < std::min(size, period); ++at) {
        bytes[at] = static_cast<std::uint8_t>((at * 31 + at / 251 + seed * 97) & 0xFF);
    }
    for (std::uint32_t filled = period; filled < size; filled += std::min(filled, size - filled)) {
        std::memcpy(bytes + filled, bytes, std::min(filled, size - filled));
    }
    return image;
}

inline std::string Bytes(const FirmwareImagePtr& image, std::uint32_t offset, std::uint32_t size)
{
    return {reinterpret_cast<const char*>(image->bytes.get()) + offset, size};
}

inline std::string Chunk(const FirmwareImagePtr& image, std::uint32_t offset, std::uint32_t size)
{
    return "DOWNLOAD " + Bytes(image, offset, size);
}

class Recorder : public IFirmwareTransport, public IDialogueOutput
{
public:
    void SubmitFirmware(std::span<const std::uint8_t> bytes) override
    {
        FailWhenTold();
        const std::string message(bytes.begin(), bytes.end());
        log.push_back("submit " + message);
        messages.push_back(message);
    }
    void ClearCommandQueue() override
    {
        FailWhenTold();
        log.emplace_back("clear");
    }
    void Completed() noexcept override { log.emplace_back("completed"); }
    void Report(const char* line) noexcept override { log.push_back(std::string("line ") + line); }
    void ReportChunk(std::uint32_t offset, std::uint32_t size) noexcept override
    {
        if (keepChunkLines) {
            log.push_back("chunk " + std::to_string(offset) + " " + std::to_string(size));
        }
        ++chunkLines;
    }

    std::size_t Count(std::string_view entry) const
    {
        std::size_t count = 0;
        for (const std::string& line : log) {
            count += line == entry ? 1 : 0;
        }
        return count;
    }

    std::vector<std::string> log;      // everything, in order
    std::vector<std::string> messages; // what was submitted
    std::size_t chunkLines = 0;
    bool keepChunkLines = true;
    std::int32_t callsUntilFailure =
        std::numeric_limits<std::int32_t>::max(); // 0: the next call runs out of memory

private:
    void FailWhenTold()
    {
        if (callsUntilFailure-- == 0) {
            throw std::bad_alloc();
        }
    }
};

/// Hands the text over in a block of exactly its length, without a terminating zero, so that a read beyond it
/// shows.
inline void Receive(DownloadDialogue& dialogue, std::string_view text)
{
    const std::unique_ptr<char[]> exact(new char[text.size()]);
    std::memcpy(exact.get(), text.data(), text.size());
    dialogue.Receive({exact.get(), text.size()});
}

inline void Load(DownloadDialogue& dialogue, const FirmwareImagePtr& image)
{
    dialogue.SetImage(image);
    dialogue.SetImageSize(image->size);
}

} // namespace firmwaretest
