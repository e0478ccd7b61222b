// What is said about a simulated instrument, in lines for people. Portable.
#pragma once

#include "instrument/Engine.h"

#include <string>

namespace instrument {

/// As printf; at most 200 characters.
template <class... Values>
std::string Format(const char* format, Values... values)
{
    std::array<char, 200> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

/// Number, type, address, length and first bytes of a packet.
std::string LineOf(const wire::Frame& frame);

/// How far a download is or has come.
std::string LineOf(const FirmwareReport& report);

/// The counters as a few lines.
std::string SummaryOf(const Engine& engine, Time running);

} // namespace instrument
