// The remote control: a device of its own, by which tests plug instruments in and play their other end.
#pragma once

#include "tests/instrument/driver/Instrument.h"

namespace driver {

/// IRP_MJ_DEVICE_CONTROL of the remote control.
NTSTATUS OnRemoteControl(IRP* irp);

/// A handle, of an instrument or of the remote control, is about to close: ends its pending requests and unplugs
/// its instruments.
void DropFile(FILE_OBJECT* file);

/// Takes the slot's instrument away as if unplugged; without the bus locked.
void UnplugSlot(Slot& slot);

/// Start and end of the thread that ends delays.
NTSTATUS StartDelays();
void StopDelays();

} // namespace driver
