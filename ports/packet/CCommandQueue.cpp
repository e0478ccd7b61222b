#include "ports/packet/CCommandQueue.h"

#include "ports/packet/CCriticalSectionHelper.h"

CCommandQueue::CCommandQueue(Waiting waiting)
{
    if (waiting == Waiting::ByEvent) {
        m_NotEmpty.emplace(win32::Event::Kind::ManualReset);
    }
}

std::int32_t CCommandQueue::Push(std::unique_ptr<CSerialPortCommand> command)
{
    if (!command) {
        return GetCount();
    }
    std::int32_t count = 0;
    {
        const CCriticalSectionHelper lock(m_Section);
        Commands().push_back(command.get());
        static_cast<void>(command.release());
        SetCount();
        count = GetCount();
    }
    // Only the first of those that wait wakes: no kernel call for the others. Outside the section, or the woken
    // thread would sleep again to wait for it.
    if (count == 1) {
        if (m_NotEmpty) {
            m_NotEmpty->Set();
        } else {
            m_FilledOrInterrupted.WakeOne();
        }
    }
    return count;
}

std::unique_ptr<CSerialPortCommand> CCommandQueue::Pop()
{
    const CCriticalSectionHelper lock(m_Section);
    std::unique_ptr<CSerialPortCommand> command = Take();
    if (command) {
        ResetEventIfEmpty();
    }
    return command;
}

std::unique_ptr<CSerialPortCommand> CCommandQueue::Take()
{
    const CCriticalSectionHelper lock(m_Section);
    if (Commands().empty()) {
        return nullptr;
    }
    std::unique_ptr<CSerialPortCommand> command(Commands().front());
    Commands().pop_front();
    SetCount();
    return command;
}

void CCommandQueue::ResetEventIfEmpty()
{
    const CCriticalSectionHelper lock(m_Section);
    if (Commands().empty() && m_NotEmpty) {
        m_NotEmpty->Reset();
    }
}

void CCommandQueue::Clear()
{
    const CCriticalSectionHelper lock(m_Section);
    while (Pop().release() != nullptr) {
    }
}

// Under the section to the end: an exchange with an empty deque would need memory, and destructors call this.
void CCommandQueue::DestroyAll()
{
    const CCriticalSectionHelper lock(m_Section);
    if (Commands().empty()) {
        return;
    }
    for (CSerialPortCommand* const command : Commands()) {
        delete command;
    }
    Commands().clear();
    SetCount();
    if (m_NotEmpty) {
        m_NotEmpty->Reset();
    }
}

bool CCommandQueue::AwaitNotEmpty(DWORD milliseconds)
{
    const CCriticalSectionHelper lock(m_Section);
    const bool inTime =
        !Commands().empty() || m_Interrupted || m_FilledOrInterrupted.Wait(m_Section, milliseconds);
    m_Interrupted = false;
    return inTime;
}

void CCommandQueue::Interrupt()
{
    {
        const CCriticalSectionHelper lock(m_Section);
        m_Interrupted = true;
    }
    m_FilledOrInterrupted.WakeOne();
}
