#include "ports/CCommandQueue.h"

#include "ports/CCriticalSectionHelper.h"

CCommandQueue::CCommandQueue() noexcept : m_NotEmpty(win32::Event::Kind::ManualReset) {}

CCommandQueue::~CCommandQueue()
{
    Clear();
}

std::int32_t CCommandQueue::Push(CSerialPortCommand* command)
{
    if (command == nullptr) {
        return GetCount();
    }
    const CCriticalSectionHelper lock(m_Section);
    push(command);
    const auto count = static_cast<std::int32_t>(size());
    m_Count.store(count, std::memory_order_relaxed);
    // Set already when others wait in front: no kernel call for those.
    if (count == 1) {
        m_NotEmpty.Set();
    }
    return count;
}

CSerialPortCommand* CCommandQueue::Pop()
{
    const CCriticalSectionHelper lock(m_Section);
    if (empty()) {
        return nullptr;
    }
    CSerialPortCommand* const command = front();
    pop();
    m_Count.store(static_cast<std::int32_t>(size()), std::memory_order_relaxed);
    if (empty()) {
        m_NotEmpty.Reset();
    }
    return command;
}

void CCommandQueue::Clear()
{
    const CCriticalSectionHelper lock(m_Section);
    while (Pop() != nullptr) {
    }
}

void CCommandQueue::DestroyAll()
{
    std::deque<CSerialPortCommand*> taken;
    {
        const CCriticalSectionHelper lock(m_Section);
        if (empty()) {
            return;
        }
        taken.swap(c);
        m_Count.store(0, std::memory_order_relaxed);
        m_NotEmpty.Reset();
    }
    for (CSerialPortCommand* const command : taken) {
        delete command;
    }
}
