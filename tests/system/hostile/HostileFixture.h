// The built router between an instrument, a well-behaved client and ends that are not: each test is one thing that
// a hostile end does.
#pragma once

#include "tests/support/PipeClient.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TempFolder.h"
#include "tests/system/SimulatorProcess.h"
#include "tests/system/hostile/WellBehavedClient.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace hostile {

/// What all cases have in common.
class Setting
{
public:
    /// The instrument does what InstrumentScript() says. Throws std::runtime_error when anything does not start.
    Setting();

    WellBehavedClient& Client() { return *m_client; }
    SimulatorProcess& Instrument() { return *m_instrument; }
    /// Ends the instrument as a crash would, and starts it.
    void KillInstrument();
    void StartInstrument();
    /// Whether the router ends with code 0 once everyone has left.
    bool EndsInOrder();

private:
    support::TempFolder m_folder;
    RouterSession m_session{RouterSession::Transport::Simulation};
    std::optional<SimulatorProcess> m_instrument;
    std::optional<WellBehavedClient> m_client;
};

/// Releases the object when it is destroyed.
struct Releaser
{
    void operator()(IMorvaneUSBRouter* object) const { object->Release(); }
};
using Object = std::unique_ptr<IMorvaneUSBRouter, Releaser>;

/// A further object of the running router; none when COM refuses. COM must have been initialised on this thread.
Object CreateObject();

/// What a case acts with: an automation object of its own, and the ports that it registers.
class End
{
public:
    static constexpr LONG DeviceType = 10;

    explicit End(Setting& setting) : m_setting(setting), m_object(CreateObject()) {}

    Setting& Everyone() { return m_setting; }
    IMorvaneUSBRouter& Router() { return *m_object; }
    bool HasRouter() const { return m_object != nullptr; }
    /// Registers a port and returns the name of its pipe.
    std::string Register(ULONG port, LONG readBuffer = 65'535, LONG writeBuffer = 65'535);
    /// Registers a port and opens its pipe, until a request comes back through it.
    void Open(support::PipeClient& client, ULONG port);
    /// Keeps something that the case made until the well-behaved client has shown that it does not mind.
    template <class T>
    T& Hold(std::shared_ptr<T> thing)
    {
        m_held.push_back(thing);
        return *thing;
    }
    /// Lets go of what is held, then of the object, and its ports with it.
    void Leave()
    {
        m_held.clear();
        m_object.reset();
    }

private:
    Setting& m_setting;
    Object m_object;
    std::vector<std::shared_ptr<void>> m_held; // pipes: closed before their ports go
};

struct Case
{
    const char* name;
    std::function<void(End&)> act;
    bool breaksPipes = false; // the instrument leaves, and every client's pipe with it
};

/// GoogleTest prints a case by its name.
inline void PrintTo(const Case& tested, std::ostream* out)
{
    *out << tested.name;
}

/// All cases act on one router, which must end with code 0 when the program's last test is over. The well-behaved
/// client does 40 round trips before what a case did is cleared away, and 40 afterwards.
class HostileEnd : public testing::TestWithParam<Case>
{
protected:
    void SetUp() override;
    void TearDown() override;
    /// Lets the hostile end of the test's parameter act, and looks at the well-behaved one.
    void ActAndLook();
};

/// The name of a case, for INSTANTIATE_TEST_SUITE_P.
inline std::string NameOf(const testing::TestParamInfo<Case>& info)
{
    return info.param.name;
}

} // namespace hostile
