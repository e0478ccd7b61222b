// What doctor knows about a PC, before it judges. The judging never asks Windows, so tests can plant any fault.
// Portable.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace routerlog {

/// One place where the automation class may be registered.
struct Registration
{
    bool perUser = false;
    bool view32 = false; // the registry as 32-bit programs see it
    std::string server;  // path of LocalServer32 without quotes and switches; empty when not registered
    bool serverExists = false;
    std::string version;     // of that file, "1.0.0.0"; empty when it has none
    std::string progIdClass; // the CLSID that the ProgID names here; empty when missing
    bool typeLibrary = false;
    bool appId = false;
};

struct RunningProgram
{
    std::string name; // as the process list has it
    std::string path; // empty when Windows does not tell
    std::uint32_t id = 0;
};

struct DeviceSettings
{
    std::string key; // the subkey's name
    std::string name;
    std::uint32_t mask = 0;
};

struct UsbInstrument
{
    std::uint16_t vendor = 0, product = 0;
    bool opens = false; // false also while the router has it
};

/// What a call of the router's object did, with --activate.
struct Activation
{
    enum class Result : std::uint8_t { Answered, Failed, Hung } result = Result::Answered;
    std::uint32_t error = 0; // HRESULT
};

/// Texts in UTF-8. An optional without value was not found out or does not apply.
struct PcFacts
{
    std::vector<Registration> registrations;
    std::vector<RunningProgram> routers; // programs named as the router
    std::vector<RunningProgram> hosts;   // programs named as a host program, in any case of letters
    bool mutexHeld = false;              // the router's mutex exists in this session
    bool elevated = false;

    bool settingsExist = false;
    bool settingsReadable = false;
    bool settingsWritable = false;         // also by the Debug Options dialog
    std::optional<std::uint32_t> logLimit; // MB
    bool logLimitHasWrongType = false;
    std::optional<std::uint32_t> appendLog;
    std::uint32_t simulate = 0;
    std::uint32_t flushLimitMs = 0;
    std::uint32_t restrictPipes = 0;
    std::vector<DeviceSettings> devices;
    std::vector<std::uint32_t> products; // of the product table

    std::string folder; // of the registered router, with its last backslash; empty without one
    bool logFolderWritable = true;
    bool logReadOnly = false;               // the log is there with that attribute, or may not be written
    bool logHeld = false;                   // another program than the router has the log open
    std::optional<std::uint64_t> freeBytes; // on the log's disk
    std::vector<std::string> emptyFirmware; // image files of no length

    std::optional<bool> driverPresent; // the vendor driver's interface class is known to Windows
    std::vector<UsbInstrument> instruments;
    bool simulatorPipe = false;          // the simulator's pipe is there
    std::vector<std::string> takenPipes; // of the names given with --pipe
    std::optional<Activation> activation;
};

/// The ProgID's class.
inline constexpr const char* RouterClassId = "{7A1C5E20-3B94-4F0D-9E61-2C8B7D4F1A93}";

} // namespace routerlog
