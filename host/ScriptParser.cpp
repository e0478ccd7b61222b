#include "host/ScriptParser.h"

#include <cwctype>

namespace {

using Key = RegistrationKey;

bool IsBlank(wchar_t character)
{
    return std::iswspace(static_cast<std::wint_t>(character)) != 0;
}

/// For one text. Borrows both arguments.
class Parser
{
public:
    Parser(const std::wstring& text, const ScriptReplacements& replacements)
        : m_text(text), m_replacements(replacements)
    {
    }

    std::optional<std::vector<Key>> Parse()
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

private:
    struct Token
    {
        std::wstring word; // empty at the end of the text
        bool isQuoted = false;

        bool Is(const wchar_t* plain) const { return !isQuoted && word == plain; }
        bool IsEnd() const { return !isQuoted && word.empty(); }
    };

    void Advance()
    {
        m_token = Token();
        while (m_at < m_text.size() && IsBlank(m_text[m_at])) {
            ++m_at;
        }
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

    void ReadQuoted()
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
    std::wstring Replaced(const std::wstring& word)
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

    bool Accept(const wchar_t* plain)
    {
        if (!m_token.Is(plain)) {
            return false;
        }
        Advance();
        return true;
    }

    std::wstring TakeWord()
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
    std::wstring ParseText()
    {
        m_malformed |= !Accept(L"s") || m_token.IsEnd();
        std::wstring text = m_token.word;
        Advance();
        return text;
    }

    std::vector<Key> ParseBlock(Key* around)
    {
        std::vector<Key> keys;
        m_malformed |= ++m_level > MostScriptLevels || !Accept(L"{");
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

    void ParseValue(Key* around)
    {
        std::wstring name = TakeWord();
        m_malformed |= around == nullptr || !Accept(L"=");
        std::wstring text = ParseText();
        if (!m_malformed && around != nullptr) {
            around->values.emplace_back(std::move(name), std::move(text));
        }
    }

    Key ParseKey()
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

    const std::wstring& m_text;
    const ScriptReplacements& m_replacements;
    std::size_t m_at = 0;
    std::size_t m_level = 0;  // open blocks
    Token m_token;            // the one to be looked at next
    bool m_malformed = false; // once set, no more tokens come
};

} // namespace

std::optional<std::vector<Key>> ParseScript(const std::wstring& text, const ScriptReplacements& replacements)
{
    return Parser(text, replacements).Parse();
}
