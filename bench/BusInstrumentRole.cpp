// The instrument behind the simulated driver: gives back what is written to it, as it came.
#include "bench/Roles.h"

#include "console/Console.h"
#include "tests/instrument/InstrumentControl.h"

namespace bench {

int PlayBusInstrument(const RoleNames& names)
{
    constexpr std::uint8_t Out = 0x02;
    constexpr std::uint8_t In = 0x86;
    instrumentbus::InstrumentControl bus;
    const console::ReadySignal ready(console::Utf8(names.ready));
    ready.Set();
    for (;;) {
        if (const auto written = bus.TakeWritten(0, Out)) {
            bus.Feed(0, In, written->bytes);
        }
    }
}

} // namespace bench
