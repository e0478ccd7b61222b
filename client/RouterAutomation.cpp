#include "client/RouterAutomation.h"

#include "win32/Windows.h"

#include <MorvanePortRouter.h>
#include <oleauto.h>
#include <tlhelp32.h>
#include <array>
#include <cwchar>
#include <utility>

namespace {

constexpr const wchar_t* ProgId = L"MorvanePortRouter.MorvaneUSBRouter.1";
constexpr const wchar_t* ProgramName = L"MorvanePortRouter.exe";

/// Of an object created for early binding.
IMorvaneUSBRouter* Methods(IDispatch* object)
{
    return static_cast<IMorvaneUSBRouter*>(object);
}

/// An automation string of one call.
class Text
{
public:
    explicit Text(const std::wstring& text)
        : m_text(::SysAllocStringLen(text.data(), static_cast<UINT>(text.size())))
    {
    }
    ~Text() { ::SysFreeString(m_text); }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    BSTR Get() const noexcept { return m_text; }

private:
    BSTR m_text;
};

VARIANT Signed(LONG value)
{
    VARIANT variant{};
    variant.vt = VT_I4;
    variant.lVal = value;
    return variant;
}

VARIANT Unsigned(ULONG value)
{
    VARIANT variant{};
    variant.vt = VT_UI4;
    variant.ulVal = value;
    return variant;
}

VARIANT Borrowed(BSTR text)
{
    VARIANT variant{};
    variant.vt = VT_BSTR;
    variant.bstrVal = text;
    return variant;
}

} // namespace

RouterAutomation::Result RouterAutomation::Note(HRESULT result) noexcept
{
    m_error = result;
    return SUCCEEDED(result) ? Result::Done : Result::Refused;
}

RouterAutomation::Result RouterAutomation::Create(Binding binding)
{
    Release();
    CLSID classId{};
    if (Note(::CLSIDFromProgID(ProgId, &classId)) != Result::Done) {
        return Result::NotRegistered;
    }
    m_binding = binding;
    const IID& wanted = binding == Binding::Early ? __uuidof(IMorvaneUSBRouter) : IID_IDispatch;
    void* object = nullptr;
    if (Note(::CoCreateInstance(classId, nullptr, CLSCTX_LOCAL_SERVER, wanted, &object)) != Result::Done) {
        return m_error == REGDB_E_CLASSNOTREG ? Result::NotRegistered : Result::NoStart;
    }
    m_object = static_cast<IDispatch*>(object);
    return Result::Done;
}

RouterAutomation::Result RouterAutomation::Register(std::int32_t deviceType, std::uint32_t port,
                                                    std::int32_t readBuffer, std::int32_t writeBuffer,
                                                    const std::wstring& pipeName)
{
    const Text name(pipeName);
    if (m_object == nullptr) {
        return Note(E_POINTER);
    }
    if (m_binding == Binding::Early) {
        return Note(Methods(m_object)->Register(deviceType, port, readBuffer, writeBuffer, name.Get()));
    }
    // IDispatch takes the last argument first.
    std::array<VARIANT, 5> arguments = {Borrowed(name.Get()), Signed(writeBuffer), Signed(readBuffer),
                                        Unsigned(port), Signed(deviceType)};
    return Invoke(L"Register", arguments.data(), static_cast<unsigned>(arguments.size()));
}

RouterAutomation::Result RouterAutomation::Unregister(std::int32_t deviceType, std::uint32_t port)
{
    if (m_object == nullptr) {
        return Note(E_POINTER);
    }
    if (m_binding == Binding::Early) {
        return Note(Methods(m_object)->Unregister(deviceType, port));
    }
    std::array<VARIANT, 2> arguments = {Unsigned(port), Signed(deviceType)};
    return Invoke(L"Unregister", arguments.data(), static_cast<unsigned>(arguments.size()));
}

RouterAutomation::Result RouterAutomation::Invoke(const wchar_t* method, VARIANT* lastArgumentFirst,
                                                  unsigned count)
{
    auto* name = const_cast<wchar_t*>(method);
    DISPID id = DISPID_UNKNOWN;
    if (Note(m_object->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_SYSTEM_DEFAULT, &id)) != Result::Done) {
        return Result::Refused;
    }
    DISPPARAMS parameters{lastArgumentFirst, nullptr, count, 0};
    return Note(m_object->Invoke(id, IID_NULL, LOCALE_SYSTEM_DEFAULT, DISPATCH_METHOD, &parameters, nullptr,
                                 nullptr, nullptr));
}

void RouterAutomation::Release()
{
    if (m_object != nullptr) {
        m_object->Release();
        m_object = nullptr;
    }
}

std::vector<DWORD> ProcessesNamed(const std::wstring& program)
{
    std::vector<DWORD> found;
    const win32::FileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Process32FirstW(snapshot.Get(), &entry); more != FALSE;
         more = ::Process32NextW(snapshot.Get(), &entry))
    {
        if (::_wcsicmp(entry.szExeFile, program.c_str()) == 0) {
            found.push_back(entry.th32ProcessID);
        }
    }
    return found;
}

bool RouterProcess::Find()
{
    m_process.Reset();
    m_id = 0;
    std::uint64_t youngest = 0;
    for (const DWORD id : ProcessesNamed(ProgramName)) {
        Consider(id, youngest);
    }
    return IsFound();
}

void RouterProcess::Consider(DWORD id, std::uint64_t& youngest)
{
    win32::KernelHandle process(::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    FILETIME created{};
    FILETIME unused{};
    if (!process || ::GetProcessTimes(process.Get(), &created, &unused, &unused, &unused) == FALSE) {
        return;
    }
    const std::uint64_t time = static_cast<std::uint64_t>(created.dwHighDateTime) << 32 | created.dwLowDateTime;
    if (time >= youngest && ::WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT) {
        youngest = time;
        m_process = std::move(process);
        m_id = id;
    }
}

std::optional<DWORD> RouterProcess::WaitForEnd(DWORD milliseconds) const
{
    DWORD exitCode = 0;
    if (!m_process || ::WaitForSingleObject(m_process.Get(), milliseconds) != WAIT_OBJECT_0 ||
        ::GetExitCodeProcess(m_process.Get(), &exitCode) == FALSE)
    {
        return std::nullopt;
    }
    return exitCode;
}
