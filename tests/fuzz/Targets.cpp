#include "tests/fuzz/Target.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

namespace {

constexpr std::array All{
    Target{"frames", Frames},
    Target{"descriptors", Descriptors},
    Target{"firmware", Firmware},
    Target{"packet-text", PacketText},
    Target{"registration", Registration},
    Target{"instrument-script", InstrumentScript},
    Target{"instrument-engine", InstrumentEngine},
    Target{"router-log", RouterLog},
};

} // namespace

std::span<const Target> Targets() noexcept
{
    return All;
}

const Target* FindTarget(std::string_view name) noexcept
{
    const auto found = std::ranges::find(All, name, &Target::name);
    return found != All.end() ? &*found : nullptr;
}

void Check(bool holds, const char* promise, const std::source_location& where)
{
    if (!holds) {
        std::fprintf(stderr, "%s:%u: broken: %s\n", where.file_name(), static_cast<unsigned>(where.line()),
                     promise);
        std::abort();
    }
}

} // namespace fuzz
