// How COM treats this process: dead clients, and faults inside a call.
#pragma once

#include "win32/Windows.h"

#include <objidl.h>

/// Clients that died are run down at once, not after six minutes, and COM catches no fault of a call: the process
/// ends instead of serving on in a damaged state. Main thread, after CoInitialize and before a class object is
/// registered; COM takes each setting once. A Windows that knows a setting not keeps its own way; the first
/// failure is returned.
HRESULT SetComOptions(IGlobalOptions& options) noexcept;

/// The same with COM's own object.
HRESULT SetComOptions() noexcept;
