#include "tests/system/hostile/InstrumentScript.h"

#include "tests/support/Frames.h"

#include <algorithm>

namespace hostile {

namespace {

/// Payload of the script language.
std::string Hex(std::string_view bytes)
{
    constexpr char Digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char byte : bytes) {
        text += Digits[static_cast<unsigned char>(byte) >> 4];
        text += Digits[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

std::string Raw(std::string_view bytes)
{
    return "raw " + Hex(bytes);
}

std::string Repeated(int count, std::string_view bytes)
{
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += bytes;
    }
    return all;
}

std::string Frame(std::uint8_t type, std::uint8_t deviceType, std::uint8_t port, std::string_view payload)
{
    return support::Frame(77, type, deviceType, port, payload);
}

/// A packet to port (10,9), of which one byte is another.
std::string FrameWith(std::size_t offset, char byte)
{
    std::string frame = Frame(wire::PortTraffic, 10, 9, "four");
    frame.at(offset) = byte;
    return frame;
}

/// A packet's header that announces `length` bytes, then `present` bytes.
std::string Announcing(std::size_t length, std::size_t present)
{
    const wire::Header header = wire::BuildHeader(77, wire::PortTraffic, 10, 9, length);
    return std::string(header.begin(), header.end()) + std::string(present, 'z');
}

std::vector<Misdeed> Noise()
{
    // "##" reads as a header whose length is 0x2323: two such packets use up their hashes.
    const std::size_t hashes = 2 * (0x2323 + wire::FrameOverhead);
    return {
        {"ANoiseOf1Byte", "garbage 1"},
        {"ANoiseOf14Bytes", "garbage 14"},
        {"ANoiseOf15Bytes", "garbage 15"},
        {"ANoiseOf1000Bytes", "garbage 1000"},
        {"ANoiseOf65535Bytes", "garbage 65535"},
        {"Zeros", Raw(std::string(4000, '\0'))},
        {"BytesWithAllBitsSet", Raw(std::string(4000, '\xFF'))},
        {"TextOfAnotherProtocol", Raw("GET / HTTP/1.1\r\nHost: router\r\n\r\n")},
        {"ALoneSyncByte", Raw("#")},
        {"SyncBytesOnly", Raw(std::string(hashes, '#'))},
        {"SyncBytesInTurnWithOthers", Raw(Repeated(500, "#a"))},
        {"FormatDirectives", Raw(Repeated(50, "%s%n%d"))},
    };
}

std::vector<Misdeed> Lies()
{
    return {
        {"APacketOfType0", Raw(Frame(0, 10, 9, "four"))},
        {"APacketOfType2", Raw(Frame(2, 10, 9, "four"))},
        {"APacketOfTheRoutersOwnType", Raw(Frame(wire::ControlPacket, 238, 238, "x"))},
        {"APacketOfType255", Raw(Frame(255, 10, 9, "four"))},
        {"ThePacketNumber0", "number 0"},
        {"ThePacketNumber255", "number 255"},
        {"AGapOf200Numbers", "gap 200"},
        {"ThePacketNumberOfBefore", Raw(Repeated(3, Frame(1, 10, 9, "again")))},
        {"ReservedByte4Set", Raw(FrameWith(4, '\xFF'))},
        {"ReservedByte5Set", Raw(FrameWith(5, '\xFF'))},
        {"ReservedByte8Set", Raw(FrameWith(8, '\xFF'))},
        {"ReservedByte9Set", Raw(FrameWith(9, '\xFF'))},
        {"AnAddressWithoutAPort", "send 99,99 \"absent\""},
        {"AnyDeviceAnyPort", Raw(Frame(1, 255, 255, "everybody"))},
        {"AnyDeviceAtPort1", Raw(Frame(1, 255, 1, "everybody"))},
        {"AnyPortOfDevice10", Raw(Frame(1, 10, 255, "everybody"))},
        {"TheHighestAddress", Raw(Frame(1, 254, 254, "absent"))},
        {"TheAddressOfTheIdlePacket", Raw(Frame(1, 238, 238, "absent"))},
        {"TextForTheDownloader", "send 0,0 \"hello\""},
        {"NothingForTheDownloader", Raw(Frame(1, 0, 0, ""))},
        {"DownloadAnswersWithoutARequest",
         "send 0,0 \"DOWNLOAD_FAIL\\r\"; send 0,0 \"FIRMWARE_READY\\r\"; send 0,0 \"REBOOTING\\r\""},
        {"AFloodForTheDownloader", Raw(Repeated(200, Frame(1, 0, 0, std::string(1000, '9'))))},
        {"ALengthOf0BeforeAPayload", Raw(Announcing(0, 50))},
        {"ALengthThatIsTooShort", Raw(Announcing(3, 50))},
        {"ALengthThatTakesTheNextPacketWithIt", Raw(Announcing(6, 0))},
        {"ALengthThatEndsInTheNextHeader", Raw(Announcing(3, 0))},
        {"TheGreatestLength", Raw(Announcing(65'535, 65'537))},
        {"AWrongChecksum", "checksum"},
        {"ALastByteThatIsNot0", Raw(FrameWith(17, '\xFF'))},
        {"AnotherPayloadThanAskedFor", "corrupt"},
        {"PacketsInsideAPacket", Raw(Frame(1, 10, 9, Repeated(30, Frame(1, 3, 1, "forged"))))},
        {"APayloadOfSyncBytes", Raw(Frame(1, 10, 9, std::string(60'000, '#')))},
        {"TwoHundredPacketsWithoutPayload", Raw(Repeated(200, Frame(1, 10, 9, "")))},
    };
}

std::vector<Misdeed> CutsAndFloods()
{
    return {
        {"OneByteABlock", "split 1"},
        {"OneByteABlockEachMillisecond", "split 1 1"},
        {"BlocksOf2Bytes", "split 2"},
        {"BlocksAByteShorterThanAHeader", "split 11"},
        {"BlocksThatEndWithTheHeader", "split 12"},
        {"BlocksOf14Bytes", "split 14"},
        {"BlocksOf15Bytes", "split 15"},
        {"AnAnswerOf2000BytesByteByByte", "reply \"" + std::string(2000, 'b') + "\"; split 1"},
        {"FiftyPacketsABlock", "duplicate 50; merge 50"},
        {"AThousandAnswersToOneRequest", "duplicate 1000"},
        {"AFloodForAClientThatReadsNothing", "reply \"" + std::string(20'000, 'f') + "\"; duplicate 100"},
        {"AFloodForAnAbsentPort", Raw(Repeated(500, Frame(1, 99, 99, "absent")))},
        {"AFloodOfBroadcasts", Raw(Repeated(300, Frame(1, 255, 2, std::string(1000, 'B'))))},
        {"ABroadcastByteByByte", "silence; broadcast \"" + std::string(500, 'b') + "\"; split 1"},
        {"TheLongestBroadcast", "broadcast \"" + std::string(65'535, 'B') + "\""},
        {"ABroadcastOfNothing", Raw(Frame(1, 255, 2, ""))},
        {"AnAnswerThatIsLate", "delay 300"},
        {"NoAnswer", "silence"},
    };
}

std::string From(ULONG port)
{
    return "from 10," + std::to_string(port) + ": ";
}

} // namespace

const std::vector<Misdeed>& Misdeeds()
{
    static const std::vector<Misdeed> all = [] {
        std::vector<Misdeed> misdeeds = Noise();
        for (auto& more : {Lies(), CutsAndFloods()}) {
            misdeeds.insert(misdeeds.end(), more.begin(), more.end());
        }
        return misdeeds;
    }();
    return all;
}

const std::vector<Leaving>& Leavings()
{
    static const std::vector<Leaving> all = {
        {"BeforeTheAnswer", 0, 5},  {"AfterTheFirstSyncByte", 1, 5},       {"AfterBothSyncBytes", 2, 5},
        {"InMidHeader", 7, 5},      {"BetweenTheBytesOfTheLength", 11, 5}, {"AfterTheHeader", 12, 5},
        {"InMidPayload", 100, 5},   {"BeforeTheChecksum", 212, 5},         {"BeforeTheLastByte", 213, 5},
        {"AfterTheAnswer", 214, 5}, {"ForAThirdOfASecond", 50, 333},
    };
    return all;
}

ULONG PortOfMisdeed(std::string_view name)
{
    const auto& all = Misdeeds();
    return static_cast<ULONG>(std::ranges::find(all, name, &Misdeed::name) - all.begin()) + 10;
}

ULONG PortOfLeaving(std::string_view name)
{
    const auto& all = Leavings();
    return static_cast<ULONG>(std::ranges::find(all, name, &Leaving::name) - all.begin()) + 150;
}

std::string InstrumentScript()
{
    // By design the router keeps the part of a packet that it had received when the instrument went, and takes
    // what comes first afterwards for its rest. These zeros end it, so that nothing of the well-behaved client
    // does.
    std::string script = "connected: " + Raw(std::string(66'000, '\0')) + "\n";
    for (const Misdeed& misdeed : Misdeeds()) {
        script += From(PortOfMisdeed(misdeed.name)) + misdeed.actions + "; send 10," + std::to_string(SeenPort) +
                  " \"seen\"\n";
    }
    for (const Leaving& leaving : Leavings()) {
        script += From(PortOfLeaving(leaving.name)) + "vanish after " + std::to_string(leaving.answered) +
                  " back " + std::to_string(leaving.backMs) + "\n";
    }
    return script;
}

} // namespace hostile
