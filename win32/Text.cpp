#include "win32/Text.h"

namespace win32 {

std::string ToAnsi(std::wstring_view text)
{
    const int length = static_cast<int>(text.size());
    const int needed = ::WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(needed), '\0');
    ::WideCharToMultiByte(CP_ACP, 0, text.data(), length, result.data(), needed, nullptr, nullptr);
    return result;
}

std::wstring FromAnsi(std::string_view text)
{
    const int length = static_cast<int>(text.size());
    const int needed = ::MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(needed), L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, text.data(), length, result.data(), needed);
    return result;
}

} // namespace win32
