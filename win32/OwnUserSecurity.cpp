#include "win32/OwnUserSecurity.h"

#include "win32/Handle.h"

#include <sddl.h>
#include <array>
#include <cstddef>
#include <cstdio>

namespace win32 {

namespace {

/// The text form of the process's user, to be freed with LocalFree; null with GetLastError.
char* OwnUser() noexcept
{
    HANDLE opened = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &opened)) {
        return nullptr;
    }
    const KernelHandle token(opened);
    alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user{};
    DWORD length = 0;
    char* text = nullptr;
    if (!::GetTokenInformation(token.Get(), TokenUser, user.data(), static_cast<DWORD>(user.size()), &length) ||
        !::ConvertSidToStringSidA(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, &text))
    {
        return nullptr;
    }
    return text;
}

} // namespace

OwnUserSecurity::OwnUserSecurity() noexcept
{
    char* const user = OwnUser();
    if (user == nullptr) {
        m_error = ::GetLastError();
        return;
    }
    // "Security Descriptor Definition Language": protected, full access for SYSTEM, administrators and the user.
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(), "D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;%s)", user);
    ::LocalFree(user);
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorA(text.data(), SDDL_REVISION_1,
                                                                &m_attributes.lpSecurityDescriptor, nullptr))
    {
        m_error = ::GetLastError();
        m_attributes.lpSecurityDescriptor = nullptr;
    }
}

OwnUserSecurity::~OwnUserSecurity()
{
    ::LocalFree(m_attributes.lpSecurityDescriptor);
}

} // namespace win32
