// The built router on a desktop, with a simulated instrument and a client.
#pragma once

#include "diag/Resource.h"
#include "tests/support/PipeClient.h"
#include "tests/support/RouterSession.h"
#include "tests/system/SimulatorProcess.h"
#include "tests/system/ui/Desktop.h"
#include "win32/Event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>

/// Device type 3 is the "Sample pump", whose packets are traced into the log file when a test begins. Steps that
/// fail end the test (ASSERT_NO_FATAL_FAILURE around them).
class Ui : public testing::Test
{
protected:
    static constexpr int Pump = 3;
    static constexpr DWORD PacketsToFile = 0x00020000;
    static constexpr DWORD PipeToFile = 0x00040000;
    static constexpr DWORD PacketsToWindow = 0x00000002;

    Ui();

    /// Starts the router alone, then the instrument with a client on port 3,1.
    void StartRouter();
    void StartInstrument();
    void Start();

    /// A request and its echo, which are two lines in the class of packet parsing.
    void Exchange(const std::string& text);
    bool LogHas(const std::string& text) const;
    bool WaitForLogged(const std::string& text) const;

    /// What is kept in the registry.
    static std::optional<std::uint32_t> SavedOption(int device, const wchar_t* value);
    static std::optional<std::uint32_t> SavedSetting(const wchar_t* value);

    static HWND Dialog();
    static HWND Control(int id);
    static bool IsChecked(int id);
    static std::wstring Text(int id);
    /// The id of the control of the dialog that has the keyboard; 0 when none has.
    static int FocusedId();

    /// By clicks on the title bar; `title` is the window's name on the display, or a part of it.
    static void TakeKeyboard(HWND (*window)(), const std::string& title);
    /// By a double click on the icon; returns when the dialog has the keyboard.
    static void OpenDialog();
    /// The same, and selects the pump in the list by its first letter.
    static void OpenDialogOfPump();
    static void Click(int id);
    static void Toggle(int id);
    static void Enter(int id, const std::string& number);
    /// By OK or Cancel.
    static void Leave(int button);

    static HWND DebugWindow();
    static LRESULT Lines();
    static RECT Around(HWND window);

    RouterSession session{RouterSession::Transport::Simulation};
    std::optional<SimulatorProcess> simulator;
    support::PipeClient client;
};

/// Requests and echoes on a port of their own, up to 200 a second, on a thread of their own. Begin opens the pipe.
class Traffic
{
public:
    /// `pipeName` is that of a registered port.
    explicit Traffic(std::string pipeName) : m_pipeName(std::move(pipeName)) {}
    ~Traffic() { End(); }
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;

    bool Begin();
    void End();
    int Answered() const noexcept { return m_answered; }
    /// Whether every request up to now came back as it was. After End.
    bool AllAnswered() const noexcept { return !m_failed; }

private:
    void Run();

    const std::string m_pipeName;
    const win32::Event m_stop{win32::Event::Kind::ManualReset};
    std::atomic<bool> m_failed{false};
    std::atomic<int> m_answered{0};
    support::PipeClient m_client; // the thread's, once that runs
    std::thread m_thread;
};
