// Reading log files in tests.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

using Lines = std::vector<std::string>;

bool Exists(const std::wstring& path);

/// The file's bytes; empty when it cannot be read. Works on a log that is being written.
std::string ReadText(const std::wstring& path);
void WriteText(const std::wstring& path, std::string_view text);

/// The text cut at each carriage return and line feed.
Lines ReadLines(const std::wstring& path);

/// Whether a line begins with a time stamp and its blank; and what follows it.
bool IsStamped(std::string_view line);
std::string WithoutStamp(std::string_view line);

/// How many lines have `part` in them.
std::size_t CountLines(const Lines& lines, std::string_view part);
