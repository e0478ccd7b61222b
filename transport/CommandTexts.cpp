#include "transport/Link.h"

const CommandTexts UsbCommandTexts{
    .cannotRun = "CCyUSBDriver::USBCommandProcessThread() cannot run",
    .started = "CCyUSBDriver::USBCommandProcessThread() started",
    .failed = "CCyUSBDriver::USBCommandProcessThread() failed, reconnecting",
    .ended = "CCyUSBDriver::USBCommandProcessThread() ended",
    .connecting = "CCyUSBDriver::USBCommandProcessThread(%dth try) looking for USB endpoints...",
    .pendingWrites = "CCyUSBDriver::USBCommandProcessThread() %d pending writes",
    .written = "CCyUSBDriver::USBCommandProcessThread overlapped write %d bytes",
    .blocked = "CCyUSBDriver::USBCommandProcessThread() WARNING: Command queue not empty, but previous Write "
               "operation incomplete (TotalAborted=%d)",
    .aborts = "CCyUSBDriver::USBCommandProcessThread() abort previous Write operation (TotalAborted=%d)",
    .idleBlocked = "CCyUSBDriver::USBCommandProcessThread() IDLE,  WARNING: Write operation incomplete "
                   "(TotalAborted=%d)",
    .idle = "CCyUSBDriver::USBCommandProcessThread() IDLE, Number of pending writes: %d",
};

const CommandTexts SimulationCommandTexts{
    .cannotRun = "CCyUSBDriver::SimulationCommandProcessThread() cannot run",
    .started = "CCyUSBDriver::SimulationCommandProcessThread() started",
    .failed = "CCyUSBDriver::SimulationCommandProcessThread() failed, reconnecting",
    .ended = "CCyUSBDriver::SimulationCommandProcessThread() ended",
    .connecting = "CCyUSBDriver::SimulationCommandProcessThread(%dth try) looking for USB endpoints...",
    .pendingWrites = "CCyUSBDriver::SimulationCommandProcessThread() %d pending writes",
    .written = "CCyUSBDriver::SimulationCommandProcessThread overlapped write %d bytes",
    .blocked =
        "CCyUSBDriver::SimulationCommandProcessThread() WARNING: Command queue not empty, but previous Write "
        "operation incomplete (TotalAborted=%d)",
    .aborts = nullptr,
    .idleBlocked = "CCyUSBDriver::SimulationCommandProcessThread() IDLE,  WARNING: Write operation incomplete "
                   "(TotalAborted=%d)",
    .idle = "CCyUSBDriver::SimulationCommandProcessThread() IDLE, Number of pending write: %d",
};
