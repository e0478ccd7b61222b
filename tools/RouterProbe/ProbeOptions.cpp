#include "ProbeOptions.h"

#include "console/CommandLine.h"
#include "console/TypedBytes.h"
#include "console/WholeFile.h"
#include "win32/Windows.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <map>
#include <stdexcept>

using commandline::Error;
using commandline::Handler;

namespace {

using Command = ProbeOptions::Command;

/// Numbers as the command line has them, before they are looked at as a whole.
struct Raw
{
    std::vector<std::string> words;
    std::vector<std::string> pipeNames;
    std::vector<std::string> files;
    std::vector<std::size_t> filePlaces; // in front of which request each file's pieces go
    std::int64_t count = -1;
    std::int64_t size = 0;
    std::int64_t readSize = 65535;
    std::int64_t writeSize = 65535;
    std::int64_t interval = -1;
    std::int64_t openTimeout = 10'000;
    std::int64_t replyTimeout = 5'000;
    std::int64_t linger = 0;
    std::int64_t duration = -1;
    std::int64_t waitExit = -1;
};

/// Each part of an address is one byte on the wire, and 255 stands for -1 there. The router itself takes every
/// address.
constexpr std::int64_t LastOnTheWire = 254;

Handler AddPort(std::vector<ProbePort>& ports)
{
    return [&ports](const std::string& value) -> std::optional<Error> {
        const std::size_t comma = value.find(',');
        const auto type = commandline::NumberOf(value.substr(0, comma), 0, LastOnTheWire);
        const auto port = comma == std::string::npos
                            ? std::nullopt
                            : commandline::NumberOf(value.substr(comma + 1), 0, LastOnTheWire);
        if (!type || !port) {
            return "'" + value + "' is not TYPE,PORT, each from 0 to " + std::to_string(LastOnTheWire);
        }
        ports.push_back({static_cast<std::int32_t>(*type), static_cast<std::uint32_t>(*port), {}});
        return std::nullopt;
    };
}

Handler AddTo(std::vector<std::string>& list)
{
    return [&list](const std::string& value) -> std::optional<Error> {
        list.push_back(value);
        return std::nullopt;
    };
}

/// A request made by `read`, which throws std::invalid_argument.
template <class Read>
Handler AddRequest(std::vector<ProbeOptions::Bytes>& requests, Read read)
{
    return [&requests, read](const std::string& value) -> std::optional<Error> {
        try {
            requests.push_back(read(value));
            return std::nullopt;
        } catch (const std::invalid_argument& wrong) {
            return wrong.what();
        }
    };
}

ProbeOptions::Bytes HexRequest(const std::string& value)
{
    std::string digits = value;
    digits.erase(std::remove(digits.begin(), digits.end(), ' '), digits.end());
    return console::BytesOfHex(digits);
}

std::vector<commandline::Switch> SwitchesFor(ProbeOptions& options, Raw& raw)
{
    using namespace commandline;
    return {
        {"--help", false, Set(options.help)},
        {"--version", false, Set(options.version)},
        {"--port", true, AddPort(options.ports)},
        {"--pipe-name", true, AddTo(raw.pipeNames)},
        {"--read-size", true, StoreNumber(raw.readSize, 1, INT32_MAX)},
        {"--write-size", true, StoreNumber(raw.writeSize, 1, INT32_MAX)},
        {"--text", true,
         AddRequest(options.requests, [](const std::string& value) { return console::BytesOfText(value); })},
        {"--hex", true, AddRequest(options.requests, HexRequest)},
        {"--file", true,
         [&](const std::string& path) -> std::optional<Error> {
             raw.files.push_back(path);
             raw.filePlaces.push_back(options.requests.size());
             return std::nullopt;
         }},
        {"--size", true, StoreNumber(raw.size, 1, 65535)},
        {"--count", true, StoreNumber(raw.count, 0, std::numeric_limits<std::int64_t>::max())},
        {"--interval", true, StoreSeconds(raw.interval)},
        {"--for", true, StoreSeconds(raw.duration)},
        {"--linger", true, StoreSeconds(raw.linger)},
        {"--open-timeout", true, StoreSeconds(raw.openTimeout)},
        {"--reply-timeout", true, StoreSeconds(raw.replyTimeout)},
        {"--wait-exit", true, StoreSeconds(raw.waitExit)},
        {"--keep-going", false, Set(options.keepGoing)},
        {"--check", false, Set(options.check)},
        {"--no-wait", false, Set(options.noWait)},
        {"--quiet", false, Set(options.quiet)},
        {"--late-bound", false, Set(options.lateBound)},
        {"--attach", false, Set(options.attach)},
        {"--ready-event", true, Store(options.readyEvent)},
        {"--stop-event", true, Store(options.stopEvent)},
    };
}

/// Puts the pieces of each file where the file stands among the requests.
std::optional<ProbeFault> ReadFiles(const Raw& raw, ProbeOptions& options)
{
    const auto piece = static_cast<std::size_t>(raw.size != 0 ? raw.size : 4096);
    for (std::size_t i = raw.files.size(); i-- > 0;) {
        const auto bytes = WholeFile(raw.files[i]);
        if (!bytes) {
            return ProbeFault{ExitCode::FileUnreadable, "'" + raw.files[i] + "' can't be read"};
        }
        std::vector<ProbeOptions::Bytes> pieces;
        for (std::size_t at = 0; at < bytes->size(); at += piece) {
            const auto begin = bytes->begin() + static_cast<std::ptrdiff_t>(at);
            pieces.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(std::min(piece, bytes->size() - at)));
        }
        options.requests.insert(options.requests.begin() + static_cast<std::ptrdiff_t>(raw.filePlaces[i]),
                                pieces.begin(), pieces.end());
    }
    return std::nullopt;
}

