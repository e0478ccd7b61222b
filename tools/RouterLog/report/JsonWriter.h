// JSON as text. Portable.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace routerlog {

/// Writes one document, values in the order of the calls. Names and values must come in an order that makes sense;
/// that is the caller's part.
class JsonWriter
{
public:
    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    JsonWriter& Name(std::string_view name);
    /// Bytes that are not ASCII are taken for Latin-1, as each text must be valid.
    JsonWriter& Text(std::string_view value);
    JsonWriter& Number(std::int64_t value);
    JsonWriter& Bool(bool value);
    JsonWriter& Null();

    const std::string& Document() const noexcept { return m_out; }

private:
    void Separate();
    void Quote(std::string_view text);

    std::string m_out;
    std::vector<bool> m_hasMember; // of each open object or array
    bool m_afterName = false;
};

} // namespace routerlog
