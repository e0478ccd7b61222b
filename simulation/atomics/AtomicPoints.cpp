#include "simulation/atomics/AtomicPoints.h"

#include "simulation/kernel/Call.h"
#include "simulation/kernel/Scheduler.h"

void sim::PointAtAtomic() noexcept
{
    if (IsRunning()) {
        const Call call("atomic");
    }
}
