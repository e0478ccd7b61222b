#include "tests/routerlog/PlantedRun.h"

#include "tests/system/ServedPort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>

namespace planted {

namespace {

using routerlog::Form;

constexpr int DeviceType = 3;
// Ports whose requests make the instrument do something.
constexpr int Target = 1, Empty = 2, Flooding = 4, Dropping = 5, Unknown = 6, Vanishing = 7, Gap1 = 8, Gap3 = 9;
constexpr int PacketsOfAFlood = 6;
constexpr int PipeSize = 64;
constexpr int LastSafeNumber = 240; // before the numbers wrap

/// The value of a member that stands alone in its line, as explain writes it.
std::optional<std::string> MemberOf(const std::string& line, const std::string& name)
{
    const std::string begin = "\"" + name + "\": \"";
    const std::size_t at = line.find(begin);
    if (at == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t end = line.rfind('"');
    return line.substr(at + begin.size(), end - at - begin.size());
}

/// Clients that are cut off together are told of in the order in which their ports' threads happened to begin;
/// here in the order of their pipes' names.
void SortTogether(std::vector<Told>& told)
{
    const auto isCutOff = [](const Told& each) { return each.kind == "client-cut-off"; };
    for (auto begin = told.begin(); begin != told.end();) {
        begin = std::find_if(begin, told.end(), isCutOff);
        const auto end = std::find_if_not(begin, told.end(), isCutOff);
        std::sort(begin, end, [](const Told& left, const Told& right) {
            return left.text.substr(left.text.find("pipe ")) < right.text.substr(right.text.find("pipe "));
        });
        begin = end;
    }
}

} // namespace

std::vector<Told> ToldIncidents(const std::filesystem::path& json)
{
    // What every run has, planted or not.
    static const std::set<std::string> byThemselves{"log-begins",   "router-started", "router-ended",
                                                    "program-came", "program-went",   "port-opened",
                                                    "port-closed",  "client-came",    "instrument-connected"};
    std::vector<Told> told;
    std::ifstream in(json, std::ios::binary);
    std::string kind;
    for (std::string line; std::getline(in, line) && line.find("\"incidentsLeftOut\"") == std::string::npos;) {
        if (const auto value = MemberOf(line, "kind")) {
            kind = *value;
        } else if (const auto text = MemberOf(line, "text"); text && !kind.empty() && !byThemselves.contains(kind))
        {
            told.push_back({kind, *text});
            kind.clear();
        }
    }
    return told;
}

void Compare(const std::vector<Expected>& expected, std::vector<Told> told)
{
    SortTogether(told);
    for (std::size_t i = 0; i < std::max(expected.size(), told.size()); ++i) {
        ASSERT_LT(i, told.size()) << "not told: " << expected[i].kind;
        ASSERT_LT(i, expected.size()) << "not planted: " << told[i].text;
        ASSERT_EQ(told[i].kind, expected[i].kind) << i << ": " << told[i].text;
        for (const std::string& part : expected[i].parts) {
            EXPECT_NE(told[i].text.find(part), std::string::npos) << part << " is missing in: " << told[i].text;
        }
    }
}

std::vector<Told> Explain(const std::filesystem::path& log, const std::filesystem::path& folder)
{
    const std::filesystem::path json = folder / L"explain.json";
    const support::ChildProcess program(support::ProgramFolder() / L"RouterLog.exe",
                                        L"explain \"" + log.wstring() + L"\" --json \"" + json.wstring() + L"\"");
    EXPECT_EQ(program.WaitForExit(std::chrono::seconds(120)), 0U) << program.Output();
    return ToldIncidents(json);
}

Run::Run() : m_script(m_folder.Path() / L"script.txt")
{
    std::ofstream script(m_script);
    script << "from 3,8: gap 1\nfrom 3,9: gap 3\nfrom 3,7: silence; vanish after 0 back 300\n"
           << "from 3,6: silence; send 7,7 41\nfrom 3,5: silence; send 3,2 41\nfrom 3,4: silence";
    for (int i = 0; i < PacketsOfAFlood; ++i) {
        script << "; send 3,1 \"" << std::string(PipeSize - 4, static_cast<char>('a' + i)) << "\"";
    }
    script << "\n";
    script.close();
    RouterSession::SetMask(-1, 0x001C0000);
    RouterSession::SetMask(DeviceType, 0x00060000);
    StartSimulator();
    Want(m_session.Activate(), "the router does not start");
    m_watch.emplace(m_session.LogFile());
    for (const int port : {Target, Empty, Flooding, Dropping, Unknown, Vanishing, Gap1, Gap3}) {
        m_names[port] = support::UniqueName("Planted" + std::to_string(port));
        const std::wstring name(m_names[port].begin(), m_names[port].end());
        Want(m_session.RegisterPort(DeviceType, static_cast<ULONG>(port), name, PipeSize) == S_OK,
             "Register failed");
    }
}

Run::~Run()
{
    m_clients.clear();
}

void Run::Want(bool holds, const char* what)
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

void Run::StartSimulator()
{
    m_simulator = std::make_unique<SimulatorProcess>(L"--script \"" + m_script.wstring() + L"\"");
    Want(m_simulator->WaitUntilServed(), "the simulator does not serve");
    m_number = 0;
}

// An echo through the pipe tells that the router has noticed the client. Ports that do something else than echo
// are tried by their clients' first trigger.
void Run::OpenClient(int port)
{
    if (m_clients.contains(port)) {
        return;
    }
    const int before = m_watch->CountOf(Form::PipeConnected) + m_watch->CountOf(Form::PipeConnectMissed);
    auto client = std::make_unique<support::PipeClient>();
    Want(support::WaitUntil([&] {
             if (!client->IsOpen() && !client->TryOpen(m_names[port])) {
                 return false;
             }
             const bool noticed =
                 m_watch->CountOf(Form::PipeConnected) + m_watch->CountOf(Form::PipeConnectMissed) > before;
             if (!noticed && client->WaitForBreak(std::chrono::milliseconds(1))) {
                 client->Close();
             }
             return noticed;
         }),
         "a client does not get through");
    m_clients[port] = std::move(client);
}

void Run::Trigger(int port)
{
    OpenClient(port);
    Want(m_clients[port]->Write("!"), "a client cannot write");
}

void Run::CloseClients()
{
    for (auto& [port, client] : m_clients) {
        const int before = m_watch->CountOf(Form::PipeReadBroken);
        client.reset();
        m_expected.push_back({"client-went", {"Planted" + std::to_string(port), "went away"}});
        Want(m_watch->WaitFor(Form::PipeReadBroken, before + 1), "a client's end is not noticed");
    }
    m_clients.clear();
}

void Run::PlantGap(int missing)
{
    if (m_number + missing > LastSafeNumber) {
        PlantUnplug();
    }
    const int port = missing == 1 ? Gap1 : Gap3;
    if (m_number == 0) { // the router does not check a connection's first packet
        OpenClient(Target);
        Want(m_clients[Target]->Write("hello") && m_clients[Target]->Read() == "hello", "no echo");
        ++m_number;
    }
    const int before = m_watch->CountOf(Form::NumberGap);
    Trigger(port);
    Want(m_clients[port]->Read().has_value(), "no answer");
    m_number += missing + 1;
    Want(m_watch->WaitFor(Form::NumberGap, before + 1), "no gap");
    m_expected.push_back({"number-gap", {missing == 1 ? "Gap of 1 packet (" : "Gap of 3 packets ("}});
    ++m_planted;
}

void Run::PlantUnknownDestination()
{
    const int before = m_watch->CountOf(Form::NoDestination);
    Trigger(Unknown);
    ++m_number;
    Want(m_watch->WaitFor(Form::NoDestination, before + 1), "no dropped packet");
    m_expected.push_back({"unknown-destination", {"1 packet from the instrument for (7,7) was dropped"}});
    ++m_planted;
    MarkHandled();
}

void Run::PlantDroppedReply()
{
    const int before = m_watch->CountOf(Form::NoConnection);
    Trigger(Dropping);
    ++m_number;
    Want(m_watch->WaitFor(Form::NoConnection, before + 1), "no dropped reply");
    m_expected.push_back({"replies-dropped", {"1 packet for (3,2) was dropped: its client was not connected."}});
    ++m_planted;
    MarkHandled();
}

void Run::PlantSlowClient()
{
    OpenClient(Target);
    const int before = m_watch->CountOf(Form::PipeWriteDenied);
    Trigger(Flooding);
    m_number += PacketsOfAFlood;
    Want(m_watch->WaitFor(Form::PipeWriteDenied, before + 5), "the client is not told to be slow");
    for (int i = 0; i < PacketsOfAFlood; ++i) {
        Want(m_clients[Target]->Read().has_value(), "a packet for the slow client is lost");
    }
    m_expected.push_back({"client-stalled", {"(3,1), pipe Planted1", "stopped reading for "}});
    ++m_planted;
    MarkHandled();
}

void Run::PlantKilledClient()
{
    const int connected = m_watch->CountOf(Form::PipeConnected) + m_watch->CountOf(Form::PipeConnectMissed);
    const int broken = m_watch->CountOf(Form::PipeReadBroken);
    const std::wstring name(m_names[Empty].begin(), m_names[Empty].end());
    const support::ChildProcess client(support::ProgramFolder() / L"RouterProbe.exe",
                                       L"listen --attach --quiet --port 3,2 --pipe-name " + name);
    Want(support::WaitUntil([&] {
             return m_watch->CountOf(Form::PipeConnected) + m_watch->CountOf(Form::PipeConnectMissed) > connected;
         }),
         "the other client does not get through");
    client.Kill();
    Want(m_watch->WaitFor(Form::PipeReadBroken, broken + 1), "the killed client is not noticed");
    m_expected.push_back({"client-went", {"Planted2", "went away"}});
    ++m_planted;
}

void Run::PlantClosedClient()
{
    OpenClient(Target);
    const int broken = m_watch->CountOf(Form::PipeReadBroken);
    m_clients.erase(Target);
    Want(m_watch->WaitFor(Form::PipeReadBroken, broken + 1), "the client's end is not noticed");
    m_expected.push_back({"client-went", {"Planted1", "went away"}});
    ++m_planted;
}

// With the connection go all clients.
void Run::ExpectLoss()
{
    m_expected.push_back({"instrument-lost", {"The simulator went away"}});
    for (const auto& [port, client] : m_clients) {
        m_expected.push_back({"client-cut-off", {"Planted" + std::to_string(port)}});
    }
    m_expected.push_back({"instrument-reconnected", {"The simulator was reconnected after "}});
    m_clients.clear();
}

void Run::PlantUnplug()
{
    const int opened = m_watch->CountOf(Form::SimConnectOpened);
    Trigger(Vanishing);
    Want(m_watch->WaitFor(Form::SimConnectOpened, opened + 1), "the simulator does not come back");
    ExpectLoss();
    m_number = 0;
    ++m_planted;
}

void Run::PlantDeadSimulator()
{
    const int opened = m_watch->CountOf(Form::SimConnectOpened);
    const int failed = m_watch->CountOf(Form::ConnectFailed);
    m_simulator->Kill();
    Want(m_watch->WaitFor(Form::ConnectFailed, failed + 1), "the simulator's end is not noticed");
    StartSimulator();
    Want(m_watch->WaitFor(Form::SimConnectOpened, opened + 1), "the new simulator is not found");
    ExpectLoss();
    ++m_planted;
}

void Run::Plant(int which)
{
    switch (which % 9) {
    case 0: return PlantGap(1);
    case 1: return PlantUnplug();
    case 2: return PlantSlowClient();
    case 3: return PlantKilledClient();
    case 4: return PlantGap(3);
    case 5: return PlantUnknownDestination();
    case 6: return PlantClosedClient();
    case 7: return PlantDroppedReply();
    default: return PlantDeadSimulator();
    }
}

// The reply thread reports each second without anything.
void Run::MarkHandled()
{
    Want(m_watch->WaitFor(Form::ReplyThreadIdle, m_watch->CountOf(Form::ReplyThreadIdle) + 3),
         "the router is not quiet");
}

void Run::Check()
{
    CloseClients();
    m_session.Release();
    Want(m_session.WaitForEnd() == 0U, "the router does not end");
    Compare(m_expected, Explain(m_session.LogFile(), m_folder.Path()));
}

} // namespace planted
