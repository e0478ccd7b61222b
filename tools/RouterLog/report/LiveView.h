// What follow shows once a second. Portable.
#pragma once

#include "tools/RouterLog/analysis/Account.h"

#include <cstdint>
#include <string>

namespace routerlog {

/// One thread.
class LiveView
{
public:
    static constexpr std::size_t IncidentsShown = 8;

    explicit LiveView(const Account& account) : m_account(account) {}

    /// The state now, and rates since the last call, `milliseconds` ago; several lines.
    std::string Show(std::int64_t milliseconds);

private:
    struct Totals
    {
        std::uint64_t lines = 0, requests = 0, requestBytes = 0, replies = 0, replyBytes = 0;
    };
    Totals Count() const;
    void AddRates(std::string& out, std::int64_t milliseconds);
    void AddPorts(std::string& out) const;
    void AddIncidents(std::string& out) const;

    const Account& m_account;
    Totals m_before;
};

} // namespace routerlog
