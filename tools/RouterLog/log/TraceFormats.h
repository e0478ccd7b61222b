// Every line that the router writes into its logs: format, class, meaning. The one table that the parser uses.
// Portable.
#pragma once

#include "tools/RouterLog/log/TraceForm.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace routerlog {

/// What must be traced for a line to appear. Firmware is the class of USB events on device number 0, which has a
/// mask of its own.
enum class TraceClass : std::uint8_t {
    Always, // written by the tracer itself, or to the skipped-packet log
    ReadWrite,
    Packets,
    Pipe,
    Usb,
    Firmware,
    Dispatch,
    General,
};
inline constexpr std::size_t TraceClassCount = 8;

struct TraceFormat
{
    Form form;
    TraceClass traceClass;
    std::string_view format;  // as the router's source has it, without a line end
    std::string_view meaning; // for people, in a few words
};

/// In no particular order.
std::span<const TraceFormat> TraceFormats() noexcept;

struct TraceClassText
{
    std::string_view key;    // in JSON and on the command line
    std::string_view name;   // the label of the Debug Options dialog
    std::string_view device; // whose mask
    std::uint32_t fileBit;   // in that mask; 0 for none
};

const TraceClassText& TextOf(TraceClass traceClass) noexcept;

} // namespace routerlog
