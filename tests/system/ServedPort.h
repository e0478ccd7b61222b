// Ports of the built router, as clients of the tests use them.
#pragma once

#include "tests/support/PipeClient.h"
#include "tests/support/RouterSession.h"
#include "tests/support/UniqueName.h"

#include <string>
#include <string_view>

namespace served {

/// Opens a port's pipe and waits until an echo comes through it. A pipe is recreated every 50 ms until a client
/// is connected, so a first open may be thrown out again: one that was answered is through.
inline bool Open(support::PipeClient& client, const std::string& name)
{
    return support::WaitUntil([&] {
        return client.Open(name) && client.Write("hello") && client.Read(std::chrono::seconds(3)) == "hello";
    });
}

/// Registers the port under a name of its own; the name, empty when that failed.
inline std::string Register(RouterSession& session, LONG deviceType, ULONG port)
{
    const std::string name = support::UniqueName(std::string_view("Port"));
    return session.RegisterPort(deviceType, port, std::wstring(name.begin(), name.end())) == S_OK ? name
                                                                                                  : std::string();
}

/// Whether ten of the longest payloads come back as they went.
inline bool EchoesTheLongestPayload(support::PipeClient& client)
{
    std::string payload(65'535, '\0');
    for (std::size_t at = 0; at < payload.size(); ++at) {
        payload[at] = static_cast<char>(at * 7);
    }
    for (int round = 0; round < 10; ++round) {
        if (!client.Write(payload) || client.Read() != payload) {
            return false;
        }
    }
    return true;
}

} // namespace served
