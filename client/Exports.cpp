// The C interface: checks what it is given and lets no exception out.
#include "client/Library.h"

#include <Version.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

namespace {

using clientlib::Library;
using clientlib::Port;
using clientlib::PortRegistration;
using clientlib::Result;
using clientlib::Settings;

constexpr std::uint32_t DefaultOpenTimeoutMs = 10'000;
constexpr std::uint32_t DefaultQueueLimit = 1000;
constexpr std::uint32_t LargestAddress = 254;
constexpr std::uint32_t AllFlags =
    MORVANE_QUEUE | MORVANE_BACKGROUND | MORVANE_ATTACH | MORVANE_RAW | MORVANE_LATE_BOUND | MORVANE_NO_RESTART;
/// "CreateNamedPipeA function": the whole name, with "\\.\pipe\", has at most 256 characters.
constexpr std::size_t LongestName = 247;

/// The structures of the first version: no program has smaller ones. Their layout never changes.
constexpr std::size_t FirstOptions = offsetof(morvane_options, unsolicited_context) + sizeof(void*);
constexpr std::size_t FirstEvent = offsetof(morvane_event, count) + sizeof(std::uint32_t);
static_assert(FirstOptions == 32 + 3 * sizeof(void*) && FirstEvent == 28);

/// Runs a call, whatever it throws.
template <class Body>
int Guarded(Body body) noexcept
{
    Result result;
    try {
        result = body();
    } catch (const std::bad_alloc&) {
        result = {MORVANE_E_MEMORY, ERROR_OUTOFMEMORY};
    } catch (...) {
        result = {MORVANE_E_INTERNAL, ERROR_SUCCESS};
    }
    if (!result.IsOk()) {
        ::SetLastError(result.windowsError);
    }
    return result.code;
}

/// The same for a call on a port. Without `areValid` the arguments are refused.
template <class Body>
int OnPort(morvane_port number, bool areValid, Body body) noexcept
{
    return Guarded([&]() -> Result {
        const auto port = Library::Instance().Find(number);
        if (!port) {
            return {MORVANE_E_HANDLE, ERROR_SUCCESS};
        }
        if (!areValid) {
            return {MORVANE_E_ARGUMENT, ERROR_SUCCESS};
        }
        if (port->IsInCallback()) {
            return {MORVANE_E_CALLBACK, ERROR_SUCCESS};
        }
        return body(*port);
    });
}

Port::View ViewOf(const void* message, std::uint32_t length)
{
    return {static_cast<const std::uint8_t*>(message), length};
}

/// An empty message is none: the router ignores it.
bool IsMessage(const void* message, std::uint32_t length)
{
    return message != nullptr && length != 0;
}

/// Takes a length of 0 as given, for calls that fail.
bool IsRoom(const void* buffer, std::uint32_t capacity, std::uint32_t* length)
{
    if (length == nullptr || (buffer == nullptr && capacity != 0)) {
        return false;
    }
    *length = 0;
    return true;
}

/// A pipe's name of the caller's UTF-8; none when it can't be one.
std::optional<std::wstring> NameOf(std::string_view text)
{
    std::wstring name(text.size(), L'\0');
    const auto length = static_cast<int>(text.size());
    name.resize(static_cast<std::size_t>(
        ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), length, name.data(), length)));
    const auto isLetter = [](wchar_t letter) { return letter >= L' ' && letter != L'\x7F' && letter != L'\\'; };
    const bool isName = !name.empty() && name.size() <= LongestName && std::ranges::all_of(name, isLetter);
    return isName ? std::optional(std::move(name)) : std::nullopt;
}

std::wstring OwnName()
{
    static std::atomic<unsigned> count{0};
    return L"Client." + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
}

/// What the caller's header has of the options. False for those of a later library that this one does not know.
bool Copy(const morvane_options& given, morvane_options& options)
{
    if (given.size < FirstOptions) {
        return false;
    }
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&given);
    const std::size_t known = std::min<std::size_t>(given.size, sizeof options);
    std::memcpy(&options, bytes, known);
    return std::all_of(bytes + known, bytes + given.size, [](unsigned char byte) { return byte == 0; });
}

bool AreValid(const morvane_options& options)
{
    // The sizes of a raw port are the router's affair.
    const std::uint32_t largest = (options.flags & MORVANE_RAW) != 0 ? INT32_MAX : MORVANE_LONGEST_MESSAGE;
    return options.device_type >= 0 && static_cast<std::uint32_t>(options.device_type) <= LargestAddress &&
           options.port <= LargestAddress && (options.flags & ~AllFlags) == 0 && options.read_size <= largest &&
           options.write_size <= largest;
}

bool Read(const morvane_options& given, Settings& settings)
{
    morvane_options options{};
    if (!Copy(given, options) || !AreValid(options)) {
        return false;
    }
    settings.flags = options.flags;
    PortRegistration& registration = settings.registration;
    if (options.name != nullptr && *options.name != '\0') {
        auto name = NameOf(options.name);
        if (!name) {
            return false;
        }
        registration.pipeName = *std::move(name);
    } else if (settings.Has(MORVANE_ATTACH)) {
        return false;
    } else {
        registration.pipeName = OwnName();
    }
    const auto sizeOf = [](std::uint32_t size) {
        return static_cast<std::int32_t>(size != 0 ? size : MORVANE_LONGEST_MESSAGE);
    };
    registration.deviceType = options.device_type;
    registration.port = options.port;
    registration.readSize = sizeOf(options.read_size);
    registration.writeSize = sizeOf(options.write_size);
    registration.binding =
        settings.Has(MORVANE_LATE_BOUND) ? RouterAutomation::Binding::Late : RouterAutomation::Binding::Early;
    registration.restartsRouter = !settings.Has(MORVANE_NO_RESTART);
    settings.openTimeout = options.open_timeout != 0 ? options.open_timeout : DefaultOpenTimeoutMs;
    settings.queueLimit = options.queue_limit != 0 ? options.queue_limit : DefaultQueueLimit;
    settings.unsolicited = options.unsolicited;
    settings.unsolicitedContext = options.unsolicited_context;
    return true;
}

} // namespace

