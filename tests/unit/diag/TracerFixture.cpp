#include "tests/unit/diag/TracerFixture.h"

#include "tests/support/RouterNames.h"

#include <atomic>
#include <cstring>

namespace {

enum class Gate { Open, Closed, UntilStop };

std::optional<std::wstring> g_programPath;
std::atomic<Gate> g_gate{Gate::Open};
std::atomic<int> g_writes{0};
std::atomic<int> g_flushes{0};
std::atomic<bool> g_filesRefused{false};
const win32::Event g_blocked{win32::Event::Kind::ManualReset};
const win32::Event g_unblocked{win32::Event::Kind::ManualReset};

std::optional<std::wstring> ProgramPath()
{
    return g_programPath;
}

/// Stop posts WM_QUIT to the thread; looking for it leaves it in the queue.
void WaitForQuit()
{
    MSG message;
    while (!::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_NOREMOVE)) {
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
    }
}

BOOL WINAPI GatedWrite(HANDLE file, LPCVOID data, DWORD length, LPDWORD written, LPOVERLAPPED overlapped)
{
    switch (g_gate.load()) {
    case Gate::Open: break;
    case Gate::Closed:
        g_blocked.Set();
        g_unblocked.Wait(INFINITE);
        break;
    case Gate::UntilStop:
        g_blocked.Set();
        WaitForQuit();
        g_gate = Gate::Open;
        break;
    }
    const BOOL result = ::WriteFile(file, data, length, written, overlapped);
    ++g_writes;
    return result;
}

/// How long a real disk takes for it depends on what else the machine does.
BOOL WINAPI NoFlush(HANDLE) noexcept
{
    ++g_flushes;
    return TRUE;
}

HANDLE WINAPI RefusableCreate(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                              DWORD disposition, DWORD flags, HANDLE templateFile) noexcept
{
    return g_filesRefused ? INVALID_HANDLE_VALUE
                          : ::CreateFileW(path, access, share, security, disposition, flags, templateFile);
}

} // namespace

int WrittenLines()
{
    return g_writes;
}

int Flushes()
{
    return g_flushes;
}

void RefuseFiles(bool refuse)
{
    g_filesRefused = refuse;
}

void SetProgramPath(const std::optional<std::wstring>& path)
{
    g_programPath = path;
}

TracerTest::TracerTest() : m_logFolder((m_folder.Path() / L"Log\\").wstring())
{
    Unblock();
    g_writes = 0;
    g_flushes = 0;
    RefuseFiles(false);
    SetProgramPath((m_folder.Path() / L"Program.exe").wstring());
    TracerSurroundings surroundings;
    surroundings.ProgramPath = &ProgramPath;
    surroundings.Disk.Create = &RefusableCreate;
    surroundings.Disk.Write = &GatedWrite;
    surroundings.Disk.Flush = &NoFlush;
    m_tracer = CDebugThread::Create(surroundings);
}

TracerTest::~TracerTest()
{
    Unblock();
    m_tracer.reset();
}

void TracerTest::Start(std::uint32_t filter, std::uint32_t limitMB, bool append)
{
    m_tracer->SetOptions(filter, L"MorvanePortRouter.log", limitMB, append);
    ASSERT_TRUE(m_tracer->Start());
    if (filter >= 0x10000 && g_gate == Gate::Open) {
        ASSERT_TRUE(WaitForLine("Begin Logging"));
    }
}

void TracerTest::SetOptions(std::uint32_t filter, std::uint32_t limitMB, bool append)
{
    m_tracer->SetOptions(filter, nullptr, limitMB, append);
}

void TracerTest::Trace(std::uint32_t mask, int first, int count)
{
    for (int i = first; i < first + count; ++i) {
        m_tracer->AddTrace(mask, std::to_string(i));
    }
}

bool TracerTest::WaitForLine(std::string_view part, std::chrono::milliseconds timeout)
{
    return support::WaitUntil([&] { return ReadText(LogPath()).find(part) != std::string::npos; }, timeout);
}

HWND TracerTest::DebugWindow()
{
    HWND window = nullptr;
    while ((window = ::FindWindowExW(nullptr, window, support::DebugWindowClass, nullptr)) != nullptr) {
        DWORD process = 0;
        ::GetWindowThreadProcessId(window, &process);
        if (process == ::GetCurrentProcessId()) {
            break;
        }
    }
    return window;
}

HWND TracerTest::DebugList()
{
    return ::GetDlgItem(DebugWindow(), 100);
}

int TracerTest::WindowLines()
{
    return static_cast<int>(::SendMessageW(DebugList(), LB_GETCOUNT, 0, 0));
}

std::wstring TracerTest::WindowText()
{
    std::wstring all;
    for (int i = 0; i < WindowLines(); ++i) {
        const auto length = ::SendMessageW(DebugList(), LB_GETTEXTLEN, static_cast<WPARAM>(i), 0);
        std::wstring line(static_cast<std::size_t>(length) + 1, L'\0');
        ::SendMessageW(DebugList(), LB_GETTEXT, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(line.data()));
        line.back() = L'\n'; // over the terminator
        all += line;
    }
    return all;
}

void TracerTest::Block()
{
    g_blocked.Reset();
    g_unblocked.Reset();
    g_gate = Gate::Closed;
}

bool TracerTest::WaitUntilBlocked()
{
    return support::WaitFor(g_blocked.Get());
}

void TracerTest::Unblock()
{
    g_gate = Gate::Open;
    g_unblocked.Set();
}

void TracerTest::BlockUntilStop()
{
    g_blocked.Reset();
    g_gate = Gate::UntilStop;
}
