// Owners of Windows handles. A handle is closed by its owner and nowhere else.
#pragma once

#include "win32/Windows.h"

#include <utility>

namespace win32 {

/// Handles whose "none" is null: events, threads, mutexes.
struct NullIsNone
{
    static HANDLE None() noexcept { return nullptr; }
};

/// Handles whose "none" has all bits set: files, pipes, devices, process snapshots.
struct AllBitsIsNone
{
    static HANDLE None() noexcept { return INVALID_HANDLE_VALUE; }
};

/// Sole owner of one handle. The two kinds of "none" are different types, so that a test against the wrong
/// one does not compile.
template <class Policy>
class UniqueHandle
{
public:
    UniqueHandle() noexcept = default;
    explicit UniqueHandle(HANDLE handle) noexcept : m_handle(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept
    {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    ~UniqueHandle() { Reset(); }

    explicit operator bool() const noexcept { return m_handle != Policy::None(); }
    HANDLE Get() const noexcept { return m_handle; }
    HANDLE Release() noexcept { return std::exchange(m_handle, Policy::None()); }

    /// Closes what is held and takes `handle`. Returns whether the close worked (true when nothing was held).
    bool Reset(HANDLE handle = Policy::None()) noexcept
    {
        const HANDLE old = std::exchange(m_handle, handle);
        return old == Policy::None() || ::CloseHandle(old) != FALSE;
    }

private:
    HANDLE m_handle = Policy::None();
};

using KernelHandle = UniqueHandle<NullIsNone>;
using FileHandle = UniqueHandle<AllBitsIsNone>;

} // namespace win32
