// The built packages and what they do to a PC, for tests that install for real.
#pragma once

#include "tests/system/RegistryListing.h"

#include <filesystem>
#include <set>
#include <string>

/// The package of this tree, and one of an older version with the same files but for their version.
std::filesystem::path CurrentPackage();
std::filesystem::path PreviousPackage();

/// Where everything is installed.
std::filesystem::path InstalledFolder();

/// Runs msiexec with `action`, the package's path or a product code, and `properties`, without a window; the exit
/// code.
DWORD Msiexec(const wchar_t* action, const std::wstring& package, const std::wstring& properties = L"");

/// Everything on the drive and in the registry that an installation can touch.
struct Pc
{
    RegistryListing registry;
    std::set<std::wstring> files; // "path, size"; folders without a size

    static Pc List();
};

/// What stands in `now` but not in `before`, a line each.
std::wstring AddedTo(const Pc& before, const Pc& now);

/// Lines of `text` that begin with none of `known`; for what is added by intention.
std::wstring Without(const std::wstring& text, const std::set<std::wstring>& known);

/// PATH as new processes are given it.
std::wstring MachinePath();

/// "1.0.0.0" of the program's version resource; empty without one.
std::wstring VersionOf(const std::filesystem::path& program);
