// A step of the router's end that may take only so long.
#pragma once

#include "win32/Windows.h"

#include <functional>

/// Runs `step` on a thread of its own and waits for it at most `limitMs`. False when it has not returned by then:
/// it goes on by itself until the process ends, so whatever it uses must last as long. Without a thread it runs on
/// the caller's, without limit. What it throws is lost.
bool EndsWithin(DWORD limitMs, const std::function<void()>& step) noexcept;
