// A trace output that keeps what reaches it, with switches for the conditions that the front end asks for.
#pragma once

#include "host/TraceFrontEnd.h"

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

class RecordingOutput final : public ITraceOutput
{
public:
    using Line = std::pair<std::uint32_t, std::string>; // mask, text

    bool TracerExists() const noexcept override { return tracerExists; }
    bool DialogExists() const noexcept override { return dialogExists; }
    bool DialogIsVisible() const noexcept override { return dialogIsVisible; }
    void AddTrace(std::uint32_t mask, std::string text) override
    {
        if (failing) {
            throw std::runtime_error("no room");
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.emplace_back(mask, std::move(text));
    }

    std::vector<Line> Lines() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }
    std::size_t Count(const std::string& text) const
    {
        std::size_t count = 0;
        for (const Line& line : Lines()) {
            count += line.second == text ? 1 : 0;
        }
        return count;
    }

    std::atomic<bool> tracerExists{true};
    std::atomic<bool> dialogExists{true};
    std::atomic<bool> dialogIsVisible{false};
    std::atomic<bool> failing{false};

private:
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
};

/// Options for one device.
inline DebugOptionsMap OptionsFor(std::int32_t device, std::uint32_t mask, std::uint32_t maxPacketLength = 100)
{
    CDebugOption option(device);
    option.SetMask(mask);
    option.MaxPacketLength = maxPacketLength;
    DebugOptionsMap options;
    options.emplace(device, option);
    return options;
}
