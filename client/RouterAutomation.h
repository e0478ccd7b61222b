// The router's automation object, seen from a client.
#pragma once

#include "win32/Handle.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct IDispatch;

/// Creates the object in the router's process, which Windows starts when it does not run. COM must have been
/// initialised on the calling thread; all calls on that thread.
class RouterAutomation
{
public:
    /// Early: through the interface's own methods. Late: by name through IDispatch, as script hosts do.
    enum class Binding { Early, Late };
    enum class Result { Done, NotRegistered, NoStart, Refused };

    RouterAutomation() = default;
    ~RouterAutomation() { Release(); }
    RouterAutomation(const RouterAutomation&) = delete;
    RouterAutomation& operator=(const RouterAutomation&) = delete;

    /// Any object held before is released first.
    Result Create(Binding binding);
    /// Refused when the call does not come through, in which case the router is gone or hangs.
    Result Register(std::int32_t deviceType, std::uint32_t port, std::int32_t readBuffer, std::int32_t writeBuffer,
                    const std::wstring& pipeName);
    Result Unregister(std::int32_t deviceType, std::uint32_t port);
    void Release();

    bool IsCreated() const noexcept { return m_object != nullptr; }
    /// Why the last call failed.
    HRESULT Error() const noexcept { return m_error; }

private:
    Result Invoke(const wchar_t* method, struct tagVARIANT* lastArgumentFirst, unsigned count);
    Result Note(HRESULT result) noexcept;

    IDispatch* m_object = nullptr; // owned reference; with early binding the interface derived from it
    Binding m_binding = Binding::Early;
    HRESULT m_error = S_OK;
};

/// Ids of the running processes of that program, "name.exe" in any case.
std::vector<DWORD> ProcessesNamed(const std::wstring& program);

/// The router's process, from outside.
class RouterProcess
{
public:
    /// Finds the running router, the youngest if one is still ending; false when there is none or it may not be
    /// watched.
    bool Find();

    bool IsFound() const noexcept { return static_cast<bool>(m_process); }
    DWORD Id() const noexcept { return m_id; }
    /// Signalled when the process has ended; null when none was found.
    HANDLE Get() const noexcept { return m_process.Get(); }
    /// Its exit code, once it has ended within `milliseconds`.
    std::optional<DWORD> WaitForEnd(DWORD milliseconds) const;

private:
    void Consider(DWORD id, std::uint64_t& youngest);

    win32::KernelHandle m_process;
    DWORD m_id = 0;
};
