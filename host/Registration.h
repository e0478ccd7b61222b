// Entering the router in the registry as an automation server, and taking it out again.
#pragma once

#include "host/RegistrarScript.h"
#include "win32/Windows.h"

#include <string>
#include <vector>

/// Where registrations go: for all users, or for the one who runs the program (their Software\Classes).
enum class RegistrationHive { Machine, User };

/// Both read the scripts and the type library from this program's own resources, on the calling thread, on which
/// COM must be initialised.

/// Writes the AppID script, then the class script, and registers the type library. The first failing step's
/// HRESULT; what was written until then stays for UnregisterRouter to remove.
HRESULT RegisterRouter(RegistrationHive hive);

/// Removes the class and the type library, then the AppID entries; what is missing counts as removed. Goes on
/// after a failing step and returns the first one's HRESULT.
HRESULT UnregisterRouter(RegistrationHive hive);

/// The keys of a script, and the view of the registry that they go to (KEY_WOW64_64KEY, KEY_WOW64_32KEY).
struct RegistrationPart
{
    std::vector<RegistrationKey> keys;
    REGSAM view = 0;
};

/// What RegisterRouter writes for a program at `modulePath`, in its order: the installer writes the same keys
/// without running the program.
HRESULT ReadRegistration(const std::wstring& modulePath, std::vector<RegistrationPart>& parts);
