// The tray icon as a person meets it: tooltip and menu.
#include "tests/system/ui/UiFixture.h"

#include <commctrl.h>

#include <cwchar>

namespace {

/// The speed that the tooltip tells; none unless all of its text is right, to the letter.
std::optional<int> SpeedOf(const std::wstring& tooltip, const std::wstring& status)
{
    const std::wstring before = L"Tarn Port Router\nStatus: " + status + L"\nSpeed: ";
    if (!tooltip.starts_with(before)) {
        return std::nullopt;
    }
    wchar_t* end = nullptr;
    const long speed = std::wcstol(tooltip.c_str() + before.size(), &end, 10);
    return std::wstring(end) == L" KB/s" && speed >= 0 ? std::optional(static_cast<int>(speed)) : std::nullopt;
}

TEST_F(Ui, HoveringOverTheIconShowsStateAndSpeed)
{
    ASSERT_NO_FATAL_FAILURE(StartRouter());
    ASSERT_TRUE(desktop::PointAt(desktop::CenterOf(desktop::TrayIcon())));
    EXPECT_TRUE(support::WaitUntil([] { return SpeedOf(desktop::Tooltip(), L"Disconnected") == 0; }))
        << "\"" << testing::PrintToString(desktop::Tooltip()) << "\"";

    ASSERT_NO_FATAL_FAILURE(StartInstrument());
    std::uint64_t bytes = 0;
    ASSERT_TRUE(support::WaitUntil([&] {
        // Traffic all the while, so that there is a speed to show.
        const std::string request(3000, '.');
        Exchange(request);
        bytes += 2 * (request.size() + 13);
        const std::optional<int> speed = SpeedOf(desktop::Tooltip(), L"Connected");
        return HasFatalFailure() || (speed && *speed > 0 && static_cast<std::uint64_t>(*speed) <= bytes / 1000);
    })) << "\""
        << testing::PrintToString(desktop::Tooltip()) << "\"";
    const RECT icon = desktop::TrayIcon();
    const RECT tip = Around(desktop::VisibleWindow(TOOLTIPS_CLASSW));
    EXPECT_TRUE(desktop::TakePicture("tray", {tip.left - 160, tip.top - 20, icon.right, icon.bottom}));

    simulator->Kill();
    EXPECT_TRUE(support::WaitUntil([] { return SpeedOf(desktop::Tooltip(), L"Disconnected") == 0; }))
        << "\"" << testing::PrintToString(desktop::Tooltip()) << "\"";
}

TEST_F(Ui, MenuOfTheIconHasAnEntryThatOnlyClosesIt)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    const auto menu = [] { return desktop::VisibleWindow(L"#32768"); };
    const auto open = [&] {
        ASSERT_TRUE(desktop::RightClick(desktop::CenterOf(desktop::TrayIcon())));
        ASSERT_TRUE(support::WaitUntil([&] { return menu() != nullptr; }));
    };
    ASSERT_NO_FATAL_FAILURE(open());
    ASSERT_TRUE(desktop::Click(desktop::CenterOf(menu())));
    ASSERT_TRUE(support::WaitUntil([&] { return menu() == nullptr; }));
    EXPECT_EQ(Dialog(), nullptr);

    ASSERT_NO_FATAL_FAILURE(open());
    ASSERT_TRUE(desktop::Click({300, 300})) << "elsewhere";
    ASSERT_TRUE(support::WaitUntil([&] { return menu() == nullptr; }));
    EXPECT_EQ(Dialog(), nullptr);
    Exchange("the router lives");
}

TEST_F(Ui, TheLastReleaseEndsTheRouterThoughItsMenuIsOpen)
{
    ASSERT_NO_FATAL_FAILURE(StartRouter());
    ASSERT_TRUE(desktop::RightClick(desktop::CenterOf(desktop::TrayIcon())));
    ASSERT_TRUE(support::WaitUntil([] { return desktop::VisibleWindow(L"#32768") != nullptr; }));
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0u);
}

TEST_F(Ui, TheLastReleaseEndsTheRouterThoughItsWindowIsBeingMoved)
{
    ASSERT_NO_FATAL_FAILURE(StartRouter());
    ASSERT_NO_FATAL_FAILURE(OpenDialog());
    const DWORD thread = ::GetWindowThreadProcessId(Dialog(), nullptr);
    ASSERT_TRUE(::PostMessageW(Dialog(), WM_SYSCOMMAND, SC_MOVE, 0)); // by the keyboard, until a key ends it
    ASSERT_TRUE(support::WaitUntil([&] {
        GUITHREADINFO state{};
        state.cbSize = sizeof state;
        return ::GetGUIThreadInfo(thread, &state) && (state.flags & GUI_INMOVESIZE) != 0;
    }));
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0u);
}

} // namespace
