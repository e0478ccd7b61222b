// Counts the lines of a log that is being written.
#pragma once

#include "tests/support/WaitUntil.h"
#include "tools/RouterLog/log/LineGrammar.h"
#include "tools/RouterLog/log/LogTime.h"
#include "tools/RouterLog/pc/LogTail.h"

#include <filesystem>
#include <map>

/// One thread.
class LogWatch
{
public:
    explicit LogWatch(const std::filesystem::path& log)
        : m_tail(log, [] {}, [this](const routerlog::RawLine& line) { Take(line); })
    {
    }

    int CountOf(routerlog::Form form)
    {
        m_tail.Look();
        return m_counts[form];
    }

    /// Whether there are so many of them within the deadline.
    bool WaitFor(routerlog::Form form, int count)
    {
        return support::WaitUntil([&] { return CountOf(form) >= count; }, std::chrono::seconds(60));
    }

private:
    void Take(const routerlog::RawLine& line)
    {
        if (routerlog::ParseStamp(line.text)) {
            const auto match = routerlog::LineGrammar::Instance().Match(line.text.substr(routerlog::StampLength));
            if (match) {
                ++m_counts[match.format->form];
            }
        }
    }

    std::map<routerlog::Form, int> m_counts;
    routerlog::LogTail m_tail;
};
