// The registry of the simulated machine: keys by their whole path.
#pragma once

#include "simulation/standin/windows.h"

#include <map>
#include <string>
#include <vector>

namespace sim {

struct RegistryValue
{
    DWORD type = 0;
    std::vector<BYTE> data;
};

using RegistryValues = std::map<std::wstring, RegistryValue>;

struct Storage
{
    std::map<std::wstring, RegistryValues> keys; // by path, with the root's number in front
    std::vector<std::wstring> open;              // by handle; empty: closed
};

} // namespace sim
