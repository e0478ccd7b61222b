// Logs for the tests of RouterLog's portable half.
#pragma once

#include "tools/RouterLog/analysis/Account.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace routerlogtest {

class TextSource : public routerlog::IByteSource
{
public:
    explicit TextSource(std::string_view text, std::size_t most = std::string_view::npos)
        : m_rest(text), m_most(most)
    {
    }
    std::size_t Read(std::span<char> buffer) override
    {
        const std::size_t count = std::min({buffer.size(), m_rest.size(), m_most});
        std::copy_n(m_rest.begin(), count, buffer.begin());
        m_rest.remove_prefix(count);
        return count;
    }

private:
    std::string_view m_rest;
    std::size_t m_most;
};

/// A log line by line; each line's stamp is so many milliseconds after 14:00 of one day.
class LogText
{
public:
    LogText& At(int milliseconds, std::string_view text)
    {
        char stamp[64];
        std::snprintf(stamp, sizeof stamp, "[03-07-26 %02d:%02d:%02d:%04d] ", 14 + milliseconds / 3'600'000,
                      milliseconds / 60'000 % 60, milliseconds / 1000 % 60, milliseconds % 1000);
        m_text.append(stamp).append(text).append("\r\n");
        return *this;
    }
    LogText& Bare(std::string_view text)
    {
        m_text.append(text).append("\r\n");
        return *this;
    }
    const std::string& Text() const { return m_text; }

private:
    std::string m_text;
};

inline void Take(routerlog::Account& account, const std::string& text, const std::string& name = "a.log")
{
    TextSource source(text);
    account.TakeFile(name, source);
}

/// The kinds of all incidents, in order.
inline std::vector<std::string> KindsOf(const routerlog::Account& account)
{
    std::vector<std::string> kinds;
    for (const routerlog::Incident& each : account.Incidents().InOrder()) {
        kinds.emplace_back(routerlog::KeyOf(each.kind));
    }
    return kinds;
}

} // namespace routerlogtest
