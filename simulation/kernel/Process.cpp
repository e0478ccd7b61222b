// What the core asks of its own process, and text: one byte is one character here.
#include "simulation/kernel/Call.h"
#include "simulation/kernel/Objects.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/standin/sddl.h"
#include "simulation/standin/timeapi.h"
#include "simulation/standin/windows.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <string>

using namespace sim;

namespace {

constexpr wchar_t ProgramPath[] = L"C:\\Router\\Router.exe";

struct TokenObject final : Object
{
    TokenObject() : Object(Kind::Token) {}
};

MMRESULT SetResolution(UINT /*milliseconds*/)
{
    return TIMERR_NOERROR;
}

char* NewText(const char* text)
{
    char* const copy = static_cast<char*>(std::malloc(std::strlen(text) + 1));
    return std::strcpy(copy, text);
}

} // namespace

DWORD GetModuleFileNameW(HMODULE /*module*/, wchar_t* to, DWORD size)
{
    Call call("GetModuleFileNameW");
    const std::size_t length = std::wcslen(ProgramPath);
    const std::size_t count = std::min<std::size_t>(length, size - 1);
    std::wmemcpy(to, ProgramPath, count);
    to[count] = L'\0';
    if (length >= size) {
        call.Refuse(ERROR_INSUFFICIENT_BUFFER);
        return size;
    }
    return static_cast<DWORD>(length);
}

// No points in these two: the product calls them while a static variable is initialised, which another thread
// would wait for outside the scheduler.
HMODULE LoadLibraryExW(const wchar_t* name, HANDLE /*reserved*/, DWORD flags)
{
    if (std::wcscmp(name, L"winmm.dll") != 0 || flags != LOAD_LIBRARY_SEARCH_SYSTEM32) {
        Fault("a library that is not known here");
    }
    return reinterpret_cast<HMODULE>(std::uintptr_t{1});
}

FARPROC GetProcAddress(HMODULE /*library*/, const char* /*name*/)
{
    return std::bit_cast<FARPROC>(&SetResolution);
}

BOOL SetProcessInformation(HANDLE /*process*/, int /*what*/, void* /*information*/, DWORD /*size*/)
{
    return TRUE;
}

BOOL OpenProcessToken(HANDLE /*process*/, DWORD /*access*/, HANDLE* token)
{
    Call call("OpenProcessToken");
    if (call.Fails({ERROR_ACCESS_DENIED})) {
        return FALSE;
    }
    *token = AddHandle(Ref<Object>(new TokenObject()));
    return TRUE;
}

BOOL GetTokenInformation(HANDLE token, int what, void* information, DWORD size, DWORD* needed)
{
    Call call("GetTokenInformation");
    ObjectOf(token, Object::Kind::Token);
    *needed = sizeof(TOKEN_USER);
    if (what != TokenUser || size < sizeof(TOKEN_USER) || call.Fails({ERROR_ACCESS_DENIED})) {
        return FALSE;
    }
    auto& user = *static_cast<TOKEN_USER*>(information);
    user.User.Sid = information;
    return TRUE;
}

BOOL ConvertSidToStringSidA(PSID /*sid*/, char** text)
{
    Call call("ConvertSidToStringSidA");
    if (call.Fails({ERROR_NOT_ENOUGH_MEMORY})) {
        return FALSE;
    }
    *text = NewText("S-1-5-21-1-2-3-1000");
    return TRUE;
}

BOOL ConvertStringSecurityDescriptorToSecurityDescriptorA(const char* text, DWORD /*revision*/, void** descriptor,
                                                          ULONG* /*size*/)
{
    Call call("ConvertStringSecurityDescriptorToSecurityDescriptorA");
    if (call.Fails({ERROR_NOT_ENOUGH_MEMORY})) {
        return FALSE;
    }
    *descriptor = NewText(text);
    return TRUE;
}

void* LocalFree(void* memory)
{
    std::free(memory);
    return nullptr;
}

int MultiByteToWideChar(UINT /*page*/, DWORD /*flags*/, const char* from, int length, wchar_t* to, int size)
{
    if (length == 0) {
        return Call::Refuse(ERROR_INVALID_PARAMETER);
    }
    std::transform(from, from + (size != 0 ? length : 0), to,
                   [](char c) { return static_cast<wchar_t>(static_cast<unsigned char>(c)); });
    return length;
}

int WideCharToMultiByte(UINT /*page*/, DWORD /*flags*/, const wchar_t* from, int length, char* to, int size,
                        const char* /*substitute*/, BOOL* /*substituted*/)
{
    if (length == 0) {
        return Call::Refuse(ERROR_INVALID_PARAMETER);
    }
    std::transform(from, from + (size != 0 ? length : 0), to, [](wchar_t c) { return static_cast<char>(c); });
    return length;
}

std::FILE* _wfopen(const wchar_t* /*name*/, const wchar_t* /*mode*/)
{
    return nullptr; // there is no folder Log
}

int localtime_s(std::tm* to, const std::time_t* from)
{
    return ::localtime_r(from, to) != nullptr ? 0 : 22;
}
