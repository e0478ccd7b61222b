// A file as bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// All bytes of the file; none when it cannot be read whole. `path` in UTF-8.
std::optional<std::vector<std::uint8_t>> WholeFile(const std::string& path);
