// host/PortTable: a port that was found lives until the call is over. The port itself is a stand-in.
#include "host/PortTable.h"
#include "host/PortTableM1.h"
#include "host/PortTableM2.h"
#include "host/PortTableM3.h"
#include "ports/CCDevicePortPipe.h"
#include "tests/relacy/Model.h"

namespace relacytest {

namespace {

constexpr PortAddress Address{3, 1};
constexpr std::uint8_t Payload[] = {1};

/// Thread 0 is the main thread, which removes the port; the others are the transport's.
template <class Table>
class TableModel : public Model
{
public:
    TableModel() { m_table.AddPort(Address, std::make_unique<CCDevicePortPipe>(m_alive)); }
    void After() override
    {
        RL_ASSERT(m_alive(RL_INFO) == 0);
        RL_ASSERT(!m_table.SendToPort(Address, nullptr, Payload));
    }

protected:
    rl::var<int> m_alive{0};
    Table m_table;
};

template <class Table>
class RemoveAndSend : public TableModel<Table>
{
    void Thread(unsigned index) override
    {
        switch (index) {
        case 0: this->m_table.RemovePort(Address).reset(); break;
        case 1: this->m_table.SendToPort(Address, nullptr, Payload); break;
        default: this->m_table.PacketCompleted(Address); break;
        }
    }
};

template <class Table>
class DeleteAllAndSend : public TableModel<Table>
{
    void Thread(unsigned index) override
    {
        switch (index) {
        case 0: this->m_table.DeleteAllPorts(); break;
        case 1: this->m_table.SendToPorts(Address.port, nullptr, Payload); break;
        default: this->m_table.SignalAllPorts(); break;
        }
    }
};

template <class Table>
constexpr Case Cases[] = {
    {"removed while one sends", 2, Case::Search::All, Make<RemoveAndSend<Table>>},
    {"all deleted while one sends", 2, Case::Search::All, Make<DeleteAllAndSend<Table>>},
    {"removed while two threads use it", 3, Case::Search::Bound3, Make<RemoveAndSend<Table>>},
    {"all deleted while two threads use them", 3, Case::Search::Bound3, Make<DeleteAllAndSend<Table>>},
};

constexpr Subject Subjects[] = {
    {"PortTable", nullptr, Cases<PortTable>},
    {"PortTable", "a payload is sent after the lock", Cases<PortTableM1>},
    {"PortTable", "a port is removed under the shared lock", Cases<PortTableM2>},
    {"PortTable", "all ports are taken out without the lock", Cases<PortTableM3>},
};

} // namespace

std::span<const Subject> PortTableSubjects()
{
    return Subjects;
}

} // namespace relacytest
