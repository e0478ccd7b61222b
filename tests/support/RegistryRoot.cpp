#include "tests/support/RegistryRoot.h"

#include "tests/support/UniqueName.h"

#include <stdexcept>

namespace support {

// Not a volatile key: below one of those, an ordinary key (which is what the product makes) cannot be created.
RegistryRoot::RegistryRoot(HKEY predefined)
    : m_predefined(predefined), m_name(L"Software\\MorvaneTests\\" + UniqueName(L"Root"))
{
    ::RegDeleteTreeW(HKEY_CURRENT_USER, m_name.c_str());
    m_key = win32::RegistryKey::Create(HKEY_CURRENT_USER, m_name.c_str(), KEY_ALL_ACCESS);
    if (!m_key || ::RegOverridePredefKey(m_predefined, m_key.Get()) != ERROR_SUCCESS) {
        throw std::runtime_error("no private registry root");
    }
}

RegistryRoot::~RegistryRoot()
{
    ::RegOverridePredefKey(m_predefined, nullptr);
    m_key = win32::RegistryKey();
    ::RegDeleteTreeW(HKEY_CURRENT_USER, m_name.c_str());
}

} // namespace support
