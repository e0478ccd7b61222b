// A run of the real router in which a test plants incidents, one after the other.
#pragma once

#include "tests/routerlog/LogWatch.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PipeClient.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TempFolder.h"
#include "tests/system/SimulatorProcess.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace planted {

/// What a report says: the kind of an incident and its sentence.
struct Told
{
    std::string kind;
    std::string text;
};

/// An incident that was planted: the kind, and parts that the sentence must have.
struct Expected
{
    std::string kind;
    std::vector<std::string> parts;
};

/// The incidents of explain's JSON that are faults, or ends of clients and connections; the others happen by
/// themselves.
std::vector<Told> ToldIncidents(const std::filesystem::path& json);

/// Fails the test for each planted incident that is not told, told otherwise, or in another place, and for each
/// that is told and was not planted.
void Compare(const std::vector<Expected>& expected, std::vector<Told> told);

/// RouterLog explain over the log; the file that it wrote.
std::vector<Told> Explain(const std::filesystem::path& log, const std::filesystem::path& folder);

/// One router with the simulator. Each Plant... does it, waits until the router's log shows it, and notes what
/// explain has to say. One thread; a failed wait fails the test.
class Run
{
public:
    Run();
    ~Run();
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    /// The instrument leaves out so many numbers.
    void PlantGap(int missing);
    /// A packet for a port that is not registered.
    void PlantUnknownDestination();
    /// A packet for a registered port without a client.
    void PlantDroppedReply();
    /// A client that does not read for a while.
    void PlantSlowClient();
    /// A client's program is killed.
    void PlantKilledClient();
    /// A client closes its pipe and comes back.
    void PlantClosedClient();
    /// The simulator goes away for 300 ms.
    void PlantUnplug();
    /// The simulator's program is killed and restarted.
    void PlantDeadSimulator();

    /// One of the above, all in turn.
    void Plant(int which);
    /// Waits until bursts of incidents count as over.
    void MarkHandled();
    /// Ends the router and explains its log.
    void Check();

    std::size_t Planted() const noexcept { return m_planted; }

private:
    void StartSimulator();
    void OpenClient(int port);
    void CloseClients();
    void Trigger(int port);
    void ExpectLoss();
    void Want(bool holds, const char* what);

    support::TempFolder m_folder;
    std::filesystem::path m_script;
    RouterSession m_session{RouterSession::Transport::Simulation};
    std::unique_ptr<SimulatorProcess> m_simulator;
    std::optional<LogWatch> m_watch;
    std::map<int, std::string> m_names; // pipes of the ports of device type 3
    std::map<int, std::unique_ptr<support::PipeClient>> m_clients;
    std::vector<Expected> m_expected;
    std::size_t m_planted = 0;
    int m_number = 0; // of the instrument's last packet
};

} // namespace planted
