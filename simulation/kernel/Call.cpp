#include "simulation/kernel/Call.h"

#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

#include <cstdio>

namespace sim {

Call::Call(const char* name) : m_name(name)
{
    BeginUnwatched(Current());
    ++Current().inKernel;
    Point(name);
}

Call::~Call()
{
    --Current().inKernel;
    EndUnwatched(Current());
}

int Call::Refuse(DWORD error)
{
    Current().lastError = error;
    return 0;
}

DWORD Call::Injected(std::initializer_list<DWORD> errors)
{
    World& world = TheWorld();
    if (!world.current->isProduct) {
        return 0;
    }
    const std::uint64_t ordinal = ++world.outcome.productCalls;
    if (world.options.keepsCalls) {
        world.outcome.calls.push_back({m_name, static_cast<unsigned>(errors.size())});
    }
    const Injection& injection = world.options.injection;
    DWORD error = 0;
    if (injection.call != 0) {
        error = injection.call == ordinal ? errors.begin()[injection.error % errors.size()] : 0;
    } else if (OneIn(world.faultOneIn)) {
        error = errors.begin()[Random(errors.size())];
    }
    if (error != 0) {
        ++world.outcome.injectedFaults;
        world.outcome.injectedInto = m_name;
        char text[80];
        std::snprintf(text, sizeof text, "injected: %s fails with %u", m_name, error);
        Note(text);
    }
    return error;
}

bool Call::Fails(std::initializer_list<DWORD> errors)
{
    const DWORD error = Injected(errors);
    if (error != 0) {
        Refuse(error);
    }
    return error != 0;
}

} // namespace sim
