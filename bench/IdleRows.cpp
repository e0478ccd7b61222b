// What the router takes of a processor when there is nothing to do. Its wake-ups are counted with the other counts.
#include "bench/IdleStates.h"
#include "bench/Rows.h"

namespace bench {

namespace {

double ProcessorSeconds(HANDLE process)
{
    FILETIME created{};
    FILETIME ended{};
    FILETIME kernel{};
    FILETIME user{};
    ::GetProcessTimes(process, &created, &ended, &kernel, &user);
    const auto seconds = [](const FILETIME& time) {
        return (time.dwHighDateTime * 4294967296.0 + time.dwLowDateTime) / 1e7;
    };
    return seconds(kernel) + seconds(user);
}

} // namespace

void AddIdleRows(Table& table, const Effort& effort, RouterSession& session)
{
    for (const IdleState state : AllIdleStates) {
        const IdleRouter idle(session, state);
        ::Sleep(500); // for what the start leaves to be done
        const double before = ProcessorSeconds(idle.Process());
        const Stopwatch watch;
        ::Sleep(static_cast<DWORD>(effort.Time(std::chrono::milliseconds(8000)).count()));
        const double share = 100 * (ProcessorSeconds(idle.Process()) - before) / watch.Seconds();
        table.Add({std::string("processor, ") + IdleRouter::NameOf(state),
                   "one processor",
                   {share, "%"},
                   std::nullopt,
                   Bound::AtMost,
                   2,
                   ""});
    }
}

} // namespace bench