std::optional<Error> NamePipes(const Raw& raw, ProbeOptions& options)
{
    if (!raw.pipeNames.empty() && raw.pipeNames.size() != options.ports.size()) {
        return "give --pipe-name once for each --port, or not at all";
    }
    if (options.attach && raw.pipeNames.empty()) {
        return "--attach needs --pipe-name";
    }
    for (std::size_t i = 0; i < options.ports.size(); ++i) {
        ProbePort& port = options.ports[i];
        // The router names the device type in its options by what stands before the last ".": without the process
        // id.
        port.pipeName = raw.pipeNames.empty()
                          ? "RouterProbe-" + std::to_string(port.deviceType) + "-" + std::to_string(port.port) +
                                "." + std::to_string(::GetCurrentProcessId())
                          : raw.pipeNames[i];
        if (port.pipeName.empty()) {
            return "'--pipe-name': a name is missing";
        }
    }
    return std::nullopt;
}

std::optional<Error> ReadCommand(const Raw& raw, ProbeOptions& options)
{
    static const std::map<std::string, Command> commands = {{"send", Command::Send},
                                                            {"listen", Command::Listen},
                                                            {"ping", Command::Ping},
                                                            {"measure", Command::Measure}};
    if (raw.words.empty()) {
        return "a command is missing: send, listen, ping or measure";
    }
    const auto found = commands.find(raw.words[0]);
    if (found == commands.end()) {
        return "unknown command '" + raw.words[0] + "'";
    }
    if (raw.words.size() > 1) {
        return "unexpected argument '" + raw.words[1] + "'";
    }
    options.command = found->second;
    if (options.ports.empty()) {
        return "--port is missing";
    }
    const bool hasRequests = !options.requests.empty() || !raw.files.empty();
    if ((options.command == Command::Send) != hasRequests) {
        return hasRequests ? "--text, --hex and --file belong to send" : "send needs --text, --hex or --file";
    }
    return NamePipes(raw, options);
}

void TakeNumbers(const Raw& raw, ProbeOptions& options)
{
    using Milliseconds = ProbeOptions::Milliseconds;
    const bool ping = options.command == Command::Ping;
    const bool endless =
        options.command == Command::Listen || (raw.duration >= 0 && options.command == Command::Measure);
    const std::int64_t usual = endless ? 0 : ping ? 4 : options.command == Command::Measure ? 1000 : 1;
    options.count = static_cast<std::uint64_t>(raw.count >= 0 ? raw.count : usual);
    options.size = static_cast<std::size_t>(raw.size != 0 ? raw.size : 64);
    options.readSize = static_cast<std::int32_t>(raw.readSize);
    options.writeSize = static_cast<std::int32_t>(raw.writeSize);
    options.interval = Milliseconds(raw.interval >= 0 ? raw.interval : ping ? 1000 : 0);
    options.openTimeout = Milliseconds(raw.openTimeout);
    options.replyTimeout = Milliseconds(raw.replyTimeout);
    options.linger = Milliseconds(raw.linger);
    if (raw.duration >= 0) {
        options.duration = Milliseconds(raw.duration);
    }
    if (raw.waitExit >= 0) {
        options.waitExit = Milliseconds(raw.waitExit);
    }
}

} // namespace

std::string ProbePort::Label() const
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "[%02d,%02u]", static_cast<int>(deviceType),
                  static_cast<unsigned>(port));
    return text.data();
}

std::uint16_t ProbePort::Mark() const noexcept
{
    return static_cast<std::uint16_t>((deviceType & 0xFF) << 8 | static_cast<int>(port & 0xFF));
}

std::optional<ProbeFault> ReadOptions(const std::vector<std::string>& arguments, ProbeOptions& options)
{
    Raw raw;
    auto error = commandline::Parse(arguments, SwitchesFor(options, raw), &raw.words);
    if (!error && !options.help) {
        error = ReadCommand(raw, options);
    }
    if (error) {
        return ProbeFault{ExitCode::Usage, *error + " (--help tells more)"};
    }
    TakeNumbers(raw, options);
    if (auto fault = ReadFiles(raw, options)) {
        return fault;
    }
    if (options.command == Command::Send && options.requests.empty()) {
        return ProbeFault{ExitCode::Usage, "nothing to send: the file is empty"};
    }
    return std::nullopt;
}
