// A port of the library at a port that the test plays.
#pragma once

#include "tests/client/AttachedPort.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

struct LibraryCalls : testing::Test
{
    void Serve(FakePort::Player player, FakePort::Conduct conduct = {})
    {
        server.emplace(std::move(player), std::move(conduct));
        name = Narrow(server->Name());
        options = AttachTo(name);
    }
    void Open()
    {
        port = morvane::Port(options, error);
        ASSERT_EQ(error, MORVANE_OK) << morvane_error_text(error);
    }
    /// The reply's text; the error's name when there is none.
    std::string Ask(std::string_view text, morvane::Timeout timeout = Patient)
    {
        const morvane::Bytes reply = port.Request(morvane::Of(text), timeout, error);
        return error == MORVANE_OK ? TextOf(reply) : morvane_error_name(error);
    }
    std::string Receive(morvane::Timeout timeout = Patient)
    {
        const morvane::Bytes message = port.Receive(timeout, error);
        return error == MORVANE_OK ? TextOf(message) : morvane_error_name(error);
    }

    std::optional<FakePort> server;
    std::string name;
    morvane_options options{};
    int error = MORVANE_OK;
    morvane::Port port;
};

/// Answers each message with `reply`, followed by the message.
inline FakePort::Player Answering(std::string reply)
{
    return [reply](const std::string& message) { return FakePort::Replies{reply + message}; };
}

inline std::vector<std::string> Numbered(int count)
{
    std::vector<std::string> messages;
    for (int i = 0; i < count; ++i) {
        messages.push_back("message " + std::to_string(i));
    }
    return messages;
}