extern "C" {

std::uint32_t MORVANE_CALL morvane_version()
{
    constexpr std::array<std::uint32_t, 4> numbers = {MORVANE_VERSION_NUMBERS};
    return numbers[0] << 16 | numbers[1] << 8 | numbers[2];
}

const char* MORVANE_CALL morvane_error_name(int error)
{
    return clientlib::NameOf(error);
}

const char* MORVANE_CALL morvane_error_text(int error)
{
    return clientlib::TextOf(error);
}

int MORVANE_CALL morvane_open(std::int32_t deviceType, std::uint32_t portNumber, const char* name,
                              std::uint32_t timeout, morvane_port* port)
{
    morvane_options options{};
    options.size = sizeof options;
    options.device_type = deviceType;
    options.port = portNumber;
    options.name = name;
    options.open_timeout = timeout;
    return morvane_open_ex(&options, port);
}

int MORVANE_CALL morvane_open_ex(const morvane_options* options, morvane_port* port)
{
    return Guarded([&]() -> Result {
        if (port != nullptr) {
            *port = 0;
        }
        Settings settings;
        if (options == nullptr || port == nullptr || !Read(*options, settings)) {
            return {MORVANE_E_ARGUMENT, ERROR_SUCCESS};
        }
        return Library::Instance().Open(std::move(settings), *port);
    });
}

int MORVANE_CALL morvane_close(morvane_port port)
{
    return Guarded([&] { return Library::Instance().Close(port); });
}

int MORVANE_CALL morvane_send(morvane_port port, const void* message, std::uint32_t length, std::uint32_t timeout)
{
    return OnPort(port, IsMessage(message, length),
                  [&](Port& found) { return found.Send(ViewOf(message, length), timeout); });
}

int MORVANE_CALL morvane_flush(morvane_port port, std::uint32_t timeout)
{
    return OnPort(port, true, [&](Port& found) { return found.Flush(timeout); });
}

int MORVANE_CALL morvane_receive(morvane_port port, void* buffer, std::uint32_t capacity, std::uint32_t* length,
                                 std::uint32_t timeout)
{
    return OnPort(port, IsRoom(buffer, capacity, length), [&](Port& found) {
        return found.Receive(Port::Kind::Expected, {buffer, capacity, *length}, timeout);
    });
}

int MORVANE_CALL morvane_receive_unsolicited(morvane_port port, void* buffer, std::uint32_t capacity,
                                             std::uint32_t* length, std::uint32_t timeout)
{
    return OnPort(port, IsRoom(buffer, capacity, length), [&](Port& found) {
        return found.Receive(Port::Kind::Unsolicited, {buffer, capacity, *length}, timeout);
    });
}

int MORVANE_CALL morvane_request(morvane_port port, const void* message, std::uint32_t length, void* reply,
                                 std::uint32_t capacity, std::uint32_t* replyLength, std::uint32_t timeout)
{
    return morvane_request_match(port, message, length, nullptr, nullptr, reply, capacity, replyLength, timeout);
}

int MORVANE_CALL morvane_request_match(morvane_port port, const void* message, std::uint32_t length,
                                       morvane_match match, void* context, void* reply, std::uint32_t capacity,
                                       std::uint32_t* replyLength, std::uint32_t timeout)
{
    const bool isRoom = IsRoom(reply, capacity, replyLength);
    return OnPort(port, isRoom && IsMessage(message, length), [&](Port& found) {
        return found.Request(ViewOf(message, length), match, context, {reply, capacity, *replyLength}, timeout);
    });
}

int MORVANE_CALL morvane_resync(morvane_port port, std::uint32_t quiet, std::uint32_t timeout)
{
    return OnPort(port, true, [&](Port& found) { return found.Resync(quiet, timeout); });
}

int MORVANE_CALL morvane_reopen(morvane_port port, std::uint32_t timeout)
{
    return OnPort(port, true, [&](Port& found) { return found.Reopen(timeout); });
}

int MORVANE_CALL morvane_wait_ready(morvane_port port, std::uint32_t timeout)
{
    return OnPort(port, true, [&](Port& found) { return found.WaitReady(timeout); });
}

int MORVANE_CALL morvane_cancel(morvane_port port)
{
    return OnPort(port, true, [&](Port& found) { return found.Cancel(); });
}

int MORVANE_CALL morvane_next_event(morvane_port port, morvane_event* event, std::uint32_t timeout)
{
    return OnPort(port, event != nullptr && event->size >= FirstEvent, [&](Port& found) {
        morvane_event whole{};
        whole.size = event->size;
        const Result result = found.NextEvent(whole, timeout);
        if (result.IsOk()) {
            std::memcpy(event, &whole, std::min<std::size_t>(event->size, sizeof whole));
        }
        return result;
    });
}

int MORVANE_CALL morvane_wait_handle(morvane_port port, void** handle)
{
    return OnPort(port, handle != nullptr, [&](Port& found) { return found.WaitHandle(*handle); });
}

} // extern "C"
