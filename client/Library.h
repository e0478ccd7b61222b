// The ports of the process, by their numbers.
#pragma once

#include "client/Port.h"

#include <memory>
#include <unordered_map>

namespace clientlib {

/// Any thread.
class Library
{
public:
    /// Never destroyed: threads of ports that were not closed use it until the process ends.
    static Library& Instance();

    /// Opens a port and gives it a number, unless that fails.
    Result Open(Settings settings, morvane_port& number);
    /// Null when there is no such port.
    std::shared_ptr<Port> Find(morvane_port number);
    Result Close(morvane_port number);

private:
    Library() = default;

    morvane_port Add(std::shared_ptr<Port> port);

    ComThread m_com;
    win32::SharedLock m_lock;
    std::unordered_map<morvane_port, std::shared_ptr<Port>> m_ports GUARDED_BY(m_lock);
    morvane_port m_last GUARDED_BY(m_lock) = 0;
};

} // namespace clientlib
