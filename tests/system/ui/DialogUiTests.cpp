// The Debug Options dialog as a person uses it.
#include "tests/system/RegistryListing.h"
#include "tests/system/ui/UiFixture.h"

#include <vector>

namespace {

RegistryListing Settings()
{
    return ListRegistry(HKEY_LOCAL_MACHINE, L"Software\\Morvane Biosystems");
}

TEST_F(Ui, CancelChangesNothing)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    const RegistryListing before = Settings();
    ASSERT_NO_FATAL_FAILURE(OpenDialogOfPump());
    EXPECT_EQ(Text(IDC_LOG_FOLDER), L"Log File Name:   MorvanePortRouter.log");
    ASSERT_NO_FATAL_FAILURE(Toggle(IDC_PARSING_LOG));
    ASSERT_NO_FATAL_FAILURE(Toggle(IDC_PIPE_SHOW));
    ASSERT_NO_FATAL_FAILURE(Enter(IDC_MAX_PACKET, "7"));
    ASSERT_NO_FATAL_FAILURE(Toggle(IDC_APPEND_TO_FILE));
    ASSERT_NO_FATAL_FAILURE(Click(IDC_RESET_ALL));
    ASSERT_TRUE(support::WaitUntil([] { return Text(IDC_MAX_PACKET) == L"100"; }));
    ASSERT_NO_FATAL_FAILURE(Leave(IDCANCEL));
    Exchange("afterwards and in full length");
    EXPECT_TRUE(WaitForLogged("afterwards and in full length"));
    EXPECT_EQ(DebugWindow(), nullptr);
    EXPECT_EQ(Settings(), before);

    ASSERT_NO_FATAL_FAILURE(OpenDialogOfPump());
    EXPECT_TRUE(IsChecked(IDC_PARSING_LOG));
    EXPECT_FALSE(IsChecked(IDC_PIPE_SHOW));
    EXPECT_TRUE(IsChecked(IDC_APPEND_TO_FILE));
    ASSERT_NO_FATAL_FAILURE(Leave(IDCANCEL));
}

TEST_F(Ui, ChangedMaskAndOkCountFromTheNextLineOnAndStandInTheRegistry)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Exchange("before");
    ASSERT_TRUE(WaitForLogged("before"));
    ASSERT_NO_FATAL_FAILURE(OpenDialogOfPump());
    ASSERT_NO_FATAL_FAILURE(Toggle(IDC_PARSING_LOG));
    ASSERT_NO_FATAL_FAILURE(Toggle(IDC_PIPE_LOG));
    ASSERT_NO_FATAL_FAILURE(Enter(IDC_LOG_FILE_SIZE, "25"));
    ASSERT_NO_FATAL_FAILURE(Leave(IDOK));
    EXPECT_EQ(SavedOption(Pump, L"DebugMask"), PipeToFile);
    EXPECT_EQ(SavedSetting(L"LogFileLimt(MB)"), 25u);
    Exchange("unwanted");

    ASSERT_NO_FATAL_FAILURE(OpenDialogOfPump());
    ASSERT_NO_FATAL_FAILURE(Toggle(IDC_PARSING_LOG));
    EXPECT_TRUE(desktop::TakePicture("dialog", Around(Dialog())));
    ASSERT_NO_FATAL_FAILURE(Enter(IDC_MAX_PACKET, "4"));
    ASSERT_NO_FATAL_FAILURE(Leave(IDOK));
    EXPECT_EQ(SavedOption(Pump, L"DebugMask"), PipeToFile | PacketsToFile);
    EXPECT_EQ(SavedOption(Pump, L"MaxPacketLength"), 4u);
    Exchange("wanted");
    ASSERT_TRUE(session.WaitForLog("w a n t  ~more~"));
    EXPECT_FALSE(LogHas("unwa"));
}

TEST_F(Ui, NothingIsTracedWhileTheDialogIsOpen)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_NO_FATAL_FAILURE(OpenDialog());
    Exchange("while open");
    ASSERT_NO_FATAL_FAILURE(Leave(IDCANCEL));
    Exchange("while closed");
    ASSERT_TRUE(WaitForLogged("while closed"));
    EXPECT_FALSE(LogHas("while open"));
}

/// Where the focus stands after each Tab, from the list of devices until it is back there.
class DialogKeys : public Ui
{
protected:
    void GoThroughAllControls()
    {
        do {
            const int before = FocusedId();
            visited.push_back(Around(Control(before)));
            ASSERT_TRUE(desktop::Press("Tab"));
            ASSERT_TRUE(support::WaitUntil([&] { return FocusedId() != before; }));
        } while (FocusedId() != IDC_DEVICE && visited.size() < 30);
    }

    static void PressUntil(const std::string& keys, int focused)
    {
        ASSERT_TRUE(desktop::Press(keys));
        ASSERT_TRUE(support::WaitUntil([&] { return FocusedId() == focused; })) << focused;
    }

    std::vector<RECT> visited;
};

TEST_F(DialogKeys, TabOrderFollowsTheEye)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_NO_FATAL_FAILURE(OpenDialog());
    ASSERT_EQ(Text(IDC_DEVICE), L"_FirmwareDebug (-1)") << "the one whose boxes can all be changed";
    ASSERT_NO_FATAL_FAILURE(GoThroughAllControls());
    EXPECT_EQ(visited.size(), 21u);
    for (std::size_t i = 1; i < visited.size(); ++i) {
        const RECT& last = visited[i - 1];
        const RECT& next = visited[i];
        const bool sameRow = next.top < last.bottom && last.top < next.bottom;
        EXPECT_TRUE(sameRow ? next.left >= last.right : next.top >= last.bottom) << "stop " << i;
    }
}

TEST_F(DialogKeys, DialogCanBeUsedByKeyboardAlone)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_NO_FATAL_FAILURE(OpenDialogOfPump());
    ASSERT_NO_FATAL_FAILURE(PressUntil("Tab", IDC_MAX_PACKET)) << "past the boxes of other devices";
    ASSERT_TRUE(desktop::Type("12"));
    ASSERT_TRUE(support::WaitUntil([] { return Text(IDC_MAX_PACKET) == L"12"; }))
        << "what stood there was selected";
    ASSERT_NO_FATAL_FAILURE(PressUntil("Tab", IDC_PARSING_LOG));
    ASSERT_TRUE(desktop::Press("space"));
    ASSERT_TRUE(support::WaitUntil([] { return !IsChecked(IDC_PARSING_LOG); }));
    ASSERT_TRUE(desktop::Press("Return"));
    ASSERT_TRUE(support::WaitUntil([] { return Dialog() == nullptr; }));
    EXPECT_EQ(SavedOption(Pump, L"DebugMask"), 0u);
    EXPECT_EQ(SavedOption(Pump, L"MaxPacketLength"), 12u);

    ASSERT_NO_FATAL_FAILURE(OpenDialogOfPump());
    ASSERT_NO_FATAL_FAILURE(PressUntil("shift+Tab", IDCANCEL)) << "backwards, to the end";
    ASSERT_NO_FATAL_FAILURE(PressUntil("shift+Tab shift+Tab", IDC_RESET_ALL));
    ASSERT_TRUE(desktop::Press("space"));
    ASSERT_TRUE(support::WaitUntil([] { return Text(IDC_MAX_PACKET) == L"100"; }));
    ASSERT_TRUE(desktop::Press("Escape"));
    ASSERT_TRUE(support::WaitUntil([] { return Dialog() == nullptr; }));
    EXPECT_EQ(SavedOption(Pump, L"MaxPacketLength"), 12u);
}

} // namespace
