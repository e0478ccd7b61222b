#include "tests/support/UniqueName.h"

#include "win32/Windows.h"

#include <atomic>

namespace support {

namespace {

std::string NextSuffix()
{
    static std::atomic<unsigned> counter{0};
    return "-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++counter);
}

} // namespace

std::wstring UniqueName(std::wstring_view prefix)
{
    const std::string suffix = NextSuffix();
    return std::wstring(prefix) + std::wstring(suffix.begin(), suffix.end());
}

std::string UniqueName(std::string_view prefix)
{
    return std::string(prefix) + NextSuffix();
}

std::wstring PipePath(std::wstring_view name)
{
    return L"\\\\.\\pipe\\" + std::wstring(name);
}

} // namespace support
