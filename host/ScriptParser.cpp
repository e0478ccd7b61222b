#include "host/ScriptParser.h"

#include <cwctype>

namespace {

using Key = RegistrationKey;

bool IsBlank(wchar_t character)
{
    return std::iswspace(static_cast<std::wint_t>(character)) != 0;
}

} // namespace

std::optional<std::vector<Key>> ScriptParser::Parse()
{
    Advance();
    m_malformed |= !Accept(L"HKCR");
    std::vector<Key> keys = ParseBlock(nullptr);
    m_malformed |= !m_token.IsEnd();
    if (m_malformed) {
        return std::nullopt;
    }
    return keys;
}

void ScriptParser::SkipBlanks()
{
    while (m_at < m_text.size() && IsBlank(m_text[m_at])) {
        ++m_at;
    }
}

void ScriptParser::Advance()
{
    m_token = Token();
    SkipBlanks();
    if (m_malformed || m_at == m_text.size()) {
        return;
    }
    if (m_text[m_at] == L'\'') {
        ReadQuoted();
    } else {
        while (m_at < m_text.size() && !IsBlank(m_text[m_at])) {
            m_token.word += m_text[m_at++];
        }
    }
    m_token.word = Replaced(m_token.word);
}

void ScriptParser::ReadQuoted()
{
    m_token.isQuoted = true;
    for (++m_at; m_at < m_text.size(); ++m_at) {
        if (m_text[m_at] == L'\'') {
            ++m_at;
            if (m_at == m_text.size() || m_text[m_at] != L'\'') {
                return;
            }
        }
        m_token.word += m_text[m_at];
    }
    m_malformed = true;
}

// After the division into words, so that blanks and quotes of a path are nothing special.
std::wstring ScriptParser::Replaced(const std::wstring& word)
{
    std::wstring result;
    std::size_t at = 0;
    for (std::size_t open; (open = word.find(L'%', at)) != std::wstring::npos;) {
        const std::size_t close = word.find(L'%', open + 1);
        const std::wstring name = close != std::wstring::npos ? word.substr(open + 1, close - open - 1) : L"";
        const auto replacement = m_replacements.find(name);
        result.append(word, at, open - at);
        if (close == open + 1) {
            result += L'%';
        } else if (replacement != m_replacements.end()) {
            result += replacement->second;
        } else {
            m_malformed = true;
            return result;
        }
        at = close + 1;
    }
    return result.append(word, at);
}

bool ScriptParser::Accept(const wchar_t* plain)
{
    if (!m_token.Is(plain)) {
        return false;
    }
    Advance();
    return true;
}

std::wstring ScriptParser::TakeWord()
{
    std::wstring word = m_token.word;
    // An empty name would be the key around it.
    if (word.empty() || m_token.Is(L"{") || m_token.Is(L"}") || m_token.Is(L"=")) {
        m_malformed = true;
    }
    Advance();
    return word;
}

/// After "=": the letter of the type, then the text, which may be empty.
std::wstring ScriptParser::ParseText()
{
    m_malformed |= !Accept(L"s") || m_token.IsEnd();
    std::wstring text = m_token.word;
    Advance();
    return text;
}

std::vector<Key> ScriptParser::ParseBlock(Key* around)
{
    std::vector<Key> keys;
    m_malformed |= ++m_level > MostLevels || !Accept(L"{");
    while (!m_malformed && !Accept(L"}")) {
        if (Accept(L"val")) {
            ParseValue(around);
        } else {
            keys.push_back(ParseKey());
        }
    }
    --m_level;
    return keys;
}

void ScriptParser::ParseValue(Key* around)
{
    std::wstring name = TakeWord();
    m_malformed |= around == nullptr || !Accept(L"=");
    std::wstring text = ParseText();
    if (!m_malformed && around != nullptr) {
        around->values.emplace_back(std::move(name), std::move(text));
    }
}

Key ScriptParser::ParseKey()
{
    Key key;
    if (Accept(L"NoRemove")) {
        key.removal = Key::Removal::Never;
    } else if (Accept(L"ForceRemove")) {
        key.removal = Key::Removal::WithContents;
    }
    key.name = TakeWord();
    if (Accept(L"=")) {
        key.defaultValue = ParseText();
    }
    if (m_token.Is(L"{")) {
        key.children = ParseBlock(&key);
    }
    return key;
}
