// win32/MirroredEvent.h: a woken thread sees the mirror set, and a set mirror never stands over an event that is
// not signalled.
#include "tests/relacy/Model.h"
#include "win32/MirroredEvent.h"
#include "win32/MirroredEventM1.h"
#include "win32/MirroredEventM2.h"
#include "win32/MirroredEventM3.h"

namespace relacytest {

namespace {

/// Thread 0 waits for the event and resets it; thread 1 sets it.
template <class Event>
class WaitAndReset : public Model
{
public:
    void Thread(unsigned index) override
    {
        if (index == 0) {
            m_event.Wait(INFINITE);
            RL_ASSERT(m_event.IsSet());
            RL_ASSERT(m_data(RL_INFO) == 1);
            m_event.Reset();
        } else {
            m_data(RL_INFO) = 1;
            m_event.Set();
        }
    }
    void After() override
    {
        RL_ASSERT(!m_event.IsSet());
        RL_ASSERT(!m_event.Wait(0));
    }

private:
    Event m_event;
    rl::var<int> m_data{0};
};

/// Thread 0 resets, the others set, all at the same moment.
template <class Event>
class SetAndReset : public Model
{
public:
    void Thread(unsigned index) override
    {
        if (index == 0) {
            m_event.Reset();
        } else {
            m_event.Set();
        }
    }
    void After() override { RL_ASSERT(!m_event.IsSet() || m_event.Wait(0)); }

private:
    Event m_event;
};

/// Thread 0 sets, the others wait.
template <class Event>
class SetAndWait : public Model
{
public:
    void Thread(unsigned index) override
    {
        if (index == 0) {
            m_event.Set();
        } else {
            m_event.Wait(INFINITE);
            RL_ASSERT(m_event.IsSet());
        }
    }

private:
    Event m_event;
};

template <class Event>
constexpr Case Cases[] = {
    {"one sets, one waits and resets", 2, Case::Search::All, Make<WaitAndReset<Event>>},
    {"one sets, one resets", 2, Case::Search::All, Make<SetAndReset<Event>>},
    {"two set, one resets", 3, Case::Search::Bound3, Make<SetAndReset<Event>>},
    {"one sets, two wait", 3, Case::Search::Bound3, Make<SetAndWait<Event>>},
};

constexpr Subject Subjects[] = {
    {"MirroredEvent", nullptr, Cases<win32::MirroredEvent>},
    {"MirroredEvent", "Set signals the event before the mirror is set", Cases<win32::MirroredEventM1>},
    {"MirroredEvent", "Reset resets the mirror before the event", Cases<win32::MirroredEventM2>},
    {"MirroredEvent", "the event wakes one thread only", Cases<win32::MirroredEventM3>},
};

} // namespace

std::span<const Subject> MirroredEventSubjects()
{
    return Subjects;
}

} // namespace relacytest
