#include "tests/windows/Row.h"

#include "host/ComServer.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"
#include "tests/support/UniqueName.h"
#include "win32/Event.h"
#include "win32/ModulePath.h"

#include <objbase.h>

#include <atomic>
#include <fstream>
#include <stdexcept>

namespace windowscheck {

namespace {

constexpr std::chrono::seconds AtOnce{5};

/// An object without methods: signals an event when its last reference is released, and, on request, faults when
/// it is asked for an interface that it does not have.
class Probe final : public IUnknown
{
public:
    Probe(HANDLE gone, bool faults) : m_gone(gone), m_faults(faults) {}
    ~Probe() { ::SetEvent(m_gone); }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    HRESULT WINAPI QueryInterface(REFIID id, void** object) noexcept override
    {
        if (id == IID_IUnknown) {
            AddRef();
            *object = this;
            return S_OK;
        }
        if (m_faults && id == IID_IPersist) {
            ::RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG WINAPI AddRef() noexcept override { return ++m_references; }
    ULONG WINAPI Release() noexcept override
    {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

private:
    const HANDLE m_gone;
    const bool m_faults;
    std::atomic<ULONG> m_references{1};
};

/// Writes what another process needs to reach the object into a file. COM then holds the only reference.
void Publish(IUnknown* object, const std::filesystem::path& file)
{
    IStream* stream = nullptr;
    ::CreateStreamOnHGlobal(nullptr, TRUE, &stream);
    const HRESULT result =
        ::CoMarshalInterface(stream, IID_IUnknown, object, MSHCTX_LOCAL, nullptr, MSHLFLAGS_NORMAL);
    object->Release();
    HGLOBAL memory = nullptr;
    ::GetHGlobalFromStream(stream, &memory);
    STATSTG status{};
    stream->Stat(&status, STATFLAG_NONAME);
    std::ofstream(file, std::ios::binary)
        .write(static_cast<const char*>(::GlobalLock(memory)),
               static_cast<std::streamsize>(status.cbSize.QuadPart));
    ::GlobalUnlock(memory);
    stream->Release();
    if (FAILED(result)) {
        throw std::runtime_error("the object can't be passed on");
    }
}

IUnknown* Fetch(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    IStream* stream = nullptr;
    ::CreateStreamOnHGlobal(nullptr, TRUE, &stream);
    stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr);
    stream->Seek({}, STREAM_SEEK_SET, nullptr);
    void* object = nullptr;
    ::CoUnmarshalInterface(stream, IID_IUnknown, &object);
    stream->Release();
    return static_cast<IUnknown*>(object);
}

/// A second WindowsCheck that plays `role` with `file`, and sets an event when it is ready.
class Partner
{
public:
    Partner(const std::wstring& role, const std::filesystem::path& file)
        : m_ready(::CreateEventW(nullptr, TRUE, FALSE, (L"WindowsCheck-" + file.filename().wstring()).c_str())),
          m_process(win32::ModulePath().value_or(L""), role + L" \"" + file.wstring() + L"\"")
    {
    }
    bool IsReady() const { return support::WaitFor(m_ready.Get()); }
    const support::ChildProcess& Process() const { return m_process; }
    static void SayReady(const std::filesystem::path& file)
    {
        const win32::KernelHandle ready(
            ::OpenEventW(EVENT_MODIFY_STATE, FALSE, (L"WindowsCheck-" + file.filename().wstring()).c_str()));
        ::SetEvent(ready.Get());
    }

private:
    win32::KernelHandle m_ready;
    support::ChildProcess m_process;
};

Found DeadClients()
{
    SetComOptions();
    const support::TempFolder folder;
    const std::filesystem::path file = folder.Path() / support::UniqueName(L"object");
    // Signalled late, by a COM that runs the client down after this function; so it is never closed.
    const HANDLE gone = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    Publish(new Probe(gone, false), file);
    const Partner client(L"--hold", file);
    if (!client.IsReady()) {
        return Differs("the client could not be started");
    }
    client.Process().Kill();
    return HoldsIf(support::WaitFor(gone, AtOnce),
                   "the object of a killed client was still held after " + std::to_string(AtOnce.count()) + " s");
}

Found FaultsInACall()
{
    const support::TempFolder folder;
    const std::filesystem::path file = folder.Path() / support::UniqueName(L"object");
    const Partner server(L"--fault", file);
    if (!server.IsReady()) {
        return Differs("the server could not be started");
    }
    IUnknown* const object = Fetch(file);
    if (object == nullptr) {
        return Differs("the server's object can't be reached");
    }
    void* other = nullptr;
    object->QueryInterface(IID_IPersist, &other);
    const auto code = server.Process().WaitForExit(AtOnce);
    object->Release();
    return HoldsIf(code.has_value() && *code != 0, code ? "it ended with code 0" : "the damaged server runs on");
}

} // namespace

int PlayComRole(const std::string& role, const std::string& argument)
{
    if (role != "--hold" && role != "--fault") {
        return -1;
    }
    IUnknown* held = nullptr;
    if (role == "--hold") {
        held = Fetch(argument);
    } else {
        SetComOptions();
        Publish(new Probe(::CreateEventW(nullptr, TRUE, FALSE, nullptr), true), argument);
    }
    if (role == "--fault" || held != nullptr) {
        Partner::SayReady(argument);
    }
    // Until it is killed or faults.
    for (MSG message; ::GetMessageW(&message, nullptr, 0, 0) > 0;) {
        ::DispatchMessageW(&message);
    }
    return 0;
}

std::vector<Row> ComRows()
{
    return {
        {"The objects of a killed client are released at once.", "IGlobalOptions interface", DeadClients},
        {"A fault inside a COM call ends the process.", "IGlobalOptions interface", FaultsInACall},
    };
}

} // namespace windowscheck
