// follow: the state of a running router, once a second, from the log that it is writing.
#include "console/CommandLine.h"
#include "console/Console.h"
#include "tools/RouterLog/Commands.h"
#include "tools/RouterLog/log/LogFiles.h"
#include "tools/RouterLog/pc/LogTail.h"
#include "tools/RouterLog/report/LiveView.h"

#include <filesystem>

namespace routerlog {

namespace {

constexpr DWORD TimeBetweenLooks = 50; // ms; so long a file may be held that has become the backup
constexpr const wchar_t* LogName = L"MorvanePortRouter.log";

struct FollowOptions
{
    std::string path;          // of the log or its folder
    std::int64_t every = 1000; // ms between two views
    std::int64_t endAfter = 0; // ms; 0: never
    std::string stopEvent;
};

std::optional<std::string> Read(const Arguments& arguments, FollowOptions& options)
{
    std::vector<std::string> words;
    if (auto wrong = commandline::Parse(arguments,
                                        {{"--every", true, commandline::StoreSeconds(options.every)},
                                         {"--for", true, commandline::StoreSeconds(options.endAfter)},
                                         {"--stop-event", true, commandline::Store(options.stopEvent)}},
                                        &words))
    {
        return wrong;
    }
    if (words.size() != 1) {
        return "follow needs one log or its folder";
    }
    options.path = words.front();
    return std::nullopt;
}

/// On a console each view takes the place of the one before.
void Show(const std::string& view)
{
    DWORD mode = 0;
    const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
    const bool console =
        ::GetConsoleMode(output, &mode) && ::SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    console::Say((console ? "\x1B[H\x1B[2J" : "") + view);
}

} // namespace

int Follow(const Arguments& arguments)
{
    FollowOptions options;
    if (const auto wrong = Read(arguments, options)) {
        return Fail(*wrong, ExitCode::Usage);
    }
    std::filesystem::path path(console::Wide(options.path));
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        path /= LogName;
    }
    const console::StopSignal stop(options.stopEvent);
    Account account;
    LogTail tail(
        path, [&] { account.BeginFile(NameOf(path)); }, [&](const RawLine& line) { account.TakeLine(line); });
    LiveView view(account);
    const ULONGLONG begun = ::GetTickCount64();
    ULONGLONG shown = begun;
    bool running = true;
    while (running) {
        running = !stop.Wait(TimeBetweenLooks);
        const ULONGLONG now = ::GetTickCount64();
        running = running && (options.endAfter == 0 || now - begun < static_cast<ULONGLONG>(options.endAfter));
        tail.Look(); // also after the signal: what was written before it is shown
        if (!running || now - shown >= static_cast<ULONGLONG>(options.every)) {
            Show(account.Files().empty() ? "Waiting for " + NameOf(path) + "\n"
                                         : view.Show(static_cast<std::int64_t>(now - shown)));
            shown = now;
        }
    }
    return static_cast<int>(ExitCode::Good);
}

} // namespace routerlog
