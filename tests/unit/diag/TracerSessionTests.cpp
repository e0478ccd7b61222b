// The end of the Windows session, of which the debug window hears on the tracer's thread.
#include "tests/unit/diag/Pump.h"
#include "tests/unit/diag/TracerFixture.h"

#include <atomic>
#include <functional>
#include <thread>

namespace {

std::function<void()> g_endRouter; // what the session window does on WM_ENDSESSION

LRESULT CALLBACK SessionWindow(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_ENDSESSION && wParam != FALSE) {
        g_endRouter();
        return 0;
    }
    return ::DefWindowProcW(window, message, wParam, lParam);
}

/// The test's thread stands for the main thread.
class TracerSessionTest : public TracerTest
{
protected:
    TracerSessionTest()
        : m_sessionWindow(
              ::CreateWindowExW(0, L"STATIC", nullptr, WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr))
    {
        ::SetWindowLongPtrW(m_sessionWindow, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&SessionWindow));
        m_tracer->SetSessionWindow(m_sessionWindow);
    }
    ~TracerSessionTest() override { ::DestroyWindow(m_sessionWindow); }

    /// Sends the debug window what Windows sends, and serves the main thread's messages until that has returned.
    bool EndSession(BOOL ends)
    {
        const HWND window = DebugWindow();
        std::atomic<bool> returned{false};
        std::thread windows([&] {
            ::SendMessageW(window, WM_ENDSESSION, static_cast<WPARAM>(ends), 0);
            m_routerHadEnded = m_routerEnded.load();
            returned = true;
        });
        const bool inTime = PumpUntil([&] { return returned.load(); });
        windows.join();
        return inTime;
    }

    HWND m_sessionWindow;
    std::atomic<bool> m_routerEnded{false};
    bool m_routerHadEnded = false; // when the debug window's procedure returned
};

TEST_F(TracerSessionTest, DebugWindowAnswersYesToTheQuery)
{
    Start(ToWindow);
    ASSERT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    EXPECT_EQ(::SendMessageW(DebugWindow(), WM_QUERYENDSESSION, 0, 0), TRUE);
}

TEST_F(TracerSessionTest, DebugWindowReturnsAfterTheRouterHasEnded)
{
    bool complete = false;
    Lines log;
    g_endRouter = [&] {
        m_tracer->AddTrace(ToFile, "a port closes");
        EXPECT_TRUE(WaitForLine("a port closes")) << "the log goes on meanwhile";
        m_tracer->AddTrace(ToFile, "the last line");
        complete = m_tracer->StopForSessionEnd();
        log = Log();
        m_routerEnded = true;
    };
    Start(ToBoth);
    ASSERT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    ASSERT_TRUE(EndSession(TRUE));
    EXPECT_TRUE(m_routerHadEnded);
    EXPECT_TRUE(complete);
    EXPECT_EQ(CountLines(log, "the last line"), 1u);
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(WithoutStamp(log.back()), "********* End Logging *********");
    EXPECT_TRUE(m_tracer->Stop()) << "the thread has ended as well";
}

TEST_F(TracerSessionTest, SessionThatGoesOnEndsNothing)
{
    g_endRouter = [&] { m_routerEnded = true; };
    Start(ToBoth);
    ASSERT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    ASSERT_TRUE(EndSession(FALSE));
    EXPECT_FALSE(m_routerEnded);
    m_tracer->AddTrace(ToFile, "still here");
    EXPECT_TRUE(WaitForLine("still here"));
}

TEST_F(TracerSessionTest, WithoutASessionWindowTheLogEndsInOrder)
{
    m_tracer->SetSessionWindow(nullptr);
    Start(ToBoth);
    m_tracer->AddTrace(ToFile, "the last line");
    ASSERT_TRUE(support::WaitUntil([] { return DebugWindow() != nullptr; }));
    ASSERT_TRUE(EndSession(TRUE));
    EXPECT_EQ(CountLines(Log(), "the last line"), 1u);
    EXPECT_EQ(WithoutStamp(Log().back()), "********* End Logging *********");
}

TEST_F(TracerSessionTest, StopForItsEndWaitsForTheLogAlone)
{
    Start(ToFile);
    m_tracer->AddTrace(ToFile, "the last line");
    EXPECT_TRUE(m_tracer->StopForSessionEnd());
    EXPECT_EQ(CountLines(Log(), "the last line"), 1u);
    EXPECT_EQ(WithoutStamp(Log().back()), "********* End Logging *********");
    EXPECT_TRUE(m_tracer->Stop());
}

TEST_F(TracerSessionTest, StopForItsEndGivesUpAfterTwoSeconds)
{
    Block();
    Start(ToFile);
    ASSERT_TRUE(WaitUntilBlocked());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(m_tracer->StopForSessionEnd());
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(1900)); // the clock may tick in 16 ms
    EXPECT_LT(waited, std::chrono::milliseconds(4500)) << "Stop waits 5 seconds";
    Unblock();
    EXPECT_TRUE(m_tracer->Stop());
}

} // namespace
