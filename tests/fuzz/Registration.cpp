// Any text as a registration script: it is refused, or its keys written as a script are the same keys.
#include "host/ScriptParser.h"
#include "tests/fuzz/Target.h"

#include <algorithm>
#include <string>
#include <vector>

namespace fuzz {

namespace {

const ScriptReplacements Replacements{
    {L"MODULE", L"C:\\Program Files\\router's.exe"}, {L"EMPTY", L""}, {L"B", L"{"}};

std::wstring Quoted(const std::wstring& word)
{
    std::wstring quoted = L"'";
    for (const wchar_t each : word) {
        quoted += each == L'\'' ? L"''" : each == L'%' ? L"%%" : std::wstring(1, each);
    }
    return quoted + L"' ";
}

void Write(const std::vector<RegistrationKey>& keys, std::wstring& out);

void Write(const RegistrationKey& key, std::wstring& out)
{
    using Removal = RegistrationKey::Removal;
    out += key.removal == Removal::Never        ? L"NoRemove "
         : key.removal == Removal::WithContents ? L"ForceRemove "
                                                : L"";
    out += Quoted(key.name);
    if (key.defaultValue) {
        out += L"= s " + Quoted(*key.defaultValue);
    }
    out += L"{ ";
    for (const auto& [name, text] : key.values) {
        out += L"val " + Quoted(name) + L"= s " + Quoted(text);
    }
    Write(key.children, out);
    out += L"} ";
}

void Write(const std::vector<RegistrationKey>& keys, std::wstring& out)
{
    for (const RegistrationKey& key : keys) {
        Write(key, out);
    }
}

std::size_t CheckKeys(const std::vector<RegistrationKey>& keys, std::size_t depth)
{
    Check(depth <= MostScriptLevels, "keys lie no deeper than allowed");
    std::size_t count = keys.size();
    for (const RegistrationKey& key : keys) {
        Check(!key.name.empty(), "every key has a name");
        Check(std::ranges::none_of(key.values, [](const auto& value) { return value.first.empty(); }),
              "every value has a name");
        count += key.values.size() + CheckKeys(key.children, depth + 1);
    }
    return count;
}

} // namespace

void Registration(Input input)
{
    // Bytes as characters; those from 0x80 on become characters beyond Latin.
    std::wstring text;
    for (const std::uint8_t byte : input) {
        text += static_cast<wchar_t>(byte < 0x80 ? byte : byte * 0x51);
    }
    const auto keys = ParseScript(text, Replacements);
    if (!keys) {
        return;
    }
    Check(CheckKeys(*keys, 0) <= text.size(), "no more keys and values than characters");
    std::wstring anew = L"HKCR { ";
    Write(*keys, anew);
    anew += L"}";
    Check(ParseScript(anew, {}) == keys, "written anew the keys are the same");
}

} // namespace fuzz
