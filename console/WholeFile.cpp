#include "console/WholeFile.h"

#include "console/Console.h"

#include <filesystem>
#include <fstream>
#include <iterator>

std::optional<std::vector<std::uint8_t>> WholeFile(const std::string& path)
{
    std::ifstream file(std::filesystem::path(console::Wide(path)), std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return file.bad() ? std::nullopt : std::optional(std::move(bytes));
}
