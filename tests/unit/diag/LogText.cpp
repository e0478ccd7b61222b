#include "tests/unit/diag/LogText.h"

#include "win32/Handle.h"

#include <algorithm>
#include <filesystem>
#include <regex>

bool Exists(const std::wstring& path)
{
    return std::filesystem::exists(path);
}

std::string ReadText(const std::wstring& path)
{
    const win32::FileHandle file(::CreateFileW(path.c_str(), GENERIC_READ,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                               OPEN_EXISTING, 0, nullptr));
    std::string text;
    if (file) {
        text.resize(::GetFileSize(file.Get(), nullptr));
        DWORD read = 0;
        ::ReadFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
        text.resize(read);
    }
    return text;
}

void WriteText(const std::wstring& path, std::string_view text)
{
    const win32::FileHandle file(
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    ::WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

Lines ReadLines(const std::wstring& path)
{
    const std::string text = ReadText(path);
    Lines lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
        lines.push_back(text.substr(start, end - start));
    }
    return lines;
}

bool IsStamped(std::string_view line)
{
    static const std::regex stamp(R"(\[\d\d-\d\d-\d\d \d\d:\d\d:\d\d:0\d\d\d\] .*)");
    return std::regex_match(line.begin(), line.end(), stamp);
}

std::string WithoutStamp(std::string_view line)
{
    return std::string(line.substr(std::min<std::size_t>(line.size(), 25)));
}

std::size_t CountLines(const Lines& lines, std::string_view part)
{
    return static_cast<std::size_t>(std::ranges::count_if(
        lines, [part](const std::string& line) { return line.find(part) != std::string::npos; }));
}
