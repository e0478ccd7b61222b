// Whether a text is JSON.
#pragma once

#include <cctype>
#include <string_view>

namespace routerlogtest {

class JsonText
{
public:
    explicit JsonText(std::string_view text) : m_rest(text) {}
    bool IsValid() { return Value(0) && (Blanks(), m_rest.empty()); }

private:
    static constexpr int Deepest = 20;

    void Blanks()
    {
        while (!m_rest.empty() && (m_rest[0] == ' ' || m_rest[0] == '\n')) {
            m_rest.remove_prefix(1);
        }
    }
    bool Skip(std::string_view text)
    {
        Blanks();
        const bool found = m_rest.starts_with(text);
        m_rest.remove_prefix(found ? text.size() : 0);
        return found;
    }
    bool Text()
    {
        if (!Skip("\"")) {
            return false;
        }
        while (!m_rest.empty() && m_rest[0] != '"') {
            const auto byte = static_cast<unsigned char>(m_rest[0]);
            const bool escape = byte == '\\';
            if (byte < 0x20 || byte > 0x7E ||
                (escape &&
                 (m_rest.size() < 2 || std::string_view("\"\\/bfnrtu").find(m_rest[1]) == std::string_view::npos)))
            {
                return false;
            }
            m_rest.remove_prefix(escape ? 2 : 1);
        }
        return Skip("\"");
    }
    bool Number()
    {
        const std::size_t length = m_rest.find_first_not_of("-+.0123456789eE");
        const std::string_view digits = m_rest.substr(0, length);
        m_rest.remove_prefix(digits.size());
        return !digits.empty() && std::isdigit(static_cast<unsigned char>(digits.back())) != 0;
    }
    bool Members(std::string_view end, bool named, int depth)
    {
        if (Skip(end)) {
            return true;
        }
        do {
            if ((named && !(Text() && Skip(":"))) || !Value(depth + 1)) {
                return false;
            }
        } while (Skip(","));
        return Skip(end);
    }
    bool Value(int depth)
    {
        Blanks();
        if (depth > Deepest || m_rest.empty()) {
            return false;
        }
        switch (m_rest[0]) {
        case '{': return Skip("{") && Members("}", true, depth);
        case '[': return Skip("[") && Members("]", false, depth);
        case '"': return Text();
        default: return Skip("true") || Skip("false") || Skip("null") || Number();
        }
    }

    std::string_view m_rest;
};

} // namespace routerlogtest
