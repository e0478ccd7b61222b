// What receives trace lines: the host's front end in the router, a recorder in tests.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>

/// Every operation may be called by any thread, until the sink was replaced and the threads that trace have ended.
class ITraceSink
{
public:
    /// What `device` wants of `classMask`; 0 ends the call before anything is formatted. Called for every line, so
    /// it must not wait and should not ask the kernel.
    virtual std::uint32_t EffectiveMask(std::int32_t device, std::uint32_t classMask) const noexcept = 0;

    /// Formats and takes one line. `effectiveMask` is not 0.
    virtual void Write(std::int32_t device, std::uint32_t effectiveMask, const char* format,
                       std::va_list arguments) noexcept = 0;

    /// Renders bytes into `out`, which is empty; false when no dump is wanted now. `effectiveMask` is not 0, nor
    /// is `length`. May throw std::bad_alloc.
    virtual bool Dump(std::int32_t device, std::uint32_t effectiveMask, const std::uint8_t* data,
                      std::uint32_t length, bool hexOnly, std::string& out) = 0;

protected:
    ~ITraceSink() = default;
};

/// Makes `sink` the process's sink; it must outlive every thread that traces. Any thread.
void InstallTraceSink(ITraceSink& sink) noexcept;

/// Leaves the process without a sink, if `sink` is still the installed one. Any thread.
void RemoveTraceSink(ITraceSink& sink) noexcept;
