// What tests replace in the import table of a Windows program: here the linker lets the calls of the product and
// of the tests go through a table (cmake/SimulatedUnits.cmake names them again, for its option --wrap).
#include "simulation/kernel/Scheduler.h"
#include "simulation/standin/process.h"
#include "simulation/standin/windows.h"
#include "tests/support/PatchedImport.h"

#include <string>
#include <string_view>

namespace {

struct Import
{
    std::string_view name;
    void* target;
};

Import* FindImport(std::string_view name);

} // namespace

// `symbol` is the linker's name of the call.
#define SIMULATION_IMPORT(result, name, symbol, parameters, arguments)                   \
    result Real##name parameters __asm__("__real_" symbol);                              \
    result Imported##name parameters __asm__("__wrap_" symbol);                          \
    namespace {                                                                          \
    Import g_import##name{#name, reinterpret_cast<void*>(&Real##name)};                  \
    }                                                                                    \
    result Imported##name parameters                                                     \
    {                                                                                    \
        return reinterpret_cast<decltype(&Real##name)>(g_import##name.target) arguments; \
    }

SIMULATION_IMPORT(BOOL, CancelIoEx, "_Z10CancelIoExPvP10OVERLAPPED", (HANDLE file, OVERLAPPED* record),
                  (file, record))
SIMULATION_IMPORT(BOOL, ConnectNamedPipe, "_Z16ConnectNamedPipePvP10OVERLAPPED", (HANDLE pipe, OVERLAPPED* record),
                  (pipe, record))
SIMULATION_IMPORT(HANDLE, CreateEventW, "_Z12CreateEventWP19SECURITY_ATTRIBUTESiiPKw",
                  (SECURITY_ATTRIBUTES * security, BOOL manual, BOOL set, const wchar_t* name),
                  (security, manual, set, name))
SIMULATION_IMPORT(HANDLE, CreateNamedPipeA, "_Z16CreateNamedPipeAPKcjjjjjjP19SECURITY_ATTRIBUTES",
                  (const char* name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outSize, DWORD inSize,
                   DWORD timeout, SECURITY_ATTRIBUTES* security),
                  (name, openMode, pipeMode, instances, outSize, inSize, timeout, security))
SIMULATION_IMPORT(BOOL, OpenProcessToken, "_Z16OpenProcessTokenPvjPS_",
                  (HANDLE process, DWORD access, HANDLE* token), (process, access, token))
SIMULATION_IMPORT(BOOL, ReadFile, "_Z8ReadFilePvS_jPjP10OVERLAPPED",
                  (HANDLE file, LPVOID buffer, DWORD length, DWORD* read, OVERLAPPED* record),
                  (file, buffer, length, read, record))
SIMULATION_IMPORT(BOOL, WriteFile, "_Z9WriteFilePvPKvjPjP10OVERLAPPED",
                  (HANDLE file, const void* data, DWORD length, DWORD* written, OVERLAPPED* record),
                  (file, data, length, written, record))
SIMULATION_IMPORT(std::uintptr_t, _beginthreadex, "_Z14_beginthreadexPvjPFjS_ES_jPj",
                  (void* security, unsigned stack, unsigned (*body)(void*), void* argument, unsigned flags,
                   unsigned* id),
                  (security, stack, body, argument, flags, id))

namespace {

Import* FindImport(std::string_view name)
{
    for (Import* const import :
         {&g_importCancelIoEx, &g_importConnectNamedPipe, &g_importCreateEventW, &g_importCreateNamedPipeA,
          &g_importOpenProcessToken, &g_importReadFile, &g_importWriteFile, &g_import_beginthreadex})
    {
        if (import->name == name) {
            return import;
        }
    }
    sim::Fault("an import is replaced that is not known here: " + std::string(name));
}

} // namespace

namespace support {

PatchedImport::PatchedImport(const char* function, void* replacement) : m_entry(&FindImport(function)->target)
{
    m_original = *m_entry;
    *m_entry = replacement;
}

PatchedImport::~PatchedImport()
{
    *m_entry = m_original;
}

} // namespace support
