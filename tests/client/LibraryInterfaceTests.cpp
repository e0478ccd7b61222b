// What the DLL promises its callers whatever they do: layouts, names, versions, and errors instead of crashes.
#include "client/Registration.h"
#include "tests/client/AttachedPort.h"
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <Version.h>

#include <array>
#include <cstddef>
#include <set>
#include <vector>

namespace {

using morvane::Of;

// Programs are compiled with these: none of them may ever change.
static_assert(offsetof(morvane_options, size) == 0 && offsetof(morvane_options, device_type) == 4 &&
              offsetof(morvane_options, port) == 8 && offsetof(morvane_options, flags) == 12 &&
              offsetof(morvane_options, read_size) == 16 && offsetof(morvane_options, write_size) == 20 &&
              offsetof(morvane_options, open_timeout) == 24 && offsetof(morvane_options, queue_limit) == 28 &&
              offsetof(morvane_options, name) == 32 && offsetof(morvane_options, unsolicited) == 40 &&
              offsetof(morvane_options, unsolicited_context) == 48);
static_assert(offsetof(morvane_event, kind) == 4 && offsetof(morvane_event, error) == 8 &&
              offsetof(morvane_event, windows_error) == 12 && offsetof(morvane_event, unanswered) == 16 &&
              offsetof(morvane_event, unsent) == 20 && offsetof(morvane_event, count) == 24);
static_assert(MORVANE_E_HELD == -15 && MORVANE_E_NO_START == -20 && MORVANE_EVENT_REOPENED == 9 &&
              sizeof(morvane_port) == 4);

TEST(LibraryInterface, TellsItsVersion)
{
    constexpr std::array<std::uint32_t, 4> numbers = {MORVANE_VERSION_NUMBERS};
    EXPECT_EQ(morvane_version(), numbers[0] << 16 | numbers[1] << 8 | numbers[2]);
}

TEST(LibraryInterface, EachErrorHasANameAndASentenceOfItsOwn)
{
    std::set<std::string> names;
    std::set<std::string> texts;
    for (int error = MORVANE_OK; error >= MORVANE_E_NO_START; --error) {
        names.insert(morvane_error_name(error));
        const std::string text = morvane_error_text(error);
        texts.insert(text);
        EXPECT_EQ(text.back(), '.') << text;
        EXPECT_EQ(text.find(". "), std::string::npos) << "more than a sentence: " << text;
    }
    EXPECT_EQ(names.size(), 21u);
    EXPECT_EQ(texts.size(), 21u);
    EXPECT_FALSE(names.contains("MORVANE_E_UNKNOWN"));
    EXPECT_STREQ(morvane_error_name(-1000), "MORVANE_E_UNKNOWN");
    EXPECT_STREQ(morvane_error_name(1), "MORVANE_E_UNKNOWN");
}

struct LibraryActivation : testing::TestWithParam<std::tuple<HRESULT, bool, int>>
{};

TEST_P(LibraryActivation, ErrorSaysWhatIsWrong)
{
    const auto [result, routerRuns, expected] = GetParam();
    const clientlib::Result found = clientlib::ResultOfActivation(result, routerRuns);
    EXPECT_EQ(found.code, expected) << morvane_error_name(found.code);
    EXPECT_EQ(found.windowsError, expected == MORVANE_OK ? 0 : static_cast<DWORD>(result));
}

INSTANTIATE_TEST_SUITE_P(All, LibraryActivation,
                         testing::Values(std::tuple(S_OK, false, MORVANE_OK),
                                         std::tuple(REGDB_E_CLASSNOTREG, false, MORVANE_E_NOT_REGISTERED),
                                         std::tuple(CO_E_CLASSSTRING, true, MORVANE_E_NOT_REGISTERED),
                                         std::tuple(CO_E_SERVER_EXEC_FAILURE, true, MORVANE_E_ELEVATION),
                                         std::tuple(CO_E_SERVER_EXEC_FAILURE, false, MORVANE_E_NO_START),
                                         std::tuple(E_ACCESSDENIED, true, MORVANE_E_ELEVATION),
                                         std::tuple(CO_E_SERVER_STOPPING, true, MORVANE_E_ROUTER_GONE),
                                         std::tuple(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), true,
                                                    MORVANE_E_ROUTER_GONE),
                                         std::tuple(E_OUTOFMEMORY, false, MORVANE_E_NO_START)));

// ---- structures of other versions

struct LibraryVersions : testing::Test
{
    int Open(const void* options)
    {
        morvane_port number = 0;
        const int error = morvane_open_ex(static_cast<const morvane_options*>(options), &number);
        morvane_close(number);
        return error;
    }

