// An instrument that sends noise, lies and floods.
#include "tests/system/ServedPort.h"
#include "tests/system/hostile/HostileFixture.h"
#include "tests/system/hostile/InstrumentScript.h"

namespace {

using hostile::Case;
using hostile::End;
using support::PipeClient;

/// Sends a request until "seen" comes: that is the instrument's last packet because of it.
void Provoke(End& end, const char* misdeed)
{
    auto& seen = end.Hold(std::make_shared<PipeClient>());
    ASSERT_NO_FATAL_FAILURE(end.Open(seen, hostile::SeenPort));
    auto& client = end.Hold(std::make_shared<PipeClient>());
    const std::string pipe = end.Register(hostile::PortOfMisdeed(misdeed));
    // A pipe that was opened may be recreated at once, and the request is lost with it.
    ASSERT_TRUE(support::WaitUntil(
        [&] { return client.Open(pipe) && client.Write("go") && seen.Read(std::chrono::seconds(5)) == "seen"; }));
}

/// With a client on a port numbered 2 that reads nothing.
void ProvokeBesideAStuckListener(End& end, const char* misdeed)
{
    auto& stuck = end.Hold(std::make_shared<PipeClient>());
    ASSERT_NO_FATAL_FAILURE(end.Open(stuck, 2));
    ASSERT_NO_FATAL_FAILURE(Provoke(end, misdeed));
    EXPECT_TRUE(support::WaitUntil([&] { return stuck.Available() > 0; })); // by a thread of another port
}

std::vector<Case> Misdeeds()
{
    std::vector<Case> cases;
    for (const hostile::Misdeed& misdeed : hostile::Misdeeds()) {
        cases.push_back({misdeed.name, [name = misdeed.name](End& end) { Provoke(end, name); }});
    }
    return cases;
}

std::vector<Case> BesideAStuckListener()
{
    return {
        {"AFloodOfBroadcasts", [](End& end) { ProvokeBesideAStuckListener(end, "AFloodOfBroadcasts"); }},
        {"TheLongestBroadcast", [](End& end) { ProvokeBesideAStuckListener(end, "TheLongestBroadcast"); }},
        {"ABroadcastByteByByte", [](End& end) { ProvokeBesideAStuckListener(end, "ABroadcastByteByByte"); }},
    };
}

class HostileInstrument : public hostile::HostileEnd
{};

TEST_P(HostileInstrument, CostsTheOtherClientNothing)
{
    ActAndLook();
}

INSTANTIATE_TEST_SUITE_P(Sends, HostileInstrument, testing::ValuesIn(Misdeeds()), hostile::NameOf);
INSTANTIATE_TEST_SUITE_P(SendsBesideAStuckListener, HostileInstrument, testing::ValuesIn(BesideAStuckListener()),
                         hostile::NameOf);

} // namespace
