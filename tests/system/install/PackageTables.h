// The tables of an installer, read through Windows' own interface.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// One table: its rows as they stand, columns by name. A number reads as its digits.
using PackageRow = std::map<std::wstring, std::wstring>;
using PackageTable = std::vector<PackageRow>;

/// All tables of the package by their names. Throws std::runtime_error when it cannot be read.
std::map<std::wstring, PackageTable> ReadTables(const std::filesystem::path& package);

/// The row whose column `name` is `value`; an empty one without.
PackageRow Find(const PackageTable& table, const std::wstring& name, const std::wstring& value);
