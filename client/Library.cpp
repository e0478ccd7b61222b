#include "client/Library.h"

#include <utility>

namespace clientlib {

namespace {

/// Threads of the library run its code: once it has any it stays loaded.
void StayLoaded()
{
    HMODULE self = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                         reinterpret_cast<LPCWSTR>(&StayLoaded), &self);
}

} // namespace

Library& Library::Instance()
{
    static Library* const library = [] {
        StayLoaded();
        return new Library;
    }();
    return *library;
}

Result Library::Open(Settings settings, morvane_port& number)
{
    const auto port = std::make_shared<Port>(std::move(settings), m_com);
    const Result result = port->Open();
    if (!result.IsOk()) {
        port->Close();
        return result;
    }
    number = Add(port);
    return {};
}

morvane_port Library::Add(std::shared_ptr<Port> port)
{
    const win32::ExclusiveScope scope(m_lock);
    do {
        ++m_last;
    } while (m_last == 0 || m_ports.contains(m_last));
    m_ports.emplace(m_last, std::move(port));
    return m_last;
}

std::shared_ptr<Port> Library::Find(morvane_port number)
{
    const win32::SharedScope scope(m_lock);
    const auto found = m_ports.find(number);
    return found != m_ports.end() ? found->second : nullptr;
}

Result Library::Close(morvane_port number)
{
    std::shared_ptr<Port> port = Find(number);
    if (!port) {
        return {MORVANE_E_HANDLE, ERROR_SUCCESS};
    }
    if (port->IsInCallback()) {
        return {MORVANE_E_CALLBACK, ERROR_SUCCESS};
    }
    {
        const win32::ExclusiveScope scope(m_lock);
        if (m_ports.erase(number) == 0) {
            return {MORVANE_E_HANDLE, ERROR_SUCCESS};
        }
    }
    port->Close();
    return {};
}

} // namespace clientlib
