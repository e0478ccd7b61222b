#include "tests/support/PatchedImport.h"

#include "win32/Windows.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

namespace support {

namespace {

/// Where this program keeps the address of an imported function; null when it does not import it. "PE Format",
/// import directory table.
void** FindEntry(std::string_view function)
{
    auto* const base = reinterpret_cast<std::uint8_t*>(::GetModuleHandleW(nullptr));
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* module = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
    for (; module->Name != 0; ++module) {
        const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + module->OriginalFirstThunk);
        auto* entry = reinterpret_cast<void**>(base + module->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++entry) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) {
                continue;
            }
            const auto* const byName =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
            if (function == reinterpret_cast<const char*>(byName->Name)) {
                return entry;
            }
        }
    }
    return nullptr;
}

void Write(void** entry, void* address)
{
    DWORD before = 0;
    ::VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &before);
    *entry = address;
    ::VirtualProtect(entry, sizeof *entry, before, &before);
}

} // namespace

PatchedImport::PatchedImport(const char* function, void* replacement) : m_entry(FindEntry(function))
{
    if (m_entry == nullptr) {
        ADD_FAILURE() << function << " is not imported";
        return;
    }
    m_original = *m_entry;
    Write(m_entry, replacement);
}

PatchedImport::~PatchedImport()
{
    if (m_entry != nullptr) {
        Write(m_entry, m_original);
    }
}

} // namespace support
