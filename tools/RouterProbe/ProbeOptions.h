// The probe's command line.
#pragma once

#include "ExitCode.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct ProbePort
{
    std::int32_t deviceType = 0;
    std::uint32_t port = 0;
    std::string pipeName; // without "\\.\pipe\"

    /// "[03,01]", as the router's trace writes it.
    std::string Label() const;
    /// What marks the payloads of this port in a measurement.
    std::uint16_t Mark() const noexcept;
};

struct ProbeOptions
{
    enum class Command { Send, Listen, Ping, Measure };
    using Bytes = std::vector<std::uint8_t>;
    using Milliseconds = std::chrono::milliseconds;

    Command command = Command::Send;
    std::vector<ProbePort> ports;
    std::vector<Bytes> requests; // of Send, in the order of the command line
    std::uint64_t count = 0;     // 0: without end
    std::size_t size = 64;       // of a measurement's payloads
    std::int32_t readSize = 65535;
    std::int32_t writeSize = 65535;
    Milliseconds interval{};
    Milliseconds openTimeout{};
    Milliseconds replyTimeout{};
    Milliseconds linger{};
    std::optional<Milliseconds> duration;
    std::optional<Milliseconds> waitExit;
    std::string readyEvent;
    std::string stopEvent;
    bool keepGoing = false;
    bool check = false;
    bool noWait = false;
    bool quiet = false;
    bool lateBound = false;
    bool attach = false;
    bool help = false;
    bool version = false;
};

/// What is wrong with a command line, in one line, and the exit code that says so.
struct ProbeFault
{
    ExitCode code;
    std::string text;
};

std::optional<ProbeFault> ReadOptions(const std::vector<std::string>& arguments, ProbeOptions& options);

/// All there is to say about the program.
std::string ProbeHelp();
