// printf into a string. Portable.
#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace console {

/// As printf; at most 300 characters.
template <class... Values>
std::string Format(const char* format, Values... values)
{
    std::array<char, 300> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

} // namespace console
