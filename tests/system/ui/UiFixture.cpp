#include "tests/system/ui/UiFixture.h"

#include "tests/support/RouterNames.h"

#include "tests/support/UniqueName.h"
#include "win32/RegistryKey.h"

#include <array>

namespace {

using support::DialogTitle;

win32::RegistryKey DeviceKey(int device)
{
    const std::wstring name = std::wstring(support::OptionsKey) + L"\\" + std::to_wstring(device);
    return win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, name.c_str(), KEY_READ | KEY_WRITE);
}

/// How a text stands in the log: a character, a blank, a character ...
std::string AsDumped(const std::string& text)
{
    std::string dump;
    for (const char character : text) {
        dump += character == ' ' ? ".. " : std::string(1, character) + ' ';
    }
    return dump;
}

/// A pipe is recreated every 50 ms until a client is connected, so a first open may be thrown out again: one
/// that was answered is through.
bool OpenServed(support::PipeClient& client, const std::string& name)
{
    return support::WaitUntil([&] {
        return client.Open(name) && client.Write("hello") && client.Read(std::chrono::seconds(1)) == "hello";
    });
}

} // namespace

Ui::Ui()
{
    DeviceKey(Pump).WriteString(L"DeviceName", L"Sample pump");
    RouterSession::SetMask(Pump, PacketsToFile);
}

void Ui::StartRouter()
{
    ASSERT_TRUE(support::WaitUntil(desktop::HasTaskbar)) << "these tests need a desktop with a taskbar";
    ASSERT_TRUE(session.Activate());
}

void Ui::StartInstrument()
{
    simulator.emplace(L"");
    ASSERT_TRUE(simulator->WaitUntilServed());
    const std::string name = support::UniqueName("Ui");
    ASSERT_EQ(session.RegisterPort(Pump, 1, {name.begin(), name.end()}), S_OK);
    ASSERT_TRUE(OpenServed(client, name));
}

void Ui::Start()
{
    ASSERT_NO_FATAL_FAILURE(StartRouter());
    ASSERT_NO_FATAL_FAILURE(StartInstrument());
}

void Ui::Exchange(const std::string& text)
{
    ASSERT_TRUE(client.Write(text));
    ASSERT_EQ(client.Read(), text);
}

bool Ui::LogHas(const std::string& text) const
{
    return session.Log().find(AsDumped(text)) != std::string::npos;
}

bool Ui::WaitForLogged(const std::string& text) const
{
    return session.WaitForLog(AsDumped(text));
}

std::optional<std::uint32_t> Ui::SavedOption(int device, const wchar_t* value)
{
    return DeviceKey(device).ReadDword(value);
}

std::optional<std::uint32_t> Ui::SavedSetting(const wchar_t* value)
{
    return win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, support::OptionsKey, KEY_READ).ReadDword(value);
}

HWND Ui::Dialog()
{
    return desktop::VisibleWindow(nullptr, DialogTitle);
}

HWND Ui::Control(int id)
{
    return ::GetDlgItem(Dialog(), id);
}

bool Ui::IsChecked(int id)
{
    return ::SendMessageW(Control(id), BM_GETCHECK, 0, 0) == BST_CHECKED;
}

