// The trace options of one device number: what is traced, how much of a packet is dumped, and its registry values.
#pragma once

#include "win32/Windows.h"

#include <bitset>
#include <cstdint>
#include <map>
#include <string>

/// A plain record without a lock: its owner (the module's options map, the dialog's working copy) sees to that.
/// A copy takes every field.
class CDebugOption
{
public:
    static constexpr std::uint32_t DefaultLength = 100;

    explicit CDebugOption(std::int32_t deviceNumber) : DeviceNumber(deviceNumber) {}
    CDebugOption(const CDebugOption&) = default;
    CDebugOption& operator=(const CDebugOption&) = default;
    virtual ~CDebugOption() = default;

    /// Saves to or loads from the subkey of `parentKey` that is named by the device number in decimal. True when
    /// that subkey could be created (save) or opened (load). Loading asks for read access only, so that a standard
    /// user has the settings too. On loading, a missing mask reads as 0; every other missing value leaves its
    /// field as it was.
    bool Persist(HKEY parentKey, bool save);

    /// The mask as a number: low half to the debug window, high half to the log file.
    std::uint32_t GetMask() const { return static_cast<std::uint32_t>(m_debugMask.to_ulong()); }
    void SetMask(std::uint32_t mask) { m_debugMask = mask; }
    /// `index` 0 to 31; others are ignored.
    void SetMaskBit(unsigned index, bool on);

    /// Mask, lengths and simulation go back to their defaults; number and name stay.
    void Reset();

    std::int32_t DeviceNumber;
    std::wstring DeviceName = L"Unnamed Device";
    std::uint32_t MaxPacketLength = DefaultLength;       // bytes shown by a dump
    std::uint32_t MaxParsedPacketLength = DefaultLength; // bytes; kept for the dialog, no dump uses it
    std::uint32_t EnableSimulation = 0;                  // used as bool

private:
    std::bitset<32> m_debugMask;
};

/// Device number to record, in ascending order.
using DebugOptionsMap = std::map<std::int32_t, CDebugOption>;
