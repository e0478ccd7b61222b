// The scoped lock of the queues, the transport and the ports.
#pragma once

#include "win32/CriticalSection.h"

/// Enters the critical section for as long as it lives.
class SCOPED_CAPABILITY CCriticalSectionHelper
{
public:
    explicit CCriticalSectionHelper(win32::CriticalSection& section) noexcept ACQUIRE(section)
        : m_pSection(&section)
    {
        m_pSection->Enter();
    }
    virtual ~CCriticalSectionHelper() RELEASE() { m_pSection->Leave(); }
    CCriticalSectionHelper(const CCriticalSectionHelper&) = delete;
    CCriticalSectionHelper& operator=(const CCriticalSectionHelper&) = delete;

private:
    win32::CriticalSection* m_pSection;
};
