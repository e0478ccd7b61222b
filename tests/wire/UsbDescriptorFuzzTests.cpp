// Any bytes at all as descriptors: nothing may be read outside them (the sanitizers watch), every walk must end,
// and what comes out must keep its own rules.
#include "usb/Descriptors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int RandomRounds = 20'000;
constexpr int MutationRounds = 40'000;

const Bytes Sensible{
    9, 2, 69,   0, 2, 1,    0, 0xC0, 50,                                       // configuration
    9, 4, 0,    0, 3, 0xFF, 0, 0,    0,                                        // interface 0
    7, 5, 0x02, 2, 0, 2,    0, 5,    0x24, 1, 2, 3,    7, 5, 0x86, 2, 0, 2, 0, // bulk OUT, foreign, bulk IN
    7, 5, 0x81, 3, 8, 0,    4,                                                 // interrupt IN
    9, 4, 1,    0, 1, 1,    0, 0,    0,    7, 5, 0x83, 1, 0, 0x14, 1,          // interface 1, isochronous IN
    9, 4, 1,    1, 0, 1,    0, 0,    0,                                        // its alternate setting
};

/// The bytes in an allocation of exactly their size, so that one byte beyond is noticed.
class Exact
{
public:
    explicit Exact(const Bytes& bytes)
        : m_bytes(std::make_unique<std::uint8_t[]>(bytes.size())), m_size(bytes.size())
    {
        std::copy(bytes.begin(), bytes.end(), m_bytes.get());
    }
    usb::ByteSpan Span() const { return {m_bytes.get(), m_size}; }

private:
    std::unique_ptr<std::uint8_t[]> m_bytes;
    std::size_t m_size;
};

void CheckConfiguration(usb::ByteSpan bytes)
{
    const auto configuration = usb::ParseConfiguration(bytes);
    ASSERT_EQ(configuration.has_value(), usb::ConfigurationLength(bytes).has_value());
    if (!configuration) {
        return;
    }
    std::size_t described = usb::ConfigurationHeadSize;
    for (const usb::InterfaceDescription& description : configuration->interfaces) {
        ASSERT_LE(description.endpoints.size(), description.announcedEndpoints);
        described += 9;
        for (const usb::EndpointDescriptor& endpoint : description.endpoints) {
            ASSERT_EQ(endpoint.type, 5);
            ASSERT_GE(endpoint.length, 7);
            ASSERT_LE(endpoint.MaximumPacketSize(), 2047u * 4u);
            described += endpoint.length;
        }
    }
    ASSERT_LE(described, std::max(bytes.size(), usb::ConfigurationHeadSize))
        << "more described than there are bytes";
    for (int setting : {-1, 0, 1, 255}) {
        const usb::InterfaceDescription* const selected = configuration->Select(0, setting);
        ASSERT_EQ(selected == nullptr, configuration->interfaces.empty());
    }
}

void CheckAll(const Bytes& bytes)
{
    const Exact exact(bytes);
    CheckConfiguration(exact.Span());
    const auto device = usb::ParseDevice(exact.Span());
    ASSERT_TRUE(!device || bytes.size() >= usb::DeviceDescriptorSize);
    ASSERT_LE(usb::ParseString(exact.Span()).size(), std::min<std::size_t>(126, bytes.size() / 2));
    const auto language = usb::ChooseLanguage(exact.Span());
    ASSERT_TRUE(!language || bytes.size() >= 4);
    ASSERT_TRUE(bytes.size() >= usb::StringHeadSize || usb::StringLength(exact.Span()) == 0);
}

TEST(DescriptorFuzz, RandomBytesOfEveryLength)
{
    std::minstd_rand random(1);
    for (int round = 0; round < RandomRounds && !HasFatalFailure(); ++round) {
        Bytes bytes(random() % 300);
        // Small values make lengths and types that mean something now and then.
        const unsigned range = round % 2 == 0 ? 256 : 12;
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random() % range); });
        if (bytes.size() >= 4 && round % 3 != 0) {
            bytes[0] = static_cast<std::uint8_t>(9 + round % 2 * 9);
            bytes[1] = static_cast<std::uint8_t>(1 + random() % 3);
        }
        CheckAll(bytes);
    }
}

TEST(DescriptorFuzz, SensibleConfigurationsWithBytesChangedCutOutRepeatedOrPutIn)
{
    std::minstd_rand random(2);
    for (int round = 0; round < MutationRounds && !HasFatalFailure(); ++round) {
        Bytes bytes = Sensible;
        for (auto changes = 1 + random() % 6; changes > 0 && !bytes.empty(); --changes) {
            const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(random() % bytes.size());
            switch (random() % 5) {
            case 0: *at = static_cast<std::uint8_t>(random()); break;
            case 1: *at = 0; break;
            case 2: bytes.erase(at, at + static_cast<std::ptrdiff_t>(random() % 8) % (bytes.end() - at)); break;
            case 3: bytes.insert(at, static_cast<std::uint8_t>(random() % 16)); break;
            case 4: bytes.resize(static_cast<std::size_t>(at - bytes.begin())); break;
            }
        }
        CheckAll(bytes);
    }
}

TEST(DescriptorFuzz, TheLongestConfigurationOfTheShortestDescriptors)
{
    for (const Bytes& unit : {Bytes{2, 0x24}, Bytes{7, 5, 0x81, 2, 0, 2, 0}, Bytes{9, 4, 0, 0, 255, 0, 0, 0, 0}}) {
        Bytes bytes{9, 2, 0xFF, 0xFF, 255, 1, 0, 0, 0, 9, 4, 0, 0, 255, 0, 0, 0, 0};
        while (bytes.size() < 65'535) {
            bytes.insert(bytes.end(), unit.begin(), unit.end());
        }
        CheckAll(bytes);
    }
}

} // namespace
