// bundle: all that is needed to judge a PC from afar, in one file.
#include "console/CommandLine.h"
#include "console/Console.h"
#include "tools/RouterLog/Commands.h"
#include "tools/RouterLog/doctor/Diagnosis.h"
#include "tools/RouterLog/log/LogFiles.h"
#include "tools/RouterLog/log/Payloads.h"
#include "tools/RouterLog/pack/ZipWriter.h"
#include "tools/RouterLog/pc/GatherFacts.h"
#include "tools/RouterLog/pc/SharedFile.h"
#include "tools/RouterLog/report/JsonReport.h"
#include "tools/RouterLog/report/Sentences.h"
#include "tools/RouterLog/report/TextReport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace routerlog {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t LargestBundle = 20U << 20;
constexpr std::uint64_t LargestLog = 64U << 20; // of a log, its last bytes, before packing
constexpr std::uint64_t SmallestLog = 64U << 10;

struct BundleOptions
{
    std::string output;
    std::vector<std::string> logs; // given ones; else the registered router's
    bool noPayload = false;
};

std::string SettingsText(const PcFacts& facts)
{
    std::string text = "simulate USB: " + std::to_string(facts.simulate) +
                       "\nlog limit (MB): " + std::to_string(facts.logLimit.value_or(10)) +
                       "\nappend to log: " + std::to_string(facts.appendLog.value_or(1)) +
                       "\nflush limit (ms): " + std::to_string(facts.flushLimitMs) +
                       "\nrestrict pipes: " + std::to_string(facts.restrictPipes) +
                       "\nsettings can be written: " + (facts.settingsWritable ? "yes" : "no") +
                       "\nelevated: " + (facts.elevated ? "yes" : "no") + "\n";
    std::array<char, 32> mask{};
    for (const DeviceSettings& device : facts.devices) {
        std::snprintf(mask.data(), mask.size(), "0x%08X", static_cast<unsigned>(device.mask));
        text += "device " + device.key + " (" + device.name + "): mask " + mask.data() + "\n";
    }
    for (const std::uint32_t product : facts.products) {
        text += "product " + std::to_string(product) + "\n";
    }
    for (const UsbInstrument& instrument : facts.instruments) {
        text += "instrument: vendor " + std::to_string(instrument.vendor) + ", product " +
                std::to_string(instrument.product) + "\n";
    }
    return text;
}

std::string VersionText(const PcFacts& facts)
{
    std::string text = "RouterLog " + OwnVersion() + "\n";
    for (const Registration& each : facts.registrations) {
        if (!each.server.empty()) {
            text += std::string(each.perUser ? "user" : "machine") +
                    (each.view32 ? ", 32-bit view: " : ", 64-bit view: ") + each.server + " " +
                    (each.serverExists ? each.version : "(missing)") + "\n";
        }
    }
    for (const RunningProgram& each : facts.routers) {
        text += "running: " + each.path + ", process " + std::to_string(each.id) + "\n";
    }
    for (const RunningProgram& each : facts.hosts) {
        text += "host program: " + each.name + ", process " + std::to_string(each.id) + "\n";
    }
    return text;
}

/// The last bytes of a file, from the beginning of a line on.
std::string LastBytes(SharedFile& file, std::uint64_t most)
{
    const std::uint64_t size = file.Size();
    file.Seek(size > most ? size - most : 0);
    std::string bytes(static_cast<std::size_t>(std::min(size, most)), '\0');
    std::size_t held = 0;
    while (const std::size_t count = held < bytes.size() ? file.Read(std::span(bytes).subspan(held)) : 0) {
        held += count;
    }
    bytes.resize(held);
    return size > most ? bytes.substr(bytes.find('\n') + 1) : bytes;
}

/// What is said of the logs and the PC: names and texts.
using Reports = std::vector<std::pair<std::string, std::string>>;

