// What every end of the simulated instrument answers by default, seen from the router's side.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

/// Sends 100 requests of four ports, one after the other; each comes back to its sender under the next number.
/// `Router`: RouterEnd, or another of that shape.
template <class Router>
void ExpectEchoesToTheirSenders(Router& router)
{
    for (int i = 0; i < 100; ++i) {
        const std::string payload = "request " + std::to_string(i);
        ASSERT_TRUE(router.Send(3, static_cast<std::uint8_t>(i % 4), payload));
        const auto packet = router.Next();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->payload, payload);
        EXPECT_EQ(packet->deviceType, 3);
        EXPECT_EQ(packet->port, i % 4);
        EXPECT_EQ(packet->number, i + 1);
    }
}
