// The short sleeps of the command threads.
#pragma once

/// Sleeps for a whole millisecond. A single Sleep(1) may be shorter: it counts the ticks of the system timer, and
/// the first one may be over at once ("Sleep function"). Any thread.
void SleepOneMillisecond() noexcept;
