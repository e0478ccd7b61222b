// The unit tests of the core in the simulated Windows: each test in a process of its own, once for each seed.
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/kernel/World.h"
#include "simulation/unit/Driver.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

/// Of clang's library that counts what is executed; null where that is not linked.
extern "C" [[gnu::weak]] int __llvm_profile_write_file();

namespace {

struct Arguments
{
    std::uint64_t first = 1, count = 100;
    std::string only; // part of the names of the tests to run
    bool prints = false;
};

struct LeftOut
{
    std::string_view test, why;
};

constexpr std::string_view Hook = "it sets a hook of its program's imports";
constexpr std::string_view ForeignThread = "its std::thread is none of the scheduler's";
constexpr std::string_view ErrorIsStatus =
    "here a request's status is its error, and a failure without one a success";
constexpr std::string_view ClosesTwice = "it closes a handle twice, which here ends the run";
constexpr LeftOut AllLeftOut[] = {
    {"SimulationAtOnce.ReadsHaveTheirEnd", Hook},
    {"PipeReadThread.HasTheEndOfReadsThatAreDoneAtOnce", Hook},
    {"Simulation.AWriteThatIsRefusedIsTracedAndANewConnectionMade", Hook},
    {"Submit.ThreadsThatCannotStartAreTraced", Hook},
    {"Dispatch.EveryGapIsLoggedOnceTheLogFolderExists",
     "it looks at files by the C++ library, which sees no simulated ones"},
    {"DeafDriver.AStopCutsShortACallThatWaits", ForeignThread},
    {"FindAndOpen.AnInstrumentUnpluggedWhileItIsBeingOpenedFailsToOpen", ForeignThread},
    {"FindAndOpen.AHandleThatCannotBeClosedThrowsATextAfterEverythingWasFreed", ClosesTwice},
    {"FindAndOpen.AHandleThatCannotBeClosedDoesNotEscapeFromTheDestructor", ClosesTwice},
    {"Transfers.AFailureWithoutAnErrorOfWindowsLeavesTheLastErrorZero", ErrorIsStatus},
    {"Transfers.ARefusalWithoutAnErrorOfWindowsEndsAtOnceToo", ErrorIsStatus},
    {"AbandonedTransfers.AreFreedByTheThousandWithoutRecursion", "it has more points than a run may have"},
    {"UniqueHandle.ResetSaysWhetherTheCloseWorked", ClosesTwice},
    {"ModulePath.NamesTheRunningProgram", "here the program has the router's path"},
    {"Thread.JoinWaitsForTheBodyAndNotForWhatEndsTheThreadLater", "its thread_local object would be all threads'"},
};

struct Assumption
{
    std::string_view test;
    sim::Switch never;
};

/// What a test takes for granted and Windows does not promise; the product does not.
constexpr Assumption Assumptions[] = {
    {"OverlappedOperationTest.TellsWhetherItWasCompleteAtItsStart", sim::Switch::PendingThoughDone},
    {"OverlappedOperationTest.CancellingTakesWhatWasDoneAtOnce", sim::Switch::PendingThoughDone},
    {"Simulation.ASimulatorThatWritesAndVanishesAtOnceIsNoticedEveryTime", sim::Switch::NameBusyWhileOpen},
    {"Simulation.AReturningSimulatorIsConnectedWithNumbersFrom0", sim::Switch::NameBusyWhileOpen},
    {"Simulation.AFailedAttemptIsFollowedByTheNextAfterTenMilliseconds", sim::Switch::TimeoutEarly},
};

/// Says what failed, and nothing else.
class FailuresOnly final : public testing::EmptyTestEventListener
{
    void OnTestPartResult(const testing::TestPartResult& result) override
    {
        if (result.failed()) {
            std::printf("  %s:%d: %s\n", result.file_name() != nullptr ? result.file_name() : "?",
                        result.line_number(), result.message());
        }
    }
};

bool RunOnce(const std::string& test, std::uint64_t seed, bool prints)
{
    sim::Options options;
    options.seed = seed;
    options.faults = sim::FaultLevel::None;
    options.countsMemory = false; // recorded traces outlive the run
    options.prints = prints;
    bool passed = false;
    const sim::Outcome outcome = sim::Run(options, [&] {
        sim::LoadInstrumentDriver();
        // Tests write before they read.
        sim::TheWorld().switches.Fix(sim::Switch::QuotaIsZero);
        for (const Assumption& assumption : Assumptions) {
            if (assumption.test == test) {
                sim::TheWorld().switches.Fix(assumption.never);
            }
        }
        passed = RUN_ALL_TESTS() == 0;
    });
    if (passed && outcome.fault.empty()) {
        return true;
    }
    std::printf("%s, seed %llu: %s\n  replay it: ./simulate --units --only %s --seed %llu --trace\n", test.c_str(),
                static_cast<unsigned long long>(seed), outcome.fault.empty() ? "failed" : outcome.fault.c_str(),
                test.c_str(), static_cast<unsigned long long>(seed));
    return false;
}

bool RunTest(const std::string& test, const Arguments& arguments)
{
    GTEST_FLAG_SET(filter, test);
    for (std::uint64_t i = 0; i < arguments.count; ++i) {
        if (!RunOnce(test, arguments.first + i, arguments.prints)) {
            return false;
        }
    }
    return true;
}

/// A process of its own: what a test leaves in static variables, and a crash, is no other's.
bool RunInChild(const std::string& test, const Arguments& arguments)
{
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        const bool passed = RunTest(test, arguments);
        std::fflush(stdout);
        if (__llvm_profile_write_file != nullptr) {
            __llvm_profile_write_file(); // _Exit does not
        }
        std::_Exit(passed ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) {
        std::perror("simulate");
        return false;
    }
    if (WIFSIGNALED(status)) {
        std::printf("%s: ended by signal %d\n", test.c_str(), WTERMSIG(status));
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Null when it is not.
const LeftOut* WhyLeftOut(std::string_view test)
{
    const auto* const at = std::ranges::find(AllLeftOut, test, &LeftOut::test);
    return at != std::end(AllLeftOut) ? at : nullptr;
}

std::vector<std::string> NamesWith(const std::string& part)
{
    std::vector<std::string> names;
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const testing::TestInfo& test = *suite.GetTestInfo(j);
            std::string name = std::string(suite.name()) + "." + test.name();
            if (name.find(part) != std::string::npos) {
                names.push_back(std::move(name));
            }
        }
    }
    return names;
}

int RunTests(const Arguments& arguments)
{
    std::size_t run = 0, failed = 0;
    for (const std::string& name : NamesWith(arguments.only)) {
        if (const LeftOut* const leftOut = WhyLeftOut(name); leftOut != nullptr) {
            std::printf("left out: %s: %s\n", name.c_str(), leftOut->why.data());
            continue;
        }
        ++run;
        failed += RunInChild(name, arguments) ? 0 : 1;
    }
    std::printf("%zu tests with %llu seeds each: %zu failed\n", run,
                static_cast<unsigned long long>(arguments.count), failed);
    return run != 0 && failed == 0 ? 0 : 1;
}

bool Parse(int count, char** words, Arguments& arguments)
{
    for (int i = 1; i < count; ++i) {
        const std::string_view word = words[i];
        if (word == "--trace") {
            arguments.prints = true;
            continue;
        }
        if (i + 1 == count) {
            return false;
        }
        if (word == "--only") {
            arguments.only = words[++i];
            continue;
        }
        char* end = nullptr;
        const std::uint64_t number = std::strtoull(words[i + 1], &end, 10);
        if (number == 0 || *end != '\0') {
            return false;
        }
        if (word == "--seeds") {
            arguments.count = number;
        } else if (word == "--seed") {
            arguments.first = number;
            arguments.count = 1;
        } else {
            return false;
        }
        ++i;
    }
    return true;
}

} // namespace

int main(int count, char** words)
{
    testing::InitGoogleTest(&count, words);
    Arguments arguments;
    if (!Parse(count, words, arguments)) {
        std::fputs("usage: ./simulate --units [--seeds N | --seed K [--trace]] [--only PART_OF_A_NAME]\n", stderr);
        return 2;
    }
    sim::MakeUncaughtExceptionsFaults();
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new FailuresOnly);
    return RunTests(arguments);
}
