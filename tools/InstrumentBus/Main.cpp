// InstrumentBus: plays the instrument as a simulated USB device.
#include "console/Console.h"
#include "instrument/PlayProgram.h"
#include "instrument/UsbInstrument.h"

#include <charconv>
#include <cstdio>
#include <memory>

namespace {

std::string Help()
{
    return std::string(R"(InstrumentBus: plays the instrument as a simulated USB device.

Usage: InstrumentBus [switches]

Installs the simulated instruments' driver (MorvaneTestInstrument.sys, beside this program) unless it is installed,
plugs a device in, answers the router's packets and prints a line for each packet it gets: seconds since the start,
packet number, packet type, [device type,port], payload length, first bytes. For Wine; on Windows only for test
machines that take unsigned drivers. The router may come and go; each time numbering starts afresh. Without any rule
every request is echoed to its sender.

)") + PlayRunHelp() +
           R"(  --vendor ID             vendor ID, decimal or 0x... (0x1E4F, the only one that the router takes)
  --product ID            product ID (0x0100)
  --slot N                the place the device is plugged into, 0 to 7 (0)
)" + PlayScriptHelp(R"(  3  somebody else plays an instrument in the slot already
  4  the device can't be plugged in, or the driver fails
)");
}

/// Stores a 16-bit number, decimal or hexadecimal behind "0x".
commandline::Handler StoreId(std::uint16_t& target)
{
    return [&target](const std::string& value) -> std::optional<commandline::Error> {
        const bool hex = value.starts_with("0x") || value.starts_with("0X");
        const char* const end = value.data() + value.size();
        const auto result = std::from_chars(value.data() + (hex ? 2 : 0), end, target, hex ? 16 : 10);
        if (result.ec != std::errc() || result.ptr != end) {
            return "'" + value + "' is no number from 0 to 65535";
        }
        return std::nullopt;
    };
}

std::string Described(const UsbInstrument::Place& place)
{
    char text[100];
    std::snprintf(text, sizeof text, "slot %u, vendor 0x%04X, product 0x%04X", static_cast<unsigned>(place.slot),
                  static_cast<unsigned>(place.vendorId), static_cast<unsigned>(place.productId));
    return text;
}

int Run(const std::vector<std::string>& arguments)
{
    PlayOptions options;
    UsbInstrument::Place at;
    std::int64_t slot = 0;
    const PlayProgram program("InstrumentBus", Help);
    const auto code =
        program.Read(arguments, options,
                     {{"--vendor", true, StoreId(at.vendorId)},
                      {"--product", true, StoreId(at.productId)},
                      {"--slot", true, commandline::StoreNumber(slot, 0, instrumentbus::SlotCount - 1)}});
    if (code) {
        return *code;
    }
    at.slot = static_cast<std::uint32_t>(slot);
    const PlayProgram::Place place{"plugged in at " + Described(at),
                                   "slot " + std::to_string(slot) + " is played by somebody else already",
                                   "the device can't be played"};
    return program.Play(options, place,
                        [&](instrument::InstrumentEngine& engine, HANDLE stop, EngineLoop::Listener listener) {
                            return std::make_unique<UsbInstrument>(at, engine, stop, std::move(listener));
                        });
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    return PlayProgram::Guarded("InstrumentBus", [&] { return Run(console::Arguments(count, arguments)); });
}
