#include "diag/WindowPlacement.h"

#include "win32/RegistryKey.h"

namespace {

constexpr wchar_t ProductKey[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter";
constexpr wchar_t PlacementKey[] = L"DebugWinSettings";

struct Placement
{
    std::uint32_t x = 10;
    std::uint32_t y = 10;
    std::uint32_t width = 500;
    std::uint32_t height = 500;
};

/// Where Windows keeps a minimised window, on no screen. No page promises the number.
constexpr auto MinimisedOrigin = static_cast<std::uint32_t>(-32000);

RECT ToRectangle(const Placement& placement)
{
    return {static_cast<LONG>(placement.x), static_cast<LONG>(placement.y),
            static_cast<LONG>(placement.x + placement.width), static_cast<LONG>(placement.y + placement.height)};
}

} // namespace

RECT LoadWindowPlacement() noexcept
{
    const auto root = win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, ProductKey, KEY_ALL_ACCESS);
    if (!root) {
        return {0, 0, 500, 500};
    }
    Placement placement;
    if (const auto key = win32::RegistryKey::Open(root.Get(), PlacementKey, KEY_READ | KEY_WRITE)) {
        placement.x = key.ReadDword(L"XOrigin").value_or(placement.x);
        placement.y = key.ReadDword(L"YOrigin").value_or(placement.y);
        placement.width = key.ReadDword(L"Width").value_or(placement.width);
        placement.height = key.ReadDword(L"Height").value_or(placement.height);
    }
    if (placement.x == MinimisedOrigin && placement.y == MinimisedOrigin) {
        placement.x = Placement().x;
        placement.y = Placement().y;
    }
    return ToRectangle(placement);
}

void SaveWindowPlacement(const RECT& placement) noexcept
{
    const auto root = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, ProductKey, KEY_READ | KEY_WRITE);
    if (!root) {
        return;
    }
    if (const auto key = win32::RegistryKey::Create(root.Get(), PlacementKey, KEY_READ | KEY_WRITE)) {
        key.WriteDword(L"XOrigin", static_cast<std::uint32_t>(placement.left));
        key.WriteDword(L"YOrigin", static_cast<std::uint32_t>(placement.top));
        key.WriteDword(L"Width", static_cast<std::uint32_t>(placement.right - placement.left));
        key.WriteDword(L"Height", static_cast<std::uint32_t>(placement.bottom - placement.top));
    }
}
