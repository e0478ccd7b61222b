// Requests of the instrument's users: bulk transfers and I/O controls, and the rules that befall them.
#pragma once

#include "tests/instrument/driver/Requests.h"

namespace driver {

/// IRP_MJ_DEVICE_CONTROL of a slot's device.
NTSTATUS OnInstrumentControl(Slot& slot, IRP* irp);

/// Whether the device may be opened just now: STATUS_SUCCESS, or why not. With the bus locked.
NTSTATUS MayOpen(Slot& slot);

// With the bus locked:

/// Goes on with a request that was held or delayed.
void Proceed(Request& request, Batch& batch);

/// Goes on with all of the slot's that are due by `now`.
void ProceedDue(Slot& slot, std::uint64_t now, Batch& batch);

/// Gives fed bytes to waiting reads.
void ServeReads(Endpoint& endpoint, Batch& batch);

/// Gives written bytes to the requests that take them, then lets writes in that waited for room.
void ServeTakers(Endpoint& endpoint, Batch& batch);

/// Lets suppliers in that waited for room.
void ServeSuppliers(Endpoint& endpoint, Batch& batch);

/// The number of the connection that a handle of an instrument has or would have.
std::uint32_t ConnectionOf(const FILE_OBJECT& file);

/// Another connection, or none (0): what was supplied to the one before is dropped, watchers are answered.
void SetConnection(Slot& slot, std::uint32_t connection, Batch& batch);

/// Answers the requests that watch for another connection.
void ServeWatchers(Slot& slot, Batch& batch);

/// Drops all chunks.
void FreeChunks(Endpoint& endpoint);

/// Answers an I/O control that is no transfer.
void Answer(Request& request, Batch& batch);

} // namespace driver
