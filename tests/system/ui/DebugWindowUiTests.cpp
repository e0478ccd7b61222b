// The debug window as a person uses it.
#include "tests/support/UniqueName.h"
#include "tests/system/ui/UiFixture.h"
#include "win32/RegistryKey.h"

#include <algorithm>

namespace {

constexpr wchar_t PlacementKey[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\DebugWinSettings";

class DebugWindowUi : public Ui
{
protected:
    /// A check mark in the dialog, and OK.
    static void ShowPackets(bool on)
    {
        ASSERT_NO_FATAL_FAILURE(OpenDialogOfPump());
        ASSERT_NE(IsChecked(IDC_PARSING_SHOW), on);
        ASSERT_NO_FATAL_FAILURE(Toggle(IDC_PARSING_SHOW));
        ASSERT_NO_FATAL_FAILURE(Leave(IDOK));
        ASSERT_TRUE(support::WaitUntil([&] { return (DebugWindow() != nullptr) == on; }));
    }

    static void TakeKeyboard() { Ui::TakeKeyboard(DebugWindow, "Debug Window"); }

    /// The list's first visible line once all that is in it has been painted.
    static LRESULT Top()
    {
        ::SendMessageW(DebugWindow(), WM_TIMER, 1, 0);
        return ::SendMessageW(::GetDlgItem(DebugWindow(), 100), LB_GETTOPINDEX, 0, 0);
    }

    void AddLines(int exchanges)
    {
        const LRESULT wanted = Lines() + LRESULT{2} * exchanges;
        for (int i = 0; i < exchanges; ++i) {
            ASSERT_NO_FATAL_FAILURE(Exchange("sample " + std::to_string(i)));
        }
        ASSERT_TRUE(support::WaitUntil([&] { return Lines() >= wanted; }));
    }

    bool TopMovesWithNewLines()
    {
        const LRESULT before = Top();
        AddLines(5);
        return Top() > before;
    }

    /// What Windows does in a loop of its own: GUI_INMENUMODE, GUI_INMOVESIZE.
    static bool IsIn(DWORD loop)
    {
        GUITHREADINFO info{};
        info.cbSize = sizeof info;
        const HWND window = DebugWindow();
        return window != nullptr && ::GetGUIThreadInfo(::GetWindowThreadProcessId(window, nullptr), &info) &&
               (info.flags & loop) != 0;
    }

    void StartWithWindowAndFile()
    {
        RouterSession::SetMask(Pump, PacketsToWindow | PacketsToFile | PipeToFile);
        ASSERT_NO_FATAL_FAILURE(Start());
        ASSERT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    }

    static void OpenMenu()
    {
        ASSERT_NO_FATAL_FAILURE(TakeKeyboard());
        ASSERT_TRUE(desktop::Press("Alt_L"));
        ASSERT_TRUE(support::WaitUntil([] { return IsIn(GUI_INMENUMODE); }));
    }

    static void BeginMoving()
    {
        const RECT window = Around(DebugWindow());
        const POINT title{window.left + 190, window.top + 12};
        ASSERT_TRUE(desktop::Grab(title, {title.x + 40, title.y + 30}));
        ASSERT_TRUE(support::WaitUntil([] { return IsIn(GUI_INMOVESIZE); }));
    }

    /// Packets are logged and shown, and the loop goes on.
    void ExpectLinesWhileIn(DWORD loop)
    {
        const LRESULT shown = Lines();
        for (int i = 0; i < 20; ++i) {
            ASSERT_NO_FATAL_FAILURE(Exchange("while open " + std::to_string(i)));
        }
        EXPECT_TRUE(WaitForLogged("while open 19"));
        EXPECT_TRUE(support::WaitUntil([&] { return Lines() >= shown + 40; }));
        EXPECT_TRUE(IsIn(loop));
    }

    /// The last release: with the last lines and the end banner in the log.
    void ExpectOrderlyEnd()
    {
        ASSERT_NO_FATAL_FAILURE(Exchange("the last packet"));
        session.Release();
        EXPECT_EQ(session.WaitForEnd(), 0u);
        EXPECT_TRUE(LogHas("the last packet"));
        const std::string log = session.Log();
        EXPECT_TRUE(log.ends_with("********* End Logging *********\r\n"))
            << log.substr(log.size() - std::min<std::size_t>(log.size(), 500));
    }

    static RECT KeptPlace()
    {
        const auto key = win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, PlacementKey, KEY_READ);
        const auto value = [&](const wchar_t* name) { return static_cast<LONG>(key.ReadDword(name).value_or(0)); };
        const RECT corner{value(L"XOrigin"), value(L"YOrigin"), 0, 0};
        return {corner.left, corner.top, corner.left + value(L"Width"), corner.top + value(L"Height")};
    }
};

TEST_F(DebugWindowUi, ComesAndGoesWithTheDisplayBoxWhileTrafficRuns)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    const std::string name = support::UniqueName("Traffic");
    ASSERT_EQ(session.RegisterPort(Pump, 2, {name.begin(), name.end()}), S_OK);
    Traffic traffic(name);
    ASSERT_TRUE(traffic.Begin());
    for (int time = 0; time < 2; ++time) {
        ASSERT_NO_FATAL_FAILURE(ShowPackets(true));
        ASSERT_TRUE(support::WaitUntil([] { return Lines() > 100; }));
        EXPECT_TRUE(desktop::TakePicture("debug-window", Around(DebugWindow())));
        ASSERT_NO_FATAL_FAILURE(ShowPackets(false));
        const int answered = traffic.Answered();
        EXPECT_TRUE(support::WaitUntil([&] { return traffic.Answered() > answered + 100; }));
    }
    traffic.End();
    EXPECT_TRUE(traffic.AllAnswered());
}

