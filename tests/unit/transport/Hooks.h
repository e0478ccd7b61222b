// What the import library has for calls of Windows is not taken in this program: tests may step in between. All
// are off at first; a test that switches one on switches it off again.
#pragma once

#include "win32/Windows.h"

#include <atomic>

namespace hooks {

/// Calls of Sleep(1) by this thread.
extern thread_local int naps;
/// Every second Sleep(1) is over at once, as Windows allows.
extern std::atomic<bool> shortNaps;

/// So many of the next overlapped writes are refused with ERROR_IO_DEVICE.
extern std::atomic<int> refusedWrites;
/// Overlapped writes that are done at once leave their event unset, as Windows allows.
extern std::atomic<bool> writesWithoutEvent;
/// The same for reads, which wait for their data first, so that they are done at once.
extern std::atomic<bool> readsWithoutEvent;

/// So many of the next threads are refused.
extern std::atomic<int> refusedThreads;

/// Calls that clear the throttling of the timer resolution: one precedes each raising of it.
extern std::atomic<int> throttlingCleared;

/// For support::PatchedImport, in place of CreateEventW.
HANDLE WINAPI RefuseEvent(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name);

} // namespace hooks
