// The kernel's interface and the few helpers that a driver without a C++ run-time needs.
#pragma once

#include <intrin.h>

// MinGW's kernel header defines two functions a second time that its own <intrin.h> has; renamed, the two can
// meet.
#define InterlockedBitTestAndSet   KernelHeaderBitTestAndSet
#define InterlockedBitTestAndReset KernelHeaderBitTestAndReset
#include <ntddk.h>
#undef InterlockedBitTestAndSet
#undef InterlockedBitTestAndReset

#include <cstddef>
#include <cstdint>

namespace kernel {

inline constexpr ULONG Tag = 0x74736E49; // "Inst"

/// Zeroed, never paged; null when there is none left.
inline void* Allocate(std::size_t size)
{
    void* const memory = ExAllocatePoolWithTag(NonPagedPool, size, Tag);
    if (memory != nullptr) {
        RtlZeroMemory(memory, size);
    }
    return memory;
}

template <class T>
T* New(std::size_t trailing = 0)
{
    return static_cast<T*>(Allocate(sizeof(T) + trailing));
}

inline void Free(void* memory)
{
    if (memory != nullptr) {
        ExFreePoolWithTag(memory, Tag);
    }
}

/// A link of a list that knows how to come out of it; T has a LIST_ENTRY named `link`.
template <class T>
T* FromLink(LIST_ENTRY* entry)
{
    return CONTAINING_RECORD(entry, T, link);
}

template <class T>
T* TakeFirst(LIST_ENTRY& list)
{
    return IsListEmpty(&list) ? nullptr : FromLink<T>(RemoveHeadList(&list));
}

class SpinLock
{
public:
    void Initialize() { KeInitializeSpinLock(&m_lock); }

private:
    friend class LockScope;
    KSPIN_LOCK m_lock;
};

class LockScope
{
public:
    explicit LockScope(SpinLock& lock) : m_lock(lock) { KeAcquireSpinLock(&m_lock.m_lock, &m_old); }
    ~LockScope() { KeReleaseSpinLock(&m_lock.m_lock, m_old); }
    LockScope(const LockScope&) = delete;
    LockScope& operator=(const LockScope&) = delete;

private:
    SpinLock& m_lock;
    KIRQL m_old = 0;
};

} // namespace kernel
