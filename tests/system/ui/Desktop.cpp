#include "tests/system/ui/Desktop.h"

#include "tests/support/WaitUntil.h"
#include "win32/Handle.h"

#include <commctrl.h>

#include <array>
#include <cstdlib>
#include <filesystem>

namespace desktop {

namespace {

/// Runs a program of the system below Wine, which gives no handle of it to wait for.
void RunNative(const std::string& program, const std::string& arguments)
{
    const std::string path = "Z:\\usr\\bin\\" + program;
    std::string commandLine = path + " " + arguments;
    STARTUPINFOA start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION process{};
    if (::CreateProcessA(path.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start,
                         &process))
    {
        const win32::KernelHandle thread(process.hThread);
        const win32::KernelHandle handle(process.hProcess);
    }
}

void Pointer(POINT place, const std::string& then)
{
    RunNative("xdotool",
              "mousemove --sync " + std::to_string(place.x) + " " + std::to_string(place.y) + " " + then);
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
    constexpr std::size_t TextPlace = 128; // behind the record
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

void PointAt(POINT place)
{
    Pointer(place, "");
}

void Click(POINT place)
{
    Pointer(place, "click 1");
}

void DoubleClick(POINT place)
{
    Pointer(place, "click --repeat 2 --delay 80 1");
}

void RightClick(POINT place)
{
    Pointer(place, "click 3");
}

void Press(const std::string& keys)
{
    RunNative("xdotool", "key --delay 60 " + keys);
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
    const std::string path = std::string(folder) + "/" + name + ".png";
    const std::string crop = std::to_string(area.right - area.left) + "x" +
                             std::to_string(area.bottom - area.top) + "+" + std::to_string(area.left) + "+" +
                             std::to_string(area.top);
    RunNative("import", "-window root -crop " + crop + " +repage " + path + ".part.png");
    // Complete once it can be moved to its own name by a second command that waits for no one: its size stands still.
    std::filesystem::path part = "Z:" + path + ".part.png";
    std::uintmax_t size = 0;
    return support::WaitUntil([&] {
        std::error_code error;
        const std::uintmax_t now = std::filesystem::file_size(part, error);
        const bool complete = !error && now != 0 && now == size;
        size = error ? 0 : now;
        ::Sleep(200);
        return complete && (std::filesystem::rename(part, "Z:" + path, error), !error);
    });
}

} // namespace desktop
