#include "tests/system/RegistryListing.h"

#include "win32/RegistryKey.h"

#include <vector>

namespace {

class Lister
{
public:
    explicit Lister(REGSAM view) : m_view(view) {}

    void ListKey(HKEY parent, const std::wstring& name, const std::wstring& path)
    {
        const auto key = win32::RegistryKey::Open(parent, name.c_str(), KEY_READ | m_view);
        listing.insert(path);
        ListValues(key.Get(), path);
        for (DWORD index = 0;; ++index) {
            DWORD length = static_cast<DWORD>(m_name.size());
            if (::RegEnumKeyExW(key.Get(), index, m_name.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
                ERROR_SUCCESS)
            {
                return;
            }
            const std::wstring child(m_name.data(), length);
            ListKey(key.Get(), child, (path + L"\\").append(child));
        }
    }

    RegistryListing listing;

private:
    void ListValues(HKEY key, const std::wstring& path)
    {
        for (DWORD index = 0;; ++index) {
            DWORD nameLength = static_cast<DWORD>(m_name.size());
            DWORD dataLength = static_cast<DWORD>(m_data.size());
            DWORD type = 0;
            if (::RegEnumValueW(key, index, m_name.data(), &nameLength, nullptr, &type, m_data.data(),
                                &dataLength) != ERROR_SUCCESS)
            {
                return;
            }
            std::wstring line = path + L" = " + m_name.data() + L", " + std::to_wstring(type) + L",";
            for (DWORD i = 0; i < dataLength; ++i) {
                line += L' ';
                line += L"0123456789ABCDEF"[m_data[i] >> 4];
                line += L"0123456789ABCDEF"[m_data[i] & 15];
            }
            listing.insert(std::move(line));
        }
    }

    const REGSAM m_view;
    // Big enough for what Windows allows as a name and for any value of interest; used by one call at a time.
    std::vector<wchar_t> m_name = std::vector<wchar_t>(16384);
    std::vector<BYTE> m_data = std::vector<BYTE>(1 << 20);
};

} // namespace

RegistryListing ListRegistry(HKEY root, const std::wstring& path, REGSAM view)
{
    Lister lister(view);
    lister.ListKey(root, path, path);
    return std::move(lister.listing);
}

std::wstring AddedTo(const RegistryListing& before, const RegistryListing& now)
{
    std::wstring added;
    for (const std::wstring& line : now) {
        if (!before.contains(line)) {
            added += line + L"\n";
        }
    }
    return added;
}
