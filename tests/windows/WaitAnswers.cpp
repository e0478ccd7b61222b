// Waits, and what is waited for; text.
#include "tests/support/WaitUntil.h"
#include "tests/windows/Answers.h"
#include "win32/CriticalSection.h"
#include "win32/Thread.h"

#include <array>

namespace windowscheck {

namespace {

using win32::Event;

constexpr const char* WaitPage = "WaitForMultipleObjects function";
constexpr const char* EventPage = "Event Objects";
constexpr const char* MutexPage = "Mutex Objects";

/// The index of the object that ended the wait, with "abandoned" before it, or what else the wait says.
std::string Waited(DWORD result)
{
    switch (result) {
    case WAIT_TIMEOUT: return "time-out";
    case WAIT_FAILED: return Error(::GetLastError());
    default: break;
    }
    return result < WAIT_ABANDONED ? std::to_string(result)
                                   : "abandoned " + std::to_string(result - WAIT_ABANDONED);
}

template <std::size_t Count>
std::string WaitForAny(const std::array<HANDLE, Count>& handles)
{
    return Waited(::WaitForMultipleObjects(static_cast<DWORD>(Count), handles.data(), FALSE, 0));
}

std::string LowestIndexFirst()
{
    const Event first(Event::Kind::ManualReset);
    const Event second(Event::Kind::ManualReset, true);
    const Event third(Event::Kind::ManualReset, true);
    return WaitForAny(std::array{first.Get(), second.Get(), third.Get()});
}

std::string OneIsConsumed()
{
    const Event first(Event::Kind::AutoReset, true);
    const Event second(Event::Kind::AutoReset, true);
    const std::array handles{first.Get(), second.Get()};
    std::string answers = WaitForAny(handles);
    answers += ", " + WaitForAny(handles);
    return answers + ", " + WaitForAny(handles);
}

std::string ManualStaysSet()
{
    const Event event(Event::Kind::ManualReset);
    event.Set();
    const std::array handles{event.Get()};
    std::string answers = WaitForAny(handles);
    answers += ", " + WaitForAny(handles);
    event.Reset();
    return answers + ", " + WaitForAny(handles);
}

std::string SetTwice()
{
    const Event event(Event::Kind::AutoReset);
    event.Set();
    event.Set();
    const std::string first = WaitForAny(std::array{event.Get()});
    return first + ", " + WaitForAny(std::array{event.Get()});
}

std::string SetForOneOfTwoThreads()
{
    const Event event(Event::Kind::AutoReset);
    const std::array<Event, 2> ended{Event(Event::Kind::ManualReset), Event(Event::Kind::ManualReset)};
    std::array<win32::Thread, 2> threads;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i].Start([&, i] {
            event.Wait(INFINITE);
            ended[i].Set();
        });
    }
    event.Set();
    const std::array handles{ended[0].Get(), ended[1].Get()};
    const DWORD first = ::WaitForMultipleObjects(2, handles.data(), FALSE, 20'000);
    const bool both = first < handles.size() && ended[1 - first].Wait(50);
    event.Set();
    for (win32::Thread& thread : threads) {
        thread.Join();
    }
    return first >= handles.size() ? "none" : both ? "both" : "one";
}

std::string WaitForNothing()
{
    const HANDLE none = nullptr;
    return Waited(::WaitForMultipleObjects(0, &none, FALSE, 0));
}

std::string WaitForTooMany()
{
    const Event event(Event::Kind::ManualReset, true);
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS + 1> handles{};
    handles.fill(event.Get());
    return WaitForAny(handles);
}

std::string WaitForAMissingOne()
{
    const Event event(Event::Kind::AutoReset, true);
    const std::string answer = WaitForAny(std::array<HANDLE, 2>{event.Get(), nullptr});
    return answer + (event.IsSet() ? ", nothing is consumed" : ", the other is consumed");
}

std::string SetOfNoHandle()
{
    return Done(::SetEvent(nullptr));
}

std::string MutexTakenTwice()
{
    const win32::KernelHandle mutex(::CreateMutexW(nullptr, FALSE, nullptr));
    std::string answers = Waited(::WaitForSingleObject(mutex.Get(), 0));
    answers += ", " + Waited(::WaitForSingleObject(mutex.Get(), 0));
    answers += ", " + Done(::ReleaseMutex(mutex.Get()));
    answers += ", " + Done(::ReleaseMutex(mutex.Get()));
    return answers + ", " + Done(::ReleaseMutex(mutex.Get()));
}

std::string MutexOfAThreadThatEnded()
{
    const win32::KernelHandle mutex(::CreateMutexW(nullptr, FALSE, nullptr));
    win32::Thread thread;
    thread.Start([&] { ::WaitForSingleObject(mutex.Get(), INFINITE); });
    // Not Join, which ends with the thread's body.
    if (!support::WaitFor(thread.Get())) {
        return "no end";
    }
    std::string answers = Waited(::WaitForSingleObject(mutex.Get(), 0));
    return answers + ", " + Done(::ReleaseMutex(mutex.Get()));
}

std::string WaitForAThread()
{
    const Event go(Event::Kind::ManualReset);
    win32::Thread thread;
    thread.Start([&go] { go.Wait(INFINITE); });
    std::string answers = Waited(::WaitForSingleObject(thread.Get(), 0));
    go.Set();
    answers += ", " + Waited(::WaitForSingleObject(thread.Get(), 20'000));
    return answers + ", " + Waited(::WaitForSingleObject(thread.Get(), 0));
}

std::string ConditionNeverWoken()
{
    CRITICAL_SECTION section;
    CONDITION_VARIABLE condition = CONDITION_VARIABLE_INIT;
    ::InitializeCriticalSection(&section);
    ::EnterCriticalSection(&section);
    ::WakeConditionVariable(&condition); // before there is anybody to wake
    std::string answer = "it woke";
    for (int sleep = 0; sleep < 20 && answer == "it woke"; ++sleep) { // it may wake for nothing
        answer = ::SleepConditionVariableCS(&condition, &section, 20) ? "it woke" : Error(::GetLastError());
    }
    ::LeaveCriticalSection(&section);
    ::DeleteCriticalSection(&section);
    return answer;
}

std::string TryOfATakenLock()
{
    SRWLOCK lock = SRWLOCK_INIT;
    ::AcquireSRWLockShared(&lock);
    std::string answers = ::TryAcquireSRWLockExclusive(&lock) ? "taken" : "refused";
    ::ReleaseSRWLockShared(&lock);
    ::AcquireSRWLockExclusive(&lock);
    answers += ::TryAcquireSRWLockExclusive(&lock) ? ", taken" : ", refused";
    ::ReleaseSRWLockExclusive(&lock);
    return answers;
}

std::string ConversionOfNothing()
{
    std::array<wchar_t, 4> wide{};
    const std::string answer = Done(::MultiByteToWideChar(CP_ACP, 0, "", 0, wide.data(), 4));
    std::array<char, 4> narrow{};
    return answer + ", " + Done(::WideCharToMultiByte(CP_ACP, 0, L"", 0, narrow.data(), 4, nullptr, nullptr));
}

std::string PathLongerThanItsBuffer()
{
    std::array<wchar_t, 3> path{};
    ::SetLastError(ERROR_SUCCESS);
    const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return std::to_string(length) + ", " + Error(::GetLastError()) +
           (path[2] == L'\0' ? ", ended" : ", not ended");
}

std::string KeyThatIsMissing()
{
    HKEY key = nullptr;
    const LSTATUS status =
        ::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\MorvaneTests-NoSuchKey", 0, KEY_READ, &key);
    return Error(static_cast<DWORD>(status));
}

} // namespace

std::vector<Answer> WaitAnswers()
{
    return {
        {"LowestIndexFirst", "WaitForMultipleObjects, the second and the third are set", "1", WaitPage,
         LowestIndexFirst},
        {"OneIsConsumed", "WaitForMultipleObjects three times, two auto-reset events are set", "0, 1, time-out",
         WaitPage, OneIsConsumed},
        {"ManualStaysSet", "WaitForMultipleObjects twice, a manual-reset event is set; then reset",
         "0, 0, time-out", EventPage, ManualStaysSet},
        {"SetTwice", "SetEvent twice on an auto-reset event, then two waits", "0, time-out", EventPage, SetTwice},
        {"SetForOneOfTwoThreads", "SetEvent on an auto-reset event, two threads wait", "one", EventPage,
         SetForOneOfTwoThreads},
        {"WaitForNothing", "WaitForMultipleObjects, no objects", "error 87", WaitPage, WaitForNothing},
        {"WaitForTooMany", "WaitForMultipleObjects, 65 objects", "error 87", WaitPage, WaitForTooMany},
        {"WaitForAMissingOne", "WaitForMultipleObjects, the second of two is no handle",
         "error 6, nothing is consumed", WaitPage, WaitForAMissingOne},
        {"SetOfNoHandle", "SetEvent, no handle", "error 6", "SetEvent function", SetOfNoHandle},
        {"MutexTakenTwice", "A mutex, taken twice and released three times", "0, 0, done, done, error 288",
         MutexPage, MutexTakenTwice},
        {"MutexOfAThreadThatEnded", "A mutex whose owner has ended", "abandoned 0, done", MutexPage,
         MutexOfAThreadThatEnded},
        {"WaitForAThread", "WaitForSingleObject on a thread, before its end and twice after it", "time-out, 0, 0",
         "Terminating a Thread", WaitForAThread},
        {"ConditionNeverWoken", "SleepConditionVariableCS, woken only before it", "error 1460",
         "SleepConditionVariableCS function", ConditionNeverWoken},
        {"TryOfATakenLock", "TryAcquireSRWLockExclusive, taken shared, taken exclusively", "refused, refused",
         "Slim Reader/Writer (SRW) Locks", TryOfATakenLock},
        {"ConversionOfNothing", "MultiByteToWideChar and WideCharToMultiByte, length 0", "error 87, error 87",
         "WideCharToMultiByte function", ConversionOfNothing},
        {"PathLongerThanItsBuffer", "GetModuleFileName, a buffer for 3 characters", "3, error 122, ended",
         "GetModuleFileNameW function", PathLongerThanItsBuffer, "3, error 122, not ended",
         "the string is truncated to nSize characters including the terminating null character"},
        {"KeyThatIsMissing", "RegOpenKeyEx, no such key", "error 2", "RegOpenKeyExW function", KeyThatIsMissing},
    };
}

} // namespace windowscheck
