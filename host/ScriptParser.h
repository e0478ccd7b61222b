// Reads the text of a registration script. Portable.
//
// The format, words apart by white space, a word with blanks in single quotes ('' stands for one quote):
//
//   HKCR
//   {
//       NoRemove Name                  shared with others: never removed
//       {
//           ForceRemove Name = s Text  with its default value; emptied before it is written
//           {
//               val Name = s Text      a named value of the key around it
//               Name                   removed if nothing is left in it
//           }
//       }
//   }
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A key that a script lists, with all that it lists below.
struct RegistrationKey
{
    enum class Removal { IfEmpty, Never, WithContents };

    std::wstring name;
    Removal removal = Removal::IfEmpty;
    std::optional<std::wstring> defaultValue;
    std::vector<std::pair<std::wstring, std::wstring>> values;
    std::vector<RegistrationKey> children;

    bool operator==(const RegistrationKey&) const = default;
};

/// "%NAME%" in a word stands for the text of NAME, which is taken as it is; "%%" stands for "%".
using ScriptReplacements = std::map<std::wstring, std::wstring>;

/// Blocks in one another; a script with more is malformed. The parser calls itself for each.
inline constexpr std::size_t MostScriptLevels = 32;

/// The keys below the root; none when the text is malformed.
std::optional<std::vector<RegistrationKey>> ParseScript(const std::wstring& text,
                                                        const ScriptReplacements& replacements);