void AddExplanation(const std::vector<fs::path>& logs, bool noPayload, Reports& reports)
{
    Account account;
    for (const fs::path& path : logs) {
        if (const auto file = SharedFile::Open(path)) {
            account.TakeFile(NameOf(path), *file);
        }
    }
    account.Finish();
    std::string text = TextReport(account);
    if (noPayload) {
        // What the router did not write is quoted there, and may be the rest of a dump.
        text = text.substr(0, text.rfind('\n', text.find(" NOT OF THE ROUTER, OR CUT\n")) + 1);
    } else {
        reports.emplace_back("explain.json", JsonReport(account));
    }
    reports.emplace_back("explain.txt", std::move(text));
}

/// The reports, and at most so much of each log.
std::string Pack(const Reports& reports, const std::vector<fs::path>& logs, bool noPayload,
                 std::uint64_t mostOfALog)
{
    ZipWriter zip;
    for (const auto& [name, text] : reports) {
        zip.Add(name, text);
    }
    int number = 0;
    for (const fs::path& path : logs) {
        if (const auto file = SharedFile::Open(path)) {
            zip.Add("logs/" + std::to_string(++number) + "-" + NameOf(path.filename()),
                    noPayload ? WithoutPayloads(*file, mostOfALog) : LastBytes(*file, mostOfALog));
        }
    }
    return zip.Finish();
}

std::uint64_t LongestOf(const std::vector<fs::path>& logs)
{
    std::uint64_t longest = 0;
    for (const fs::path& path : logs) {
        if (const auto file = SharedFile::Open(path)) {
            longest = std::max(longest, file->Size());
        }
    }
    return longest;
}

std::vector<fs::path> LogsOf(const BundleOptions& options, const PcFacts& facts)
{
    std::vector<fs::path> given = PathsOf(options.logs);
    if (given.empty() && !facts.folder.empty()) {
        given.emplace_back(console::Wide(facts.folder + "Log"));
    }
    return given.empty() ? given : InOrderOfWriting(given, SharedFile::Open).files;
}

} // namespace

int Bundle(const Arguments& arguments)
{
    BundleOptions options;
    std::vector<std::string> words;
    const auto wrong =
        commandline::Parse(arguments, {{"--no-payload", false, commandline::Set(options.noPayload)}}, &words);
    if (wrong || words.empty()) {
        return Fail(wrong.value_or("bundle needs the name of the file to write"), ExitCode::Usage);
    }
    options.output = words.front();
    options.logs.assign(words.begin() + 1, words.end());
    const PcFacts facts = GatherFacts({});
    const std::vector<fs::path> logs = LogsOf(options, facts);
    Reports reports{{"doctor.txt", DiagnosisText(facts, Diagnose(facts, OwnVersion()))},
                    {"versions.txt", VersionText(facts)},
                    {"settings.txt", SettingsText(facts)}};
    AddExplanation(logs, options.noPayload, reports);
    const std::uint64_t longest = LongestOf(logs);
    std::uint64_t most = LargestLog;
    std::string bundle = Pack(reports, logs, options.noPayload, most);
    while (bundle.size() > LargestBundle && most > SmallestLog) {
        do {
            most /= 2;
        } while (most >= longest && most > SmallestLog); // nothing would be left out
        bundle = Pack(reports, logs, options.noPayload, most);
    }
    if (!WriteWholeFile(fs::path(console::Wide(options.output)), bundle)) {
        return Fail("cannot write " + options.output + " (Windows error " + std::to_string(::GetLastError()) + ")",
                    ExitCode::Unwritable);
    }
    console::Say(options.output + ": " + CountOf(static_cast<std::int64_t>(bundle.size()), "byte", "bytes") +
                 ", " + CountOf(static_cast<std::int64_t>(logs.size()), "log", "logs") +
                 (most < LargestLog ? ", of each its last " + std::to_string(most >> 20) + " MB" : std::string()) +
                 (options.noPayload ? ", without payloads" : "") + "\n");
    return static_cast<int>(ExitCode::Good);
}

} // namespace routerlog
