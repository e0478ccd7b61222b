#include "tools/RouterLog/report/JsonWriter.h"

#include <array>
#include <cstdio>

namespace routerlog {

void JsonWriter::Separate()
{
    if (m_afterName) {
        m_afterName = false;
        return;
    }
    if (!m_hasMember.empty()) {
        if (m_hasMember.back()) {
            m_out += ',';
        }
        m_out += '\n';
        m_out.append(m_hasMember.size() * 2, ' ');
        m_hasMember.back() = true;
    }
}

JsonWriter& JsonWriter::BeginObject()
{
    Separate();
    m_out += '{';
    m_hasMember.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::EndObject()
{
    m_hasMember.pop_back();
    m_out += '}';
    return *this;
}

JsonWriter& JsonWriter::BeginArray()
{
    Separate();
    m_out += '[';
    m_hasMember.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::EndArray()
{
    m_hasMember.pop_back();
    m_out += ']';
    return *this;
}

JsonWriter& JsonWriter::Name(std::string_view name)
{
    Separate();
    Quote(name);
    m_out += ": ";
    m_afterName = true;
    return *this;
}

JsonWriter& JsonWriter::Text(std::string_view value)
{
    Separate();
    Quote(value);
    return *this;
}

JsonWriter& JsonWriter::Number(std::int64_t value)
{
    Separate();
    m_out += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value)
{
    Separate();
    m_out += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null()
{
    Separate();
    m_out += "null";
    return *this;
}

void JsonWriter::Quote(std::string_view text)
{
    m_out += '"';
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (each == '"' || each == '\\') {
            m_out += '\\';
            m_out += each;
        } else if (byte < 0x20 || byte >= 0x7F) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", byte);
            m_out += escape.data();
        } else {
            m_out += each;
        }
    }
    m_out += '"';
}

} // namespace routerlog
