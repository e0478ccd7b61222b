// Security of a file or pipe that is for this process's own user.
#pragma once

#include "win32/Windows.h"

namespace win32 {

/// A security descriptor whose DACL gives full access to the user of this process, to SYSTEM and to
/// administrators, and none to anybody else. Used by one thread; must live while an object is created with it, not
/// longer.
class OwnUserSecurity
{
public:
    OwnUserSecurity() noexcept;
    ~OwnUserSecurity();
    OwnUserSecurity(const OwnUserSecurity&) = delete;
    OwnUserSecurity& operator=(const OwnUserSecurity&) = delete;

    /// False when it could not be built. An object must then not be created: without attributes it would get the
    /// default security.
    explicit operator bool() const noexcept { return m_attributes.lpSecurityDescriptor != nullptr; }
    /// Why it could not be built.
    DWORD Error() const noexcept { return m_error; }

    SECURITY_ATTRIBUTES* Attributes() noexcept { return &m_attributes; }

private:
    SECURITY_ATTRIBUTES m_attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
    DWORD m_error = ERROR_SUCCESS;
};

} // namespace win32
