// The debug window as a person uses it.
#include "tests/support/UniqueName.h"
#include "tests/system/ui/UiFixture.h"
#include "win32/RegistryKey.h"

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

    static void TakeKeyboard()
    {
        const RECT window = Around(DebugWindow());
        ASSERT_TRUE(desktop::Click({(window.left + window.right) / 2, window.top + 12})) << "the title bar";
        ASSERT_TRUE(desktop::WaitForKeyboard("Debug Window"));
    }

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

    static bool IsBeingMoved()
    {
        GUITHREADINFO info{};
        info.cbSize = sizeof info;
        const HWND window = DebugWindow();
        return !::GetGUIThreadInfo(::GetWindowThreadProcessId(window, nullptr), &info) ||
               (info.flags & GUI_INMOVESIZE) != 0;
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
        EXPECT_FALSE(TopMovesWithNewLines()) << "and the lines are added all the same";
    }
    ASSERT_TRUE(desktop::Press("alt+r"));
    ASSERT_TRUE(support::WaitUntil([&] { return TopMovesWithNewLines() || HasFatalFailure(); }));
    ASSERT_TRUE(desktop::Press("alt+c"));
    EXPECT_TRUE(support::WaitUntil([] { return Lines() == 0; }));
}

TEST_F(DebugWindowUi, StandsWhereItWasMovedToAndCanBeBroughtBack)
{
    RouterSession::SetMask(Pump, PacketsToWindow);
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    const RECT first = Around(DebugWindow());
    EXPECT_EQ(first, (RECT{10, 10, 510, 510}));
    ASSERT_TRUE(desktop::Drag({200, 22}, {360, 152}));
    ASSERT_TRUE(support::WaitUntil([&] { return !(Around(DebugWindow()) == first) && !IsBeingMoved(); }));
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
