// What an open debug window costs the packets: round trips with every packet's lines in the window, and without,
// in turns, all through one router.
//
// MORVANE_WINDOW_ROUNDS and MORVANE_WINDOW_REQUESTS make it a measurement. The default is one short round, which
// tells that every request is answered and every line shown; times of so few mean nothing on a busy machine.
#include "tests/support/RouterNames.h"
#include "tests/system/ui/UiFixture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int RoundsThatCount = 8; // with fewer, one that was disturbed can decide

int Number(const char* variable, int otherwise)
{
    const char* const text = std::getenv(variable);
    return text != nullptr ? std::atoi(text) : otherwise;
}

struct Measured
{
    double median = 0;     // ms
    double percentile = 0; // 99th, ms
    double rate = 0;       // requests per second
};

/// The number after the first `label` in `text`, -1 when there is none.
double NumberAfter(const std::string& text, const std::string& label)
{
    const std::size_t place = text.find(label);
    return place == std::string::npos ? -1 : std::atof(text.c_str() + place + label.size());
}

double Middle(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

class WindowLoad : public Ui
{
protected:
    void Measure(int requests, Measured& measured)
    {
        const support::ChildProcess probe(support::ProgramFolder() / L"RouterProbe.exe",
                                          L"measure --port 3,2 --size 64 --quiet --count " +
                                              std::to_wstring(requests));
        ASSERT_EQ(probe.WaitForExit(std::chrono::minutes(2)), 0u) << probe.Output();
        const std::string text = probe.Output();
        measured = {NumberAfter(text, "median "), NumberAfter(text, "p99 "), NumberAfter(text, " s, ")};
        ASSERT_GT(measured.median, 0) << text;
        ASSERT_GT(measured.rate, 0) << text;
    }

    /// By messages: what matters here is what comes after.
    static void ShowPackets(bool on)
    {
        const HWND dialog = ::FindWindowW(nullptr, support::DialogTitle);
        const HWND devices = ::GetDlgItem(dialog, IDC_DEVICE);
        ::SendMessageW(dialog, WM_USER, 0, WM_LBUTTONDBLCLK);
        ASSERT_GE(::SendMessageW(devices, CB_SELECTSTRING, 0, reinterpret_cast<LPARAM>(L"Sample pump")), 0);
        ::SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDC_DEVICE, CBN_SELCHANGE),
                       reinterpret_cast<LPARAM>(devices));
        ASSERT_NE(IsChecked(IDC_PARSING_SHOW), on);
        ::SendMessageW(Control(IDC_PARSING_SHOW), BM_CLICK, 0, 0);
        ::SendMessageW(dialog, WM_COMMAND, IDOK, 0);
        ASSERT_TRUE(support::WaitUntil([&] { return (DebugWindow() != nullptr) == on; }));
    }
};

TEST_F(WindowLoad, LinesPourIntoTheOpenWindowWhilePacketsGoOn)
{
    const int rounds = Number("MORVANE_WINDOW_ROUNDS", 1);
    const int requests = Number("MORVANE_WINDOW_REQUESTS", 300);
    RouterSession::SetMask(Pump, 0);
    ASSERT_NO_FATAL_FAILURE(Start());
    std::printf("%d requests of 64 bytes each time       closed                         open\n"
                "round      median ms   p99 ms      /s    median ms   p99 ms      /s   lines/s\n",
                requests);
    std::vector<double> closed;
    std::vector<double> open;
    for (int round = 1; round <= rounds; ++round) {
        Measured without;
        Measured with;
        ASSERT_NO_FATAL_FAILURE(Measure(requests, without));
        ASSERT_NO_FATAL_FAILURE(ShowPackets(true));
        ASSERT_NO_FATAL_FAILURE(Measure(requests, with));
        ASSERT_TRUE(support::WaitUntil([&] { return Lines() >= LRESULT{2} * requests; })) << "a line for each way";
        ASSERT_NO_FATAL_FAILURE(ShowPackets(false));
        closed.push_back(without.median);
        open.push_back(with.median);
        std::printf("%5d      %9.3f %8.3f %7.0f    %9.3f %8.3f %7.0f %9.0f\n", round, without.median,
                    without.percentile, without.rate, with.median, with.percentile, with.rate, 2 * with.rate);
    }
    std::printf("medians of all rounds: closed %.3f ms, open %.3f ms\n", Middle(closed), Middle(open));
    if (rounds >= RoundsThatCount) {
        EXPECT_LT(Middle(open), 2 * Middle(closed));
    }
}

} // namespace