std::wstring Ui::Text(int id)
{
    std::array<wchar_t, 100> text{};
    ::SendMessageW(Control(id), WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    return text.data();
}

int Ui::FocusedId()
{
    GUITHREADINFO info{};
    info.cbSize = sizeof info;
    const HWND dialog = Dialog();
    if (dialog == nullptr || !::GetGUIThreadInfo(::GetWindowThreadProcessId(dialog, nullptr), &info)) {
        return 0;
    }
    return ::GetParent(info.hwndFocus) == dialog ? ::GetDlgCtrlID(info.hwndFocus) : 0;
}

void Ui::TakeKeyboard(HWND (*window)(), const std::string& title)
{
    // A window that has just been shown may not be on the display yet; then the click goes past it.
    const auto hasKeyboard = [&] { return ::GetForegroundWindow() == window() && desktop::HasKeyboard(title); };
    for (int attempt = 0; attempt < 3 && !hasKeyboard(); ++attempt) {
        if (attempt > 0 || ::GetForegroundWindow() == window()) {
            // Wine asks the display for the keyboard only when another window becomes the foreground window. One
            // that is it already, and has lost the keyboard, does not get it by a click.
            ASSERT_TRUE(desktop::Click({900, 700})) << "the desktop";
        }
        const RECT place = Around(window());
        ASSERT_TRUE(desktop::Click({(place.left + place.right) / 2, place.top + 12})) << "the title bar";
        support::WaitUntil(hasKeyboard, std::chrono::seconds(10));
    }
    ASSERT_TRUE(hasKeyboard()) << title;
}

void Ui::OpenDialog()
{
    // On a busy machine the second click may come too late for a double click.
    for (int attempt = 0; attempt < 3 && Dialog() == nullptr; ++attempt) {
        ASSERT_TRUE(desktop::DoubleClick(desktop::CenterOf(desktop::TrayIcon())));
        support::WaitUntil([] { return Dialog() != nullptr; });
    }
    ASSERT_NE(Dialog(), nullptr);
    const auto hasFocus = [] { return FocusedId() == IDC_DEVICE; };
    const auto hasOpened = [&] { return hasFocus() && desktop::HasKeyboard("Debug Options"); };
    if (!support::WaitUntil(hasOpened, std::chrono::seconds(10))) {
        // The taskbar that was clicked may ask the display for the keyboard after the dialog did.
        ASSERT_NO_FATAL_FAILURE(TakeKeyboard(Dialog, "Debug Options"));
    }
    ASSERT_TRUE(support::WaitUntil(hasFocus)) << FocusedId();
}

void Ui::OpenDialogOfPump()
{
    ASSERT_NO_FATAL_FAILURE(OpenDialog());
    // Typed again it changes nothing: no other device begins with it.
    ASSERT_TRUE(support::WaitUntil([] {
        return desktop::Press("s") &&
               support::WaitUntil([] { return Text(IDC_DEVICE) == L"Sample pump (3)"; }, std::chrono::seconds(8));
    }));
}

void Ui::Click(int id)
{
    ASSERT_TRUE(desktop::Click(desktop::CenterOf(Control(id))));
}

void Ui::Toggle(int id)
{
    const bool before = IsChecked(id);
    ASSERT_NO_FATAL_FAILURE(Click(id));
    ASSERT_TRUE(support::WaitUntil([&] { return IsChecked(id) != before; })) << id;
}

void Ui::Enter(int id, const std::string& number)
{
    ASSERT_NO_FATAL_FAILURE(Click(id));
    ASSERT_TRUE(support::WaitUntil([&] { return FocusedId() == id; }));
    ASSERT_TRUE(desktop::Press("End BackSpace BackSpace BackSpace BackSpace"));
    ASSERT_TRUE(support::WaitUntil([&] { return Text(id).empty(); })) << id;
    ASSERT_TRUE(desktop::Type(number));
    ASSERT_TRUE(support::WaitUntil([&] { return Text(id) == std::wstring(number.begin(), number.end()); })) << id;
}

void Ui::Leave(int button)
{
    const HWND dialog = Dialog();
    ASSERT_NO_FATAL_FAILURE(Click(button));
    ASSERT_TRUE(support::WaitUntil([] { return Dialog() == nullptr; }));
    // It is invisible a little before the router has heard of that and traces again.
    ::SendMessageW(dialog, WM_NULL, 0, 0);
}

HWND Ui::DebugWindow()
{
    return desktop::VisibleWindow(support::DebugWindowClass);
}

LRESULT Ui::Lines()
{
    return ::SendMessageW(::GetDlgItem(DebugWindow(), 100), LB_GETCOUNT, 0, 0);
}

RECT Ui::Around(HWND window)
{
    RECT area{};
    ::GetWindowRect(window, &area);
    return area;
}

bool Traffic::Begin()
{
    if (!OpenServed(m_client, m_pipeName)) {
        return false;
    }
    m_thread = std::thread([this] { Run(); });
    return true;
}

void Traffic::End()
{
    m_stop.Set();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void Traffic::Run()
{
    // Up to 200 requests a second.
    while (!m_stop.Wait(5) && !m_failed) {
        const std::string request = "request " + std::to_string(m_answered + 1);
        if (m_client.Write(request) && m_client.Read() == request) {
            ++m_answered;
        } else {
            m_failed = true;
        }
    }
}
