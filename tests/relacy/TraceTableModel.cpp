// host/TraceOptionsTable: a reader gets the options that were set, or those of an unknown device, and nothing
// else, also while a list of devices grows.
#include "host/TraceOptionsM1Table.h"
#include "host/TraceOptionsM2Table.h"
#include "host/TraceOptionsM3Table.h"
#include "host/TraceOptionsTable.h"
#include "tests/relacy/Model.h"

namespace relacytest {

namespace {

constexpr std::uint32_t Mask = 7;
constexpr std::uint32_t Length = 50;
constexpr std::uint32_t UnknownLength = 100;

/// Of the devices that share a list with device 0.
constexpr std::int32_t Sharing(int index)
{
    return index * 64;
}

/// Thread 0 sets the options of one more device than the `Known` ones of a list; the others look for it.
template <class Table, class Options, int Known>
class SetAndFind : public Model
{
public:
    SetAndFind()
    {
        for (int device = 0; device < Known; ++device) {
            m_table.Set(Sharing(device), Options{Mask, Length});
        }
    }
    void Thread(unsigned index) override
    {
        if (index == 0) {
            m_table.Set(Sharing(Known), Options{Mask, Length});
            m_isSet.store(true);
        } else {
            const bool mustBeThere = m_isSet.load();
            const Options found = m_table.Find(Sharing(Known));
            const bool isThere = found.mask == Mask && found.maxPacketLength == Length;
            RL_ASSERT(isThere || (!mustBeThere && found.mask == 0 && found.maxPacketLength == UnknownLength));
            if (Known > 0) {
                RL_ASSERT(m_table.Find(0).mask == Mask);
            }
        }
    }
    void After() override { RL_ASSERT(m_table.Find(Sharing(Known)).mask == Mask); }

private:
    Table m_table;
    std::atomic<bool> m_isSet{false};
};

template <class Table, class Options>
constexpr Case Cases[] = {
    {"one reader of a new device", 2, Case::Search::All, Make<SetAndFind<Table, Options, 0>>},
    {"one reader of a list that grows", 2, Case::Search::All, Make<SetAndFind<Table, Options, 2>>},
    {"two readers of a new device", 3, Case::Search::Bound3, Make<SetAndFind<Table, Options, 1>>},
};

constexpr Subject Subjects[] = {
    {"TraceOptionsTable", nullptr, Cases<TraceOptionsTable, TraceOptions>},
    {"TraceOptionsTable", "an entry is published before its options are set",
     Cases<TraceOptionsM1Table, TraceOptionsM1>},
    {"TraceOptionsTable", "an entry is published without release", Cases<TraceOptionsM2Table, TraceOptionsM2>},
    {"TraceOptionsTable", "a new entry hides those before it", Cases<TraceOptionsM3Table, TraceOptionsM3>},
};

} // namespace

std::span<const Subject> TraceTableSubjects()
{
    return Subjects;
}

} // namespace relacytest
