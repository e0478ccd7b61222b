// The transport with the parts that its tests look into.
#pragma once

#include "transport/CCyUSBDriver.h"

class OpenDriver : public CCyUSBDriver
{
public:
    using CCyUSBDriver::CCyUSBDriver;
    using CCyUSBDriver::m_connection;
    using CCyUSBDriver::m_outgoing;

    std::int32_t Queued() { return m_outgoing.Queue().GetCount(); }
    /// As a producer does that comes to it only when its packet is written already.
    void SetNotEmptyLate() { ::SetEvent(m_outgoing.Queue().GetNotEmptyEvent()); }
    bool IsNotEmptySet()
    {
        return ::WaitForSingleObject(m_outgoing.Queue().GetNotEmptyEvent(), 0) == WAIT_OBJECT_0;
    }
};
