// What becomes of each line that the tracer accepts: it stands in the log once, whole and in order, or there is a
// reason that the tracer is described to have.
#pragma once

#include "simulation/kernel/Disk.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

class TracerAccount final : public IDiskWatch
{
public:
    explicit TracerAccount(std::size_t producers) : m_producers(producers) { WatchDisk(this); }
    ~TracerAccount() { WatchDisk(nullptr); }
    TracerAccount(const TracerAccount&) = delete;
    TracerAccount& operator=(const TracerAccount&) = delete;

    /// The text of a producer's next line.
    std::string NextLine(std::size_t producer, std::size_t fill);
    /// Lines may be lost from now on that no banner counts: the settings want no file.
    void OnFileUnwanted() { ++m_uncounted; }
    /// The largest size at which a file may be written on.
    void AllowSize(std::size_t limit);
    /// Everything has ended. `mayDropLast`: threads traced during the stop. `isExact`: the tracer had no lines of
    /// its own, which its banners count as well.
    void CheckEnd(bool mayDropLast, bool isExact);

    void OnWrite(std::string_view text, std::size_t written, std::size_t size) override;
    void OnOpenRefused() override { ++m_uncounted; }

private:
    struct Producer
    {
        std::uint64_t traced = 0;
        std::uint64_t written = 0; // number of its last line in the log
        std::uint64_t reasons = 0; // that there were then
    };

    void OnLine(std::string_view line);
    void OnGap(Producer& producer, std::uint64_t next);
    std::uint64_t Reasons() const;

    std::vector<Producer> m_producers;
    std::uint64_t m_uncounted = 0; // reasons for losses of any number
    std::uint64_t m_counted = 0;   // lines that a banner counts
    std::uint64_t m_missing = 0;   // lines
    std::uint64_t m_banners = 0;   // that count lines
    std::string m_lastStamp;
    std::string m_log; // everything that was written, in order
    std::size_t m_largest = 0;
};

/// Where the log and its backup are.
inline constexpr wchar_t LogPath[] = L"C:\\Router\\Log\\Run.log";

} // namespace sim
