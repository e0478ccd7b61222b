// One call of Windows: a point of the scheduler, and the place where a fault may strike.
#pragma once

#include "simulation/standin/types.h"

#include <initializer_list>

namespace sim {

/// Lives as long as the call. The thread counts as being in the stand-in: its allocations do not fail and
/// ThreadSanitizer looks away.
class Call
{
public:
    explicit Call(const char* name);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// Whether the call fails by an injected fault, with one of the errors that its page names. The error is the
    /// thread's last one then.
    bool Fails(std::initializer_list<DWORD> errors);
    /// The same for calls that tell their error in another way: the error, or 0.
    DWORD Injected(std::initializer_list<DWORD> errors);

    /// Sets the last error and returns FALSE.
    static int Refuse(DWORD error);

private:
    const char* const m_name;
};

} // namespace sim
