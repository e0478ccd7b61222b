#include "tests/support/UnderWine.h"

#include "win32/Windows.h"

bool support::IsUnderWine()
{
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}
