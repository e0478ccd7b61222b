// Where the debug window stands on the screen, kept in the registry.
#pragma once

#include "win32/Windows.h"

/// Reads the kept placement (10, 10 and 500 by 500 where none is kept). The corner (0, 0) and 500 by 500 when
/// the product's key does not open.
RECT LoadWindowPlacement() noexcept;

/// Silent when the key cannot be written.
void SaveWindowPlacement(const RECT& placement) noexcept;
