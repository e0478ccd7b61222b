// Its declarations are a copy of the first header's, and no later change of the header is to be made here: every
// later DLL has to serve this. Compiled for both architectures.
#include "tests/client/FirstHeader.h"

#include "win32/Windows.h"

#include <cstdint>
#include <cstring>

namespace {

using Match = int(__cdecl*)(void* context, const void* message, std::uint32_t length);

struct Options
{
    std::uint32_t size;
    std::int32_t device_type;
    std::uint32_t port;
    std::uint32_t flags;
    std::uint32_t read_size;
    std::uint32_t write_size;
    std::uint32_t open_timeout;
    std::uint32_t queue_limit;
    const char* name;
    Match unsolicited;
    void* unsolicited_context;
};

struct Event
{
    std::uint32_t size;
    std::int32_t kind;
    std::int32_t error;
    std::uint32_t windows_error;
    std::uint32_t unanswered;
    std::uint32_t unsent;
    std::uint32_t count;
};

using OpenEx = int(__cdecl*)(const Options* options, std::uint32_t* port);
using Close = int(__cdecl*)(std::uint32_t port);
using Send = int(__cdecl*)(std::uint32_t port, const void* message, std::uint32_t length, std::uint32_t timeout);
using Receive = int(__cdecl*)(std::uint32_t port, void* buffer, std::uint32_t capacity, std::uint32_t* length,
                              std::uint32_t timeout);
using RequestMatch = int(__cdecl*)(std::uint32_t port, const void* message, std::uint32_t length, Match match,
                                   void* context, void* reply, std::uint32_t capacity, std::uint32_t* replyLength,
                                   std::uint32_t timeout);
using NextEvent = int(__cdecl*)(std::uint32_t port, Event* event, std::uint32_t timeout);

constexpr int Ok = 0;
constexpr std::uint32_t Attach = 4;
constexpr std::int32_t Connected = 1;
constexpr std::uint32_t Timeout = 20'000;

template <class Function>
Function Get(const char* name)
{
    return reinterpret_cast<Function>(
        reinterpret_cast<void*>(::GetProcAddress(::LoadLibraryW(L"MorvaneClient.dll"), name)));
}

int __cdecl IsBroadcast(void* judged, const void* message, std::uint32_t length)
{
    ++*static_cast<int*>(judged);
    return length == 1 && *static_cast<const char*>(message) == '*' ? 1 : 0;
}

int __cdecl IsReply(void* judged, const void* message, std::uint32_t length)
{
    ++*static_cast<int*>(judged);
    return length == 3 && std::memcmp(message, "ask", 3) == 0 ? 1 : 0;
}

int Talk(std::uint32_t port)
{
    Event event{};
    event.size = sizeof event;
    char reply[16] = {};
    std::uint32_t length = 0;
    int judged = 0;
    if (Get<NextEvent>("morvane_next_event")(port, &event, Timeout) != Ok || event.kind != Connected) {
        return 2;
    }
    if (Get<Send>("morvane_send")(port, "*", 1, Timeout) != Ok) {
        return 3;
    }
    if (Get<Receive>("morvane_receive_unsolicited")(port, reply, sizeof reply, &length, Timeout) != Ok ||
        length != 1 || reply[0] != '*')
    {
        return 4;
    }
    if (Get<RequestMatch>("morvane_request_match")(port, "ask", 3, IsReply, &judged, reply, sizeof reply, &length,
                                                   Timeout) != Ok ||
        length != 3 || judged != 1)
    {
        return 5;
    }
    return Ok;
}

} // namespace

int RunFirstProgram(const char* pipe)
{
    int judged = 0;
    const Options options{sizeof options, 3, 1, Attach, 0, 0, Timeout, 0, pipe, IsBroadcast, &judged};
    std::uint32_t port = 0;
    if (Get<OpenEx>("morvane_open_ex")(&options, &port) != Ok) {
        return 1;
    }
    const int failed = Talk(port);
    const bool isClosed = Get<Close>("morvane_close")(port) == Ok;
    return failed != Ok ? failed : !isClosed ? 6 : judged != 2 ? 7 : Ok;
}
