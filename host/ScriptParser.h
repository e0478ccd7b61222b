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

/// For one text; used by one thread. Borrows both arguments.
class ScriptParser
{
public:
    /// Blocks in one another; a script with more is malformed. The parser calls itself for each.
    static constexpr std::size_t MostLevels = 32;

    ScriptParser(const std::wstring& text, const ScriptReplacements& replacements)
        : m_text(text), m_replacements(replacements)
    {
    }

    /// The keys below the root; none when the text is malformed.
    std::optional<std::vector<RegistrationKey>> Parse();

private:
    struct Token
    {
        std::wstring word; // empty at the end of the text
        bool isQuoted = false;

        bool Is(const wchar_t* plain) const { return !isQuoted && word == plain; }
        bool IsEnd() const { return !isQuoted && word.empty(); }
    };

    void Advance();
    void SkipBlanks();
    void ReadQuoted();
    std::wstring Replaced(const std::wstring& word);
    bool Accept(const wchar_t* plain);
    std::wstring TakeWord();
    std::wstring ParseText();
    std::vector<RegistrationKey> ParseBlock(RegistrationKey* around);
    RegistrationKey ParseKey();
    void ParseValue(RegistrationKey* around);

    const std::wstring& m_text;
    const ScriptReplacements& m_replacements;
    std::size_t m_at = 0;
    std::size_t m_level = 0;  // open blocks
    Token m_token;            // the one to be looked at next
    bool m_malformed = false; // once set, no more tokens come
};
