// export: the packets of a log as a capture file for Wireshark.
#include "console/CommandLine.h"
#include "console/Console.h"
#include "tools/RouterLog/Commands.h"
#include "tools/RouterLog/capture/PacketExport.h"
#include "tools/RouterLog/log/LogFiles.h"
#include "tools/RouterLog/pc/SharedFile.h"
#include "tools/RouterLog/report/Sentences.h"

#include <filesystem>
#include <fstream>

namespace routerlog {

namespace {

std::string Summary(const PacketExport& packets, const std::string& output)
{
    const auto count = [](std::uint64_t number) {
        return CountOf(static_cast<std::int64_t>(number), "packet", "packets");
    };
    std::string text = count(packets.Packets()) + " written to " + output + "\n";
    if (packets.Cut() > 0) {
        text += count(packets.Cut()) +
                " of them in part: the log shows the first bytes only (MaxPacketLength, and 2,055 "
                "characters a line)\n";
    }
    if (packets.Damaged() > 0) {
        text += count(packets.Damaged()) + " damaged in the log\n";
    }
    if (packets.Packets() == 0) {
        text += "The log holds no packets: they need Read/Write Traces of device -1, or Packet Parsing Traces of "
                "a port's "
                "device type\n";
    }
    return text;
}

} // namespace

int Export(const Arguments& arguments)
{
    std::string output;
    std::vector<std::string> names;
    const auto wrong = commandline::Parse(arguments, {{"-o", true, commandline::Store(output)}}, &names);
    if (wrong || names.empty() || output.empty()) {
        return Fail(wrong.value_or("export needs a log and -o FILE"), ExitCode::Usage);
    }
    const LogFiles logs = InOrderOfWriting(PathsOf(names), SharedFile::Open);
    if (!logs.fault.empty()) {
        return Fail(logs.fault, ExitCode::Unreadable);
    }
    std::ofstream file(std::filesystem::path(console::Wide(output)), std::ios::binary | std::ios::trunc);
    PacketExport packets(
        [&file](std::string_view bytes) { file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())); });
    for (const std::filesystem::path& path : logs.files) {
        const auto log = SharedFile::Open(path);
        if (!log) {
            return Fail("cannot read " + NameOf(path), ExitCode::Unreadable);
        }
        packets.TakeFile(*log);
    }
    file.close();
    if (!file) {
        return Fail("cannot write " + output, ExitCode::Unwritable);
    }
    console::Say(Summary(packets, output));
    return static_cast<int>(ExitCode::Good);
}

} // namespace routerlog
