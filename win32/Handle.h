// Owners of Windows handles. A handle is closed by its owner and nowhere else.
#pragma once

#include "win32/Windows.h"

#include <utility>

namespace win32 {

/// Handles whose "none" is null: events, threads, mutexes.
struct NullIsNone
{
    static HANDLE None() noexcept { return nullptr; }
    static bool Close(HANDLE handle) noexcept { return ::CloseHandle(handle) != FALSE; }
};

/// Handles whose "none" has all bits set: files, pipes, devices, process snapshots.
struct AllBitsIsNone : NullIsNone
{
    static HANDLE None() noexcept { return INVALID_HANDLE_VALUE; }
};

/// Sole owner of one handle. The kinds of "none" are different types, so that a test against the wrong one does
/// not compile.
template <class Policy>
class UniqueHandle
{
public:
    using Handle = decltype(Policy::None());

    UniqueHandle() noexcept = default;
    explicit UniqueHandle(Handle handle) noexcept : m_handle(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept
    {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    ~UniqueHandle() { Reset(); }

    explicit operator bool() const noexcept { return m_handle != Policy::None(); }
    Handle Get() const noexcept { return m_handle; }
    Handle Release() noexcept { return std::exchange(m_handle, Policy::None()); }

    /// Closes what is held and takes `handle`. Returns whether the close worked (true when nothing was held).
    bool Reset(Handle handle = Policy::None()) noexcept
    {
        const Handle old = std::exchange(m_handle, handle);
        return old == Policy::None() || Policy::Close(old);
    }

private:
    Handle m_handle = Policy::None();
};

using KernelHandle = UniqueHandle<NullIsNone>;
using FileHandle = UniqueHandle<AllBitsIsNone>;

} // namespace win32
