// Reads the text of a registration script; RegistrarScript.h describes the format.
#pragma once

#include "host/RegistrarScript.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// For one text; used by one thread. Borrows both arguments.
class ScriptParser
{
public:
    ScriptParser(const std::wstring& text, const RegistrarScript::Replacements& replacements)
        : m_text(text), m_replacements(replacements)
    {
    }

    /// The keys below the root; none when the text is malformed.
    std::optional<std::vector<RegistrarScript::Key>> Parse();

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
    std::vector<RegistrarScript::Key> ParseBlock(RegistrarScript::Key* around);
    RegistrarScript::Key ParseKey();
    void ParseValue(RegistrarScript::Key* around);

    const std::wstring& m_text;
    const RegistrarScript::Replacements& m_replacements;
    std::size_t m_at = 0;
    Token m_token;            // the one to be looked at next
    bool m_malformed = false; // once set, no more tokens come
};
