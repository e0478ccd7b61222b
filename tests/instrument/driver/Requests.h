// The life of a pending request: parked in a list, claimed back, finished; cancelled by Windows at any moment.
#pragma once

#include "tests/instrument/driver/Instrument.h"

namespace driver {

// All of these with the bus locked.

/// Puts `request` into `list`, where it may be cancelled from now on (unless it is a stubborn one); it may be gone
/// when this returns.
void Park(Request& request, LIST_ENTRY& list, Batch& batch);

/// Takes a parked request out of its list. False: it is being cancelled and must not be touched.
bool Claim(Request& request);

/// Ends a claimed request (or one never parked) with `bytes` of data after its prefix.
void Finish(Request& request, NTSTATUS status, std::uint32_t bytes, Batch& batch);

/// Claims and finishes with `status` those of a list that `condition` holds for.
template <class Condition>
void FinishThose(LIST_ENTRY& list, NTSTATUS status, Batch& batch, Condition condition)
{
    for (LIST_ENTRY* entry = list.Flink; entry != &list;) {
        Request& request = *kernel::FromLink<Request>(entry);
        entry = entry->Flink;
        if (condition(request) && Claim(request)) {
            Finish(request, status, 0, batch);
        }
    }
}

/// FinishThose for every list of the slot, but for stubborn requests.
template <class Condition>
void FinishAll(Slot& slot, NTSTATUS status, Batch& batch, Condition condition)
{
    const auto applies = [&](Request& request) {
        return !request.Has(instrumentbus::Stubborn) && condition(request);
    };
    FinishThose(slot.held, status, batch, applies);
    FinishThose(slot.watchers, status, batch, applies);
    for (Endpoint& endpoint : slot.endpoints) {
        FinishThose(endpoint.waiting, status, batch, applies);
        FinishThose(endpoint.takers, status, batch, applies);
        FinishThose(endpoint.suppliers, status, batch, applies);
    }
}

/// Completes at once, without the bus locked.
NTSTATUS CompleteNow(IRP* irp, NTSTATUS status, std::uint32_t information = 0);

} // namespace driver
