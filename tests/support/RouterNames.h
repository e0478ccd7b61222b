// Names that the router shows to Windows and to people, as tests look for them from outside.
#pragma once

namespace support {

inline constexpr wchar_t DialogTitle[] = L"Morvane Port Router - Debug Options";
inline constexpr wchar_t DebugWindowClass[] = L"MorvaneDebugWindow";
/// Below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t OptionsKey[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\DeviceOptions";

} // namespace support