TEST_F(DebugWindowUi, HoldKeepsTheViewAndReleaseLetsItScroll)
{
    RouterSession::SetMask(Pump, PacketsToWindow);
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    ASSERT_NO_FATAL_FAILURE(AddLines(100));
    ASSERT_TRUE(TopMovesWithNewLines());
    ASSERT_NO_FATAL_FAILURE(TakeKeyboard());

    ASSERT_TRUE(desktop::Press("alt+h"));
    ASSERT_TRUE(support::WaitUntil([&] { return !TopMovesWithNewLines() || HasFatalFailure(); }));
    for (int time = 0; time < 5; ++time) {
        EXPECT_FALSE(TopMovesWithNewLines()) << "and the lines are still added";
    }
    ASSERT_TRUE(desktop::Press("alt+r"));
    ASSERT_TRUE(support::WaitUntil([&] { return TopMovesWithNewLines() || HasFatalFailure(); }));
    ASSERT_TRUE(desktop::Press("alt+c"));
    EXPECT_TRUE(support::WaitUntil([] { return Lines() == 0; }));
}

TEST_F(DebugWindowUi, LinesGoOnWhileTheMenuIsOpen)
{
    ASSERT_NO_FATAL_FAILURE(StartWithWindowAndFile());
    ASSERT_NO_FATAL_FAILURE(OpenMenu());
    ExpectLinesWhileIn(GUI_INMENUMODE);
    ASSERT_TRUE(desktop::Press("Escape"));
    EXPECT_TRUE(support::WaitUntil([] { return !IsIn(GUI_INMENUMODE); }));
}

TEST_F(DebugWindowUi, LinesGoOnWhileTheWindowIsBeingMoved)
{
    ASSERT_NO_FATAL_FAILURE(StartWithWindowAndFile());
    ASSERT_NO_FATAL_FAILURE(BeginMoving());
    ExpectLinesWhileIn(GUI_INMOVESIZE);
    const RECT before = Around(DebugWindow());
    ASSERT_TRUE(desktop::PointAt({before.left + 300, before.top + 112}));
    EXPECT_TRUE(support::WaitUntil([&] { return !(Around(DebugWindow()) == before); }))
        << "it follows the pointer";
    ASSERT_TRUE(desktop::Drop());
    EXPECT_TRUE(support::WaitUntil([] { return !IsIn(GUI_INMOVESIZE); }));
}

TEST_F(DebugWindowUi, RouterEndsInOrderThoughTheMenuIsOpen)
{
    ASSERT_NO_FATAL_FAILURE(StartWithWindowAndFile());
    ASSERT_NO_FATAL_FAILURE(OpenMenu());
    ExpectOrderlyEnd();
}

TEST_F(DebugWindowUi, RouterEndsInOrderThoughTheWindowIsBeingMoved)
{
    ASSERT_NO_FATAL_FAILURE(StartWithWindowAndFile());
    ASSERT_NO_FATAL_FAILURE(BeginMoving());
    ExpectOrderlyEnd();
    ASSERT_TRUE(desktop::Drop());
}

TEST_F(DebugWindowUi, StandsWhereItWasMovedToAndCanBeBroughtBack)
{
    RouterSession::SetMask(Pump, PacketsToWindow);
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    const RECT first = Around(DebugWindow());
    EXPECT_EQ(first, (RECT{10, 10, 510, 510}));
    ASSERT_TRUE(desktop::Drag({200, 22}, {360, 152}));
    ASSERT_TRUE(support::WaitUntil([&] { return !(Around(DebugWindow()) == first) && !IsIn(GUI_INMOVESIZE); }));
    const RECT moved = Around(DebugWindow());
    EXPECT_GT(moved.left, first.left);
    EXPECT_GT(moved.top, first.top);
    EXPECT_EQ(KeptPlace(), moved);

    ASSERT_NO_FATAL_FAILURE(ShowPackets(false));
    ASSERT_NO_FATAL_FAILURE(ShowPackets(true));
    EXPECT_EQ(Around(DebugWindow()), moved);

    ASSERT_NO_FATAL_FAILURE(TakeKeyboard());
    ASSERT_TRUE(desktop::Press("alt+b"));
    EXPECT_TRUE(support::WaitUntil([&] { return Around(DebugWindow()) == first; }));
    EXPECT_TRUE(support::WaitUntil([&] { return KeptPlace() == first; }));
}

} // namespace
