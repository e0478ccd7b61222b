#include "tests/system/ui/Desktop.h"

#include "tests/support/UniqueName.h"
#include "tests/support/WaitUntil.h"
#include "win32/Handle.h"

#include <commctrl.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace desktop {

namespace {

/// A path of Windows as the programs outside know it; empty when that failed.
std::string OutsidePath(const std::filesystem::path& path)
{
    using Translate = char*(__cdecl*)(const wchar_t*);
    const auto translate = reinterpret_cast<Translate>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
    char* const outside = translate != nullptr ? translate(path.c_str()) : nullptr;
    std::string copy = outside != nullptr ? outside : "";
    ::HeapFree(::GetProcessHeap(), 0, outside);
    return copy;
}

/// Runs a command of the system below Wine and waits for its end. Wine gives no handle of such a program: it
/// leaves the fields of PROCESS_INFORMATION unset, and a close of them closes whatever handle of the tests has
/// that number. So the command writes its exit code to a file. True when that is 0.
bool RunOutside(const std::string& command)
{
    const auto end = std::filesystem::temp_directory_path() / support::UniqueName(L"outside");
    std::ofstream(end).close();
    const std::string file = OutsidePath(end);
    std::string commandLine = "sh -c \"" + command + "; echo $? >'" + file + "'\"";
    STARTUPINFOA start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION process{};
    if (file.empty() || !::CreateProcessA("Z:\\bin\\sh", commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                          nullptr, &start, &process))
    {
        return false;
    }
    int code = -1;
    const bool ended = support::WaitUntil([&] { return static_cast<bool>(std::ifstream(end) >> code); });
    std::error_code ignored;
    std::filesystem::remove(end, ignored);
    return ended && code == 0;
}

bool Pointer(POINT place, const std::string& then)
{
    // The display keeps the order; --sync would wait 15 s for a pointer that stands there already.
    return RunOutside("xdotool mousemove " + std::to_string(place.x) + " " + std::to_string(place.y) + " " + then);
}

HWND Taskbar()
{
    return ::FindWindowW(L"Shell_TrayWnd", nullptr);
}

/// A block of memory in another process, for messages that carry a pointer.
class RemoteMemory
{
public:
    RemoteMemory(HWND window, std::size_t size)
    {
        DWORD process = 0;
        ::GetWindowThreadProcessId(window, &process);
        m_process.Reset(::OpenProcess(PROCESS_VM_OPERATION | PROCESS_VM_READ | PROCESS_VM_WRITE, FALSE, process));
        m_address = ::VirtualAllocEx(m_process.Get(), nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    }
    ~RemoteMemory() { ::VirtualFreeEx(m_process.Get(), m_address, 0, MEM_RELEASE); }
    RemoteMemory(const RemoteMemory&) = delete;
    RemoteMemory& operator=(const RemoteMemory&) = delete;

    char* Address() const { return static_cast<char*>(m_address); }
    void Write(const void* data, std::size_t size) const
    {
        ::WriteProcessMemory(m_process.Get(), m_address, data, size, nullptr);
    }
    void Read(std::size_t offset, void* data, std::size_t size) const
    {
        ::ReadProcessMemory(m_process.Get(), Address() + offset, data, size, nullptr);
    }

private:
    win32::KernelHandle m_process;
    void* m_address = nullptr;
};

std::wstring TextOf(HWND tooltip)
{
    std::array<wchar_t, 256> text{};
    constexpr std::size_t TextPlace = 128; // after the record
    static_assert(sizeof(TTTOOLINFOW) <= TextPlace);
    const RemoteMemory memory(tooltip, TextPlace + sizeof text);
    TTTOOLINFOW tool{};
    tool.cbSize = sizeof tool;
    tool.lpszText = reinterpret_cast<wchar_t*>(memory.Address() + TextPlace);
    memory.Write(&tool, sizeof tool);
    ::SendMessageW(tooltip, TTM_GETCURRENTTOOLW, 0, reinterpret_cast<LPARAM>(memory.Address()));
    memory.Read(TextPlace, text.data(), sizeof text - sizeof(wchar_t));
    return text.data();
}

} // namespace

bool HasTaskbar()
{
    return Taskbar() != nullptr;
}

RECT TrayIcon()
{
    RECT place{};
    ::GetWindowRect(Taskbar(), &place);
    place.left = place.right - (place.bottom - place.top);
    return place;
}

std::wstring Tooltip()
{
    const HWND tooltip = VisibleWindow(TOOLTIPS_CLASSW);
    return tooltip == nullptr ? std::wstring() : TextOf(tooltip);
}

POINT CenterOf(const RECT& area)
{
    return {(area.left + area.right) / 2, (area.top + area.bottom) / 2};
}

POINT CenterOf(HWND window)
{
    RECT place{};
    ::GetWindowRect(window, &place);
    return CenterOf(place);
}

bool PointAt(POINT place)
{
    return Pointer(place, "");
}

bool Click(POINT place)
{
    return Pointer(place, "click 1");
}

bool DoubleClick(POINT place)
{
    return Pointer(place, "click --repeat 2 --delay 80 1");
}

bool RightClick(POINT place)
{
    return Pointer(place, "click 3");
}

bool Drag(POINT from, POINT to)
{
    return Grab(from, to) && Pointer(to, "mouseup 1");
}

bool Grab(POINT from, POINT to)
{
    return Pointer(from, "mousedown 1") && Pointer(to, "");
}

bool Drop()
{
    return RunOutside("xdotool mouseup 1");
}

bool Press(const std::string& keys)
{
    return RunOutside("xdotool key " + keys);
}

bool Type(const std::string& text)
{
    return RunOutside("xdotool type '" + text + "'");
}

bool WaitForKeyboard(const std::string& part)
{
    return support::WaitUntil([&] { return HasKeyboard(part); });
}

bool HasKeyboard(const std::string& part)
{
    return RunOutside("xdotool getwindowfocus getwindowname | grep -q '" + part + "'");
}

HWND VisibleWindow(const wchar_t* windowClass, const wchar_t* title)
{
    HWND window = nullptr;
    while ((window = ::FindWindowExW(nullptr, window, windowClass, title)) != nullptr) {
        if (::IsWindowVisible(window)) {
            return window;
        }
    }
    return nullptr;
}

bool TakePicture(const std::string& name, const RECT& area)
{
    const char* folder = std::getenv("MORVANE_SCREENSHOTS");
    if (folder == nullptr) {
        return true;
    }
    const std::string crop = std::to_string(area.right - area.left) + "x" +
                             std::to_string(area.bottom - area.top) + "+" + std::to_string(area.left) + "+" +
                             std::to_string(area.top);
    return RunOutside("import -window root -crop " + crop + " +repage -strip '" + folder + "/" + name + ".png'");
}

} // namespace desktop