    FakePort server{Echo};
    std::string name = Narrow(server.Name());
};

/// As a later header could have it.
struct LaterOptions
{
    morvane_options today{};
    std::uint32_t later = 0;
    std::uint32_t evenLater = 0;
};

TEST_F(LibraryVersions, OptionsOfALaterHeaderAreUnderstoodWhenTheyAreUnused)
{
    LaterOptions options{AttachTo(name)};
    options.today.size = sizeof options;
    EXPECT_EQ(Open(&options), MORVANE_OK);
    options.evenLater = 1;
    EXPECT_EQ(Open(&options), MORVANE_E_ARGUMENT);
}

TEST_F(LibraryVersions, OptionsShorterThanTheFirstOnesAreRefused)
{
    morvane_options options = AttachTo(name);
    options.size -= 1;
    EXPECT_EQ(Open(&options), MORVANE_E_ARGUMENT);
    options.size = 0;
    EXPECT_EQ(Open(&options), MORVANE_E_ARGUMENT);
}

TEST_F(LibraryVersions, EventsAreWrittenAsLongAsTheCallerHasThem)
{
    const morvane::Port port(AttachTo(name));
    struct
    {
        morvane_event today;
        std::uint32_t later;
    } event{};
    event.today.size = sizeof event;
    event.later = 7;
    ASSERT_EQ(morvane_next_event(port.Get(), &event.today, 20'000), MORVANE_OK);
    EXPECT_EQ(event.today.kind, MORVANE_EVENT_CONNECTED);
    EXPECT_EQ(event.today.size, sizeof event);
    EXPECT_EQ(event.later, 7u);
    event.today.size = sizeof(morvane_event) - 1;
    EXPECT_EQ(morvane_next_event(port.Get(), &event.today, 0), MORVANE_E_ARGUMENT);
}

// ---- arguments

struct LibraryArguments : LibraryVersions
{
    const morvane::Port port{AttachTo(name)};
    char room[10] = {};
    std::uint32_t length = 77;
};

TEST_F(LibraryArguments, AreCheckedAtOpen)
{
    EXPECT_EQ(Open(nullptr), MORVANE_E_ARGUMENT);
    const morvane_options good = AttachTo(name);
    EXPECT_EQ(morvane_open_ex(&good, nullptr), MORVANE_E_ARGUMENT);
    const auto with = [&](auto change) {
        morvane_options options = good;
        change(options);
        return Open(&options);
    };
    const std::string tooLong(248, 'x');
    EXPECT_EQ(with([](auto& o) { o.device_type = -1; }), MORVANE_E_ARGUMENT);
    EXPECT_EQ(with([](auto& o) { o.device_type = 255; }), MORVANE_E_ARGUMENT);
    EXPECT_EQ(with([](auto& o) { o.port = 255; }), MORVANE_E_ARGUMENT);
    EXPECT_EQ(with([](auto& o) { o.flags = 0x80000000; }), MORVANE_E_ARGUMENT);
    EXPECT_EQ(with([](auto& o) { o.read_size = 65536; }), MORVANE_E_ARGUMENT);
    EXPECT_EQ(with([](auto& o) { o.write_size = 65536; }), MORVANE_E_ARGUMENT);
    EXPECT_EQ(with([](auto& o) { o.name = nullptr; }), MORVANE_E_ARGUMENT);
    EXPECT_EQ(with([](auto& o) { o.name = "folder\\name"; }), MORVANE_E_ARGUMENT);
    EXPECT_EQ(with([](auto& o) { o.name = "\xE4"; }), MORVANE_E_ARGUMENT);
    EXPECT_EQ(with([&](auto& o) { o.name = tooLong.c_str(); }), MORVANE_E_ARGUMENT);
}

TEST_F(LibraryArguments, AreCheckedAtEachCall)
{
    const morvane_port number = port.Get();
    EXPECT_EQ(morvane_send(number, nullptr, 1, 0), MORVANE_E_ARGUMENT);
    EXPECT_EQ(morvane_send(number, "x", 0, 0), MORVANE_E_ARGUMENT);
    EXPECT_EQ(morvane_send(number, "x", 65536, 0), MORVANE_E_TOO_LONG);
    EXPECT_EQ(morvane_send(number, "x", 0xFFFFFFFF, 0), MORVANE_E_TOO_LONG);
    EXPECT_EQ(morvane_receive(number, nullptr, 10, &length, 0), MORVANE_E_ARGUMENT);
    EXPECT_EQ(morvane_receive(number, room, sizeof room, nullptr, 0), MORVANE_E_ARGUMENT);
    EXPECT_EQ(morvane_receive_unsolicited(number, room, sizeof room, nullptr, 0), MORVANE_E_ARGUMENT);
    EXPECT_EQ(morvane_request(number, nullptr, 1, room, sizeof room, &length, 0), MORVANE_E_ARGUMENT);
    EXPECT_EQ(morvane_request(number, "x", 1, nullptr, 10, &length, 0), MORVANE_E_ARGUMENT);
    EXPECT_EQ(morvane_request(number, "x", 1, room, sizeof room, nullptr, 0), MORVANE_E_ARGUMENT);
    EXPECT_EQ(morvane_next_event(number, nullptr, 0), MORVANE_E_ARGUMENT);
    EXPECT_EQ(morvane_wait_handle(number, nullptr), MORVANE_E_ARGUMENT);
}

TEST_F(LibraryArguments, PortsThatAreNoneAreRefusedByEachCall)
{
    const morvane_port old = [&] {
        FakePort other(Echo);
        const std::string otherName = Narrow(other.Name());
        morvane::Port gone(AttachTo(otherName));
        return gone.Get();
    }();
    void* handle = nullptr;
    morvane_event event{sizeof event, 0, 0, 0, 0, 0, 0};
    for (const morvane_port none : {morvane_port(0), old, morvane_port(0xFFFFFFFF)}) {
        EXPECT_EQ(morvane_close(none), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_send(none, "x", 1, 0), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_flush(none, 0), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_receive(none, room, sizeof room, &length, 0), MORVANE_E_HANDLE);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(morvane_receive_unsolicited(none, room, sizeof room, &length, 0), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_request(none, "x", 1, room, sizeof room, &length, 0), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_resync(none, 0, 0), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_reopen(none, 0), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_wait_ready(none, 0), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_cancel(none), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_next_event(none, &event, 0), MORVANE_E_HANDLE);
        EXPECT_EQ(morvane_wait_handle(none, &handle), MORVANE_E_HANDLE);
    }
}

struct Reentry
{
    morvane_port port;
    std::vector<int> outcomes;
};

int MORVANE_CALL CallsBack(void* context, const void*, std::uint32_t)
{
    Reentry& reentry = *static_cast<Reentry*>(context);
    reentry.outcomes = {morvane_close(reentry.port), morvane_send(reentry.port, "x", 1, 0),
                        morvane_cancel(reentry.port)};
    return 1;
}

TEST_F(LibraryArguments, ACallbackCannotCallItsPort)
{
    Reentry reentry{port.Get(), {}};
    ASSERT_EQ(morvane_request_match(port.Get(), "x", 1, CallsBack, &reentry, room, sizeof room, &length, 20'000),
              MORVANE_OK);
    EXPECT_EQ(reentry.outcomes, std::vector<int>(3, MORVANE_E_CALLBACK));
    EXPECT_EQ(TextOf(port.Request(Of("again"), Patient)), "again");
}

TEST_F(LibraryArguments, TheLibraryCanBeUnloadedWithAnOpenPort)
{
    // A second copy of the DLL, used as a program does that loads it by hand and forgets to close.
    const auto copy = std::filesystem::temp_directory_path() / (support::UniqueName(L"Copy") + L".dll");
    std::filesystem::copy_file(support::ProgramFolder() / L"MorvaneClient.dll", copy);
    const HMODULE module = ::LoadLibraryW(copy.c_str());
    ASSERT_NE(module, nullptr);
    const auto open = reinterpret_cast<decltype(&morvane_open_ex)>(
        reinterpret_cast<void*>(::GetProcAddress(module, "morvane_open_ex")));
    FakePort other(Echo);
    const std::string otherName = Narrow(other.Name());
    const morvane_options options = AttachTo(otherName);
    morvane_port number = 0;
    ASSERT_EQ(open(&options, &number), MORVANE_OK);
    ::FreeLibrary(module);
    EXPECT_EQ(::GetModuleHandleW(copy.c_str()), module) << "its threads run on in code that is gone";
}

TEST(LibraryException, HasNameSentenceAndWindowsError)
{
    try {
        const std::string name = "NotServedEither";
        morvane_options options = AttachTo(name);
        options.open_timeout = 10;
        const morvane::Port port(options);
        FAIL() << "opened";
    } catch (const morvane::Error& error) {
        EXPECT_EQ(error.code, MORVANE_E_NO_PIPE);
        EXPECT_EQ(error.windowsError, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
        EXPECT_EQ(std::string(error.what()).find("MORVANE_E_NO_PIPE: The port's pipe does not exist"), 0u);
    }
}

} // namespace
