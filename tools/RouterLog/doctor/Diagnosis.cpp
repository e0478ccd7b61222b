#include "tools/RouterLog/doctor/Diagnosis.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <set>
#include <utility>

namespace routerlog {

namespace {

constexpr std::uint64_t LittleSpace = 100ULL << 20;
constexpr std::uint32_t LargestLog = 4'095; // MB; the router counts modulo 4096
constexpr const char* HostNames[] = {"Lumivista.exe", "RouterProbe.exe"};
constexpr std::uint16_t VendorId = 0x1E4F;
constexpr std::uint16_t BuiltInProducts[] = {0x0010, 0x0100, 0x0101, 0x0200, 0x0300, 0x0400, 0x0500};
constexpr const char* RegisterRemedy =
    "Run \"MorvanePortRouter.exe /RegServer\" as administrator, in the folder of the router that is to be used.";

bool SameText(const std::string& left, const std::string& right)
{
    return std::ranges::equal(left, right,
                              [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

std::string FileName(const std::string& path)
{
    return path.substr(path.rfind('\\') + 1);
}

/// The judge; one diagnosis.
class Judge
{
public:
    Judge(const PcFacts& facts, const std::string& ownVersion) : m_facts(facts), m_ownVersion(ownVersion) {}

    std::vector<Finding> Findings()
    {
        JudgeRegistration();
        JudgeServers();
        JudgeRunning();
        JudgeActivation();
        JudgeSettings();
        JudgeLog();
        JudgeInstrument();
        JudgePipes();
        return std::move(m_findings);
    }

private:
    void Add(std::string key, std::string fault, std::string remedy)
    {
        m_findings.push_back({std::move(key), std::move(fault), std::move(remedy)});
    }

    std::vector<Registration> Registered() const
    {
        std::vector<Registration> found;
        std::ranges::copy_if(m_facts.registrations, std::back_inserter(found),
                             [](const Registration& each) { return !each.server.empty(); });
        return found;
    }

    void JudgeRegistration()
    {
        const std::vector<Registration> registered = Registered();
        if (registered.empty()) {
            Add("not-registered", "The router is not registered: no program can start it.", RegisterRemedy);
            return;
        }
        const auto other = std::ranges::find_if(registered, [&](const Registration& each) {
            return !SameText(each.server, registered.front().server);
        });
        if (other != registered.end()) {
            Add("registered-twice",
                "Two routers are registered: " + registered.front().server + " and " + other->server +
                    ". Which one starts depends on the user and on whether the program has 32 or 64 bits.",
                "Run \"MorvanePortRouter.exe /UnregServer\" (or /UnregServerPerUser) for the one that is not to "
                "be used.");
        }
        const bool any64 = std::ranges::any_of(registered, [](const Registration& each) { return !each.view32; });
        if (!any64) {
            Add("only-32-bit-view", "The router is registered for 32-bit programs only.", RegisterRemedy);
        }
        const bool machine =
            std::ranges::any_of(registered, [](const Registration& each) { return !each.perUser; });
        if (!machine && m_facts.elevated) {
            Add("only-this-user",
                "The router is registered for this user only, and programs that run as administrator do not see "
                "that.",
                RegisterRemedy);
        }
    }

    void JudgeServers()
    {
        std::set<std::string> seen;
        for (const Registration& each : Registered()) {
            if (!seen.insert(each.server).second) {
                continue;
            }
            if (!each.serverExists) {
                Add("server-missing",
                    "The router is registered as " + each.server + ", and there is no such file.",
                    "Put the router there, or register it where it is. " + std::string(RegisterRemedy));
            } else if (!SameText(FileName(each.server), "MorvanePortRouter.exe")) {
                Add("server-renamed",
                    "The registered program is " + each.server +
                        ": under that name RouterLog, RouterProbe and the "
                        "scripts of a service do not find it.",
                    "Name it MorvanePortRouter.exe and register it again.");
            } else if (!each.version.empty() && each.version != m_ownVersion) {
                Add("version-differs",
                    "The registered router has version " + each.version + ", RouterLog " + m_ownVersion + ".",
                    "Use the RouterLog that came with the router, or update the router.");
            }
            if (!SameText(each.progIdClass, RouterClassId)) {
                Add("progid-wrong",
                    each.progIdClass.empty()
                        ? "The name MorvanePortRouter.MorvaneUSBRouter.1 is not registered: scripts do not find "
                          "the router."
                        : "The name MorvanePortRouter.MorvaneUSBRouter.1 belongs to another class, " +
                              each.progIdClass + ".",
                    RegisterRemedy);
            }
            if (!each.typeLibrary) {
                Add("type-library-missing",
                    "The router's type library is not registered: programs start the router and cannot call it.",
                    RegisterRemedy);
            }
            if (!each.appId) {
                Add("appid-missing", "The router's AppID is not registered: settings of DCOM do not apply to it.",
                    RegisterRemedy);
            }
        }
    }

    void JudgeRunning()
    {
        if (m_facts.routers.size() > 1) {
            Add("two-routers",
                std::to_string(m_facts.routers.size()) +
                    " routers are running; only one of them can have the instrument.",
                "End all programs that use the router, in every session of this PC, and start one again.");
        }
        for (const RunningProgram& router : m_facts.routers) {
            const std::vector<Registration> registered = Registered();
            const bool known = router.path.empty() || registered.empty() ||
                               std::ranges::any_of(registered, [&](const Registration& each) {
                                   return SameText(each.server, router.path);
                               });
            if (!known) {
                Add("other-router", "The running router is " + router.path + ", which is not the registered one.",
                    "End the programs that use it. The registered router starts with the next of them.");
            }
        }
        if (m_facts.mutexHeld && m_facts.routers.empty()) {
            Add("mutex-held",
                "A program holds the router's mutex and no router is running: every router that starts now ends "
                "at once.",
                "Look for a renamed router in the task manager and end it.");
        }
        for (const RunningProgram& host : m_facts.hosts) {
            const bool exact = std::ranges::any_of(HostNames, [&](const char* name) { return host.name == name; });
            if (!exact) {
                Add("host-name",
                    "The host program runs as \"" + host.name +
                        "\". The router knows its host programs by the exact "
                        "letters and does not see this one: it may end while the program runs.",
                    "Name the program's file \"Lumivista.exe\", capital L, the rest small.");
            }
        }
    }

    void JudgeActivation()
    {
        if (!m_facts.activation) {
            return;
        }
        if (m_facts.activation->result == Activation::Result::Hung) {
            Add("hangs", "The router was called and did not answer in time: it hangs.",
                "Collect \"RouterLog bundle\", then end MorvanePortRouter.exe in the task manager. A router hangs "
                "for good "
                "when a program releases an object one of whose ports another program has unregistered.");
        } else if (m_facts.activation->result == Activation::Result::Failed) {
            const std::uint32_t error = m_facts.activation->error;
            char code[16];
            std::snprintf(code, sizeof code, "0x%08X", error);
            Add("activation-failed", std::string("The router could not be started or called (") + code + ").",
                error == 0x80080005
                    ? "The program started and did not register itself in time, or a router runs in this "
                      "session with other rights: end it."
                    : RegisterRemedy);
        }
    }

    void JudgeSettings()
    {
        if (!m_facts.settingsExist) {
            return; // the router makes them at its first start, with rights
        }
        if (!m_facts.settingsReadable || !m_facts.settingsWritable) {
            Add("settings-rights",
                m_facts.settingsReadable
                    ? "This user may read the router's settings and not write them. The router takes them as "
                      "they are; what is changed in the Debug Options dialog is lost when it ends, and new device "
                      "types are not listed."
                    : "This user may not read the router's settings. The router runs with defaults.",
                "Give the users of the router the right to read and write "
                "HKEY_LOCAL_MACHINE\\Software\\Morvane Biosystems\\Devices\\MorvanePortRouter, as the installer "
                "does.");
        }
        if (m_facts.logLimitHasWrongType) {
            Add("limit-type", "The value \"LogFileLimt(MB)\" is no DWORD and counts as 10.",
                "Delete it and set it in the Debug Options dialog.");
        } else if (m_facts.logLimit == 0U) {
            Add("limit-zero", "The log's size limit is 0: the log is rotated before each line and holds one line.",
                "Set the log file size to 10 MB in the Debug Options dialog.");
        } else if (m_facts.logLimit.value_or(10) > LargestLog) {
            Add("limit-huge",
                "The log's size limit is " + std::to_string(*m_facts.logLimit) + " MB, which counts as " +
                    std::to_string(*m_facts.logLimit % (LargestLog + 1)) + ".",
                "Set the log file size to 10 MB in the Debug Options dialog.");
        }
        for (const DeviceSettings& device : m_facts.devices) {
            const bool number =
                !device.key.empty() &&
                device.key.find_first_not_of("0123456789", device.key.front() == '-' ? 1 : 0) == std::string::npos;
            if (!number) {
                Add("device-name",
                    "The settings of the device \"" + device.key +
                        "\" have no number for a name: the router "
                        "takes them for those of device 0, the firmware download.",
                    "Delete that subkey of DeviceOptions.");
            }
        }
    }

    void JudgeLog()
    {
        if (!m_facts.logFolderWritable) {
            Add("log-rights",
                "This user may not write into " + m_facts.folder + "Log: the router runs without a log.",
                "Give the users of the router the right to modify that folder.");
        } else if (m_facts.logReadOnly) {
            Add("log-read-only", "The log file is write-protected: the router runs without a log.",
                "Take the protection from Log\\MorvanePortRouter.log.");
        } else if (m_facts.logHeld) {
            Add("log-held", "Another program has the log open so that the router cannot write it.",
                "Close the program that shows the log, and restart the router. \"RouterLog follow\" shows it "
                "while it is "
                "written.");
        }
        if (m_facts.freeBytes.value_or(LittleSpace) < LittleSpace) {
            Add("disk-full",
                "Only " + std::to_string(*m_facts.freeBytes >> 20) + " MB are free on the log's disk.",
                "Make room; a log that cannot be written is lost.");
        }
        for (const std::string& file : m_facts.emptyFirmware) {
            Add("firmware-empty", "The firmware image " + file + " is empty.", "Copy it again from its source.");
        }
    }

    void JudgeInstrument()
    {
        if (m_facts.simulate != 0) {
            if (!m_facts.simulatorPipe && m_facts.routers.empty()) {
                Add("no-simulator", "The router is set to use the simulator, and none is running.",
                    "Start InstrumentSimulator.exe, or switch \"Enable Simulation\" off in the Debug Options "
                    "dialog and "
                    "restart the router.");
            }
            return;
        }
        if (m_facts.driverPresent == false) {
            Add("no-driver", "The instrument's driver is not installed.",
                "Install the driver of the instrument's vendor.");
            return;
        }
        if (m_facts.instruments.empty()) {
            Add("no-instrument", "No instrument is plugged in, or Windows does not see it.",
                "Look at its power, its cable and the device manager.");
            return;
        }
        const bool any = std::ranges::any_of(m_facts.instruments,
                                             [this](const UsbInstrument& each) { return IsSupported(each); });
        const UsbInstrument& first = m_facts.instruments.front();
        if (!any && first.vendor != 0) {
            char product[16];
            std::snprintf(product, sizeof product, "0x%04X", first.product);
            Add("product-unknown",
                std::string("The plugged instrument, product ") + product + ", is none that the router accepts.",
                "Put its number into the subkey Products of the router's settings (see the registry in "
                "service.html, below Documents).");
        }
    }

    bool IsSupported(const UsbInstrument& instrument) const
    {
        const auto is = [&](std::uint32_t product) { return product == instrument.product; };
        return instrument.vendor == VendorId &&
               (m_facts.products.empty() ? std::ranges::any_of(BuiltInProducts, is)
                                         : std::ranges::any_of(m_facts.products, is));
    }

    void JudgePipes()
    {
        if (!m_facts.routers.empty()) {
            return; // its own
        }
        for (const std::string& pipe : m_facts.takenPipes) {
            Add("pipe-taken",
                "The pipe name \"" + pipe + "\" is taken by another program: a port of that name never opens.",
                "End that program, or give the port another name.");
        }
    }

    const PcFacts& m_facts;
    const std::string& m_ownVersion;
    std::vector<Finding> m_findings;
};

} // namespace

std::vector<Finding> Diagnose(const PcFacts& facts, const std::string& ownVersion)
{
    return Judge(facts, ownVersion).Findings();
}

std::string DiagnosisText(const PcFacts& facts, const std::vector<Finding>& findings)
{
    if (findings.empty()) {
        return std::string("Healthy: the router is registered, its settings and log can be written, ") +
               (facts.simulate != 0 ? "the simulator is there.\n" : "the instrument is there.\n");
    }
    std::string text;
    for (const Finding& finding : findings) {
        text += "FAULT   " + finding.fault + "\n  mend  " + finding.remedy + "\n\n";
    }
    return text + std::to_string(findings.size()) + (findings.size() == 1 ? " fault.\n" : " faults.\n");
}

} // namespace routerlog
