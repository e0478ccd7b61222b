// What a program that plays a scripted instrument does around the playing: command line, lines, summary, exit code.
#pragma once

#include "instrument/EngineLoop.h"
#include "instrument/PlayOptions.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class PlayProgram
{
public:
    enum ExitCode { Good = 0, Failed = 1, Taken = 3, Refused = 4, ImageUnreadable = 5, ImageWrong = 6 };

    /// Lines about the place the instrument is played at.
    struct Place
    {
        std::string serving; // as soon as the router can find the instrument
        std::string taken;
        std::string refused; // a reason in parentheses follows
    };

    using MakeLoop = std::function<std::unique_ptr<EngineLoop>(instrument::InstrumentEngine& engine, HANDLE stop,
                                                               EngineLoop::Listener listener)>;

    PlayProgram(std::string name, std::function<std::string()> help);

    /// Reads the command line; an exit code when the program is to end at once. `own`: the program's own switches.
    std::optional<int> Read(const std::vector<std::string>& arguments, PlayOptions& options,
                            std::vector<commandline::Switch> own) const;

    /// Says what is wrong with the command line; the exit code.
    int WrongUsage(const std::string& error) const;

    /// Plays until something ends it; the exit code. Interrupted by Ctrl+C, Ctrl+Break and the stop event.
    int Play(const PlayOptions& options, const Place& place, const MakeLoop& makeLoop) const;

    /// `run` with its exceptions as a line and exit code 1.
    static int Guarded(const std::string& name, const std::function<int()>& run);

private:
    int ExitCodeOf(EngineLoop::End end, const EngineLoop& loop, const Place& place) const;

    const std::string m_name;
    const std::function<std::string()> m_help;
};
