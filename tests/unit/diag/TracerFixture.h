// A tracer with a log folder of its own, and a hand on its disk.
#pragma once

#include "diag/CDebugThread.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/diag/LogText.h"

#include <gtest/gtest.h>

#include <string>

/// Trace masks: one category to the window, to the file, to both.
inline constexpr std::uint32_t ToWindow = 0x00000004;
inline constexpr std::uint32_t ToFile = 0x00040000;
inline constexpr std::uint32_t ToBoth = 0x00040004;

class TracerTest : public testing::Test
{
protected:
    TracerTest();
    ~TracerTest() override;

    /// Sets the options and starts; the file's begin banner is on disk when it returns, if `filter` wants a file.
    void Start(std::uint32_t filter, std::uint32_t limitMB = 10, bool append = true);
    void SetOptions(std::uint32_t filter, std::uint32_t limitMB = 10, bool append = true);

    /// Traces the texts "first" to "first + count - 1".
    void Trace(std::uint32_t mask, int first, int count);

    bool WaitForLine(std::string_view part, std::chrono::milliseconds timeout = support::DefaultTimeout);
    Lines Log() const { return ReadLines(LogPath()); }
    std::wstring LogPath() const { return m_logFolder + L"MorvanePortRouter.log"; }
    std::wstring BackupPath() const { return LogPath() + L".BAK"; }

    /// The debug window of this process, none when there is none; its list and how many lines that has.
    static HWND DebugWindow();
    static HWND DebugList();
    static int WindowLines();
    /// Its lines, each followed by a line feed.
    static std::wstring WindowText();

    /// From now on every write to the log waits until Unblock. WaitUntilBlocked returns once one does.
    static void Block();
    static bool WaitUntilBlocked();
    static void Unblock();
    /// The next write waits until Stop has been called.
    static void BlockUntilStop();

    support::RegistryRoot m_registry{HKEY_LOCAL_MACHINE};
    support::TempFolder m_folder;
    std::wstring m_logFolder;
    CDebugThread::Owner m_tracer;
};

/// How many lines the tracer's disk has been given since the start of the test, and the program path it sees.
int WrittenLines();
/// How often since then it was flushed.
int Flushes();
/// From now on no file can be opened or created; or again.
void RefuseFiles(bool refuse);
void SetProgramPath(const std::optional<std::wstring>& path);
