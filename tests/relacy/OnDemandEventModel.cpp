// win32/OnDemandEvent.h: no Set is missed, and what was written before Set is seen after Take.
#include "tests/relacy/Model.h"
#include "win32/OnDemandEvent.h"
#include "win32/OnDemandEventM1.h"
#include "win32/OnDemandEventM2.h"
#include "win32/OnDemandEventM3.h"

namespace relacytest {

namespace {

/// Thread 0 consumes as a port does; every other thread sets the flag once.
template <class Event, int Producers>
class SetAndTake : public Model
{
public:
    void Thread(unsigned index) override
    {
        if (index == 0) {
            do {
                AwaitFlag();
                if constexpr (Producers == 1) {
                    RL_ASSERT(m_data(RL_INFO) == 1);
                }
            } while (m_sets.load() < Producers);
        } else {
            if constexpr (Producers == 1) {
                m_data(RL_INFO) = 1;
            }
            m_sets.fetch_add(1);
            m_event.Set();
        }
    }

private:
    void AwaitFlag()
    {
        while (!m_event.Take()) {
            if (!m_event.Arm()) {
                ::WaitForSingleObject(m_event.Get(), INFINITE);
            }
            m_event.Disarm();
        }
    }

    Event m_event{false};
    std::atomic<int> m_sets{0};
    rl::var<int> m_data{0};
};

template <class Event>
constexpr Case Cases[] = {
    {"one producer", 2, Case::Search::All, Make<SetAndTake<Event, 1>>},
    {"two producers", 3, Case::Search::Bound3, Make<SetAndTake<Event, 2>>},
};

constexpr Subject Subjects[] = {
    {"OnDemandEvent", nullptr, Cases<win32::OnDemandEvent>},
    {"OnDemandEvent", "Arm looks at the flag before it arms", Cases<win32::OnDemandEventM1>},
    {"OnDemandEvent", "Set looks whether it is armed before it sets the flag", Cases<win32::OnDemandEventM2>},
    {"OnDemandEvent", "Take does not see what was written before Set", Cases<win32::OnDemandEventM3>},
};

} // namespace

std::span<const Subject> OnDemandEventSubjects()
{
    return Subjects;
}

} // namespace relacytest
