// A client compiled for 32-bit Windows: registers a port with the 64-bit router, exchanges a packet over the
// port's pipe and unregisters the port, through one of the two kinds of call. Or it talks over a pipe by the
// client library.
//
//   Client32.exe vtable|dispatch|library PIPE_NAME
//
// Exit code 0 when every step worked; otherwise the step that did not is printed.
#include "client/ClientPipe.h"
#include "client/RouterAutomation.h"
#include "client/morvane_client.h"
#include "console/Console.h"
#include "tests/client/FirstHeader.h"
#include "win32/Event.h"

#include <objbase.h>

#include <cstdio>
#include <exception>
#include <string>
#include <type_traits>

namespace {

using Binding = RouterAutomation::Binding;

// What 32-bit programs are compiled with: none of it may ever change.
static_assert(sizeof(morvane_options) == 44 && sizeof(morvane_event) == 28);
static_assert(std::is_same_v<decltype(&morvane_close), int(__cdecl*)(morvane_port)> &&
              std::is_same_v<morvane_match, int(__cdecl*)(void*, const void*, std::uint32_t)>);

constexpr std::chrono::seconds DefaultTimeout{20};
constexpr std::int32_t BufferSize = 4096;

int Fail(const char* step, unsigned long error)
{
    std::printf("%s failed (0x%08lX)\n", step, error);
    return 1;
}

int Exchange(const std::wstring& path)
{
    const win32::Event never(win32::Event::Kind::ManualReset);
    ClientPipe pipe(path, never.Get());
    if (pipe.Open(DefaultTimeout) != ClientPipe::Outcome::Done) {
        return Fail("opening the pipe", pipe.Error());
    }
    const std::vector<std::uint8_t> request = {'3', '2', 0, 0xFF};
    if (pipe.Write(request, DefaultTimeout) != ClientPipe::Outcome::Done) {
        return Fail("writing the request", pipe.Error());
    }
    std::vector<std::uint8_t> reply;
    if (pipe.Read(reply, DefaultTimeout) != ClientPipe::Outcome::Done) {
        return Fail("reading the reply", pipe.Error());
    }
    return reply == request ? 0 : Fail("comparing the reply", static_cast<unsigned long>(reply.size()));
}

int Run(Binding binding, const std::wstring& name)
{
    using Result = RouterAutomation::Result;
    RouterAutomation router;
    const auto error = [&] { return static_cast<unsigned long>(router.Error()); };
    if (router.Create(binding) != Result::Done) {
        return Fail("creating the object", error());
    }
    if (router.Register(3, 1, BufferSize, BufferSize, name) != Result::Done) {
        return Fail("Register", error());
    }
    if (const int failed = Exchange(LR"(\\.\pipe\)" + name)) {
        return failed;
    }
    if (router.Unregister(3, 1) != Result::Done) {
        return Fail("Unregister", error());
    }
    std::printf("registered, answered and unregistered\n");
    return 0;
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    const std::wstring kind = count == 3 ? arguments[1] : L"";
    if (kind == L"library") {
        const std::wstring name = arguments[2];
        const int step = RunFirstProgram(std::string(name.begin(), name.end()).c_str());
        return step == 0 ? 0 : Fail("talking through the library", static_cast<unsigned long>(step));
    }
    if (kind != L"vtable" && kind != L"dispatch") {
        std::printf("usage: Client32 vtable|dispatch|library PIPE_NAME\n");
        return console::UsageError;
    }
    ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    int code = 1;
    try {
        code = Run(kind == L"vtable" ? Binding::Early : Binding::Late, arguments[2]);
    } catch (const std::exception& fault) {
        std::printf("%s\n", fault.what());
    }
    ::CoUninitialize();
    return code;
}
