// Puts the simulated instruments' driver into this Windows (the current Wine prefix) and takes it out again.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace instrumentbus {

/// Where the build leaves the driver: beside the running program.
std::filesystem::path DriverBesideProgram();

/// Installs `driver` unless it is there already and runs, and waits until all its slots are ready. Several
/// programs may do it at a time. Returns what went wrong, empty when nothing did. Needs the rights of an
/// administrator.
std::string InstallDriver(const std::filesystem::path& driver, std::chrono::milliseconds timeout);

/// Removes the device nodes, ends the driver and deletes its service and its file. Returns what went wrong.
std::string UninstallDriver();

} // namespace instrumentbus
