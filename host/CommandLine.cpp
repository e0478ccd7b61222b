#include "host/CommandLine.h"

#include <array>
#include <cwchar>
#include <string_view>

namespace {

struct Switch
{
    std::wstring_view word;
    CommandLineAction action;
};

constexpr std::array<Switch, 4> Switches{{
    {L"RegServer", CommandLineAction::RegServer},
    {L"UnregServer", CommandLineAction::UnregServer},
    {L"RegServerPerUser", CommandLineAction::RegServerPerUser},
    {L"UnregServerPerUser", CommandLineAction::UnregServerPerUser},
}};

} // namespace

CommandLineAction ParseCommandLine(const wchar_t* commandLine) noexcept
{
    std::wstring_view rest = commandLine != nullptr ? commandLine : L"";
    for (;;) {
        const std::size_t introducer = rest.find_first_of(L"-/");
        if (introducer == std::wstring_view::npos) {
            return CommandLineAction::RunServer;
        }
        rest.remove_prefix(introducer + 1);
        const std::wstring_view word = rest.substr(0, rest.find_first_of(L" \t"));
        for (const Switch& known : Switches) {
            if (word.size() == known.word.size() && ::_wcsnicmp(word.data(), known.word.data(), word.size()) == 0)
            {
                return known.action;
            }
        }
    }
}
