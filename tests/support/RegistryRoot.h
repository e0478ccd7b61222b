// A registry of the test's own in place of one of the predefined keys.
#pragma once

#include "win32/RegistryKey.h"
#include "win32/Windows.h"

#include <string>

namespace support {

/// While it lives, everything that this process opens below `predefined` lies in an empty private key instead
/// (RegOverridePredefKey); then the private key is deleted. The replacement holds for the whole process: one at a
/// time for each predefined key.
class RegistryRoot
{
public:
    explicit RegistryRoot(HKEY predefined = HKEY_LOCAL_MACHINE);
    ~RegistryRoot();
    RegistryRoot(const RegistryRoot&) = delete;
    RegistryRoot& operator=(const RegistryRoot&) = delete;

    /// The private key itself.
    HKEY Get() const noexcept { return m_key.Get(); }

private:
    HKEY m_predefined;
    std::wstring m_name;
    win32::RegistryKey m_key;
};

} // namespace support
