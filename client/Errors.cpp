#include "client/Errors.h"

#include <algorithm>
#include <array>

namespace clientlib {

namespace {

struct Entry
{
    int code;
    const char* name;
    const char* text;
};

#define ENTRY(code, text) \
    Entry                 \
    {                     \
        code, #code, text \
    }

constexpr std::array Entries = {
    ENTRY(MORVANE_OK, "The call succeeded."),
    ENTRY(MORVANE_E_ARGUMENT, "An argument is not valid: compare pointers, sizes, lengths and numbers with the "
                              "declaration of the function in morvane_client.h."),
    ENTRY(MORVANE_E_HANDLE, "The port was closed or never opened: use the number that morvane_open returned."),
    ENTRY(MORVANE_E_CLOSED, "Another thread closed the port during the call: end the work on this port."),
    ENTRY(MORVANE_E_CALLBACK, "A callback called the library for its own port: return from the callback first."),
    ENTRY(MORVANE_E_MEMORY, "There is not enough memory or no thread to be had: free some and try again."),
    ENTRY(MORVANE_E_INTERNAL, "The library failed unexpectedly: close the port and report the Windows error."),
    ENTRY(MORVANE_E_TOO_LONG, "A message has at most 65,535 bytes and at most the port's read size: send less at "
                              "once or open the port with a larger read size."),
    ENTRY(MORVANE_E_BUFFER,
          "The buffer is smaller than the message, which is kept: receive it with a buffer of the "
          "length returned."),
    ENTRY(MORVANE_E_TIMEOUT, "The time is over: after a request call morvane_resync or morvane_reopen before the "
                             "next one, after other calls try again."),
    ENTRY(MORVANE_E_CANCELLED, "Another thread cancelled the call: after a request call morvane_resync or "
                               "morvane_reopen before the next one."),
    ENTRY(MORVANE_E_OUT_OF_STEP, "The reply to an earlier request may still come: call morvane_resync or "
                                 "morvane_reopen, then send again."),
    ENTRY(MORVANE_E_LOST,
          "The connection broke before the reply came, and the instrument may have carried the "
          "request out or not: call morvane_wait_ready and morvane_resync, ask for its state, then decide."),
    ENTRY(MORVANE_E_QUEUE_FULL, "Too many messages wait to be written: call morvane_flush or send more slowly."),
    ENTRY(MORVANE_E_NO_PIPE, "The port's pipe does not exist: connect the instrument and switch it on, wait until "
                             "its firmware is loaded, or find the other client that has registered the same port "
                             "under another name."),
    ENTRY(MORVANE_E_HELD, "Another client holds the port: close that client or use another port."),
    ENTRY(MORVANE_E_ACCESS, "Access to the port's pipe is denied: the router runs elevated or as another user, so "
                            "run all clients alike or change RestrictPipes."),
    ENTRY(MORVANE_E_ROUTER_GONE,
          "The router has ended: call morvane_wait_ready, the library starts it again; with "
          "MORVANE_NO_RESTART close the port."),
    ENTRY(MORVANE_E_NOT_REGISTERED, "The router is not registered for this user: install it, or run "
                                    "\"MorvanePortRouter.exe /RegServer\" as administrator."),
    ENTRY(MORVANE_E_ELEVATION,
          "A router runs that this program cannot use, probably with another elevation: run all "
          "clients elevated or none of them."),
    ENTRY(MORVANE_E_NO_START, "The router cannot be started: look at the Windows error and run "
                              "\"RouterLog doctor\"."),
};

#undef ENTRY

const Entry* Find(int code) noexcept
{
    const auto found = std::ranges::find(Entries, code, &Entry::code);
    return found != Entries.end() ? &*found : nullptr;
}

} // namespace

const char* NameOf(int code) noexcept
{
    const Entry* const entry = Find(code);
    return entry != nullptr ? entry->name : "MORVANE_E_UNKNOWN";
}

const char* TextOf(int code) noexcept
{
    const Entry* const entry = Find(code);
    return entry != nullptr
             ? entry->text
             : "This number is no error of this library: compare the versions of the library and of "
               "morvane_client.h.";
}

} // namespace clientlib
