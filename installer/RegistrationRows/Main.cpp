// RegistrationRows: the keys that /RegServer leaves, as rows of the installer's tables. Runs while the package is
// made.
//
// The installer writes and removes these rows itself, within its own transaction, so that a failed installation is
// rolled back; a program that registers itself could not take part in that.
#include "host/Registration.h"
#include "win32/Text.h"

#include <cstdio>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Key = RegistrationKey;

// With a blank, as the installed folder has one, so that command lines are quoted. The folder is always the same,
// and the installer's name for it, unlike the one for a directory of the package, ends where no backslash may
// follow.
constexpr wchar_t Folder[] = L"C:\\Program Files\\Morvane Port Router";
constexpr wchar_t InstalledFolder[] = L"[ProgramFiles64Folder]Morvane Port Router";

enum class Root { User = 1, Machine = 2 };

/// One table in the text form that msibuild imports.
class Table
{
public:
    Table(const std::string& folder, const char* name, const char* columns, const char* types)
        : m_name(name), m_file(folder + "/" + name + ".idt", std::ios::binary)
    {
        m_file << columns << '\n' << types << '\n' << name << '\t' << name << '\n';
    }

    /// A row with a key of its own and, last, the component of the registry's view: one of 64 or of 32 bits.
    void Add(const char* name, REGSAM view, Root root, const std::vector<std::wstring>& columns)
    {
        const bool is32 = view == KEY_WOW64_32KEY;
        const std::string key = std::string(name) + (is32 ? "32" : "64");
        m_file << key << '.' << ++m_counts[key] << '\t' << static_cast<int>(root);
        for (const std::wstring& column : columns) {
            m_file << '\t' << win32::ToAnsi(column);
        }
        m_file << '\t' << (is32 ? "Registration32" : "MorvanePortRouter.exe") << '\n';
    }

    void Close()
    {
        m_file.close();
        if (!m_file) {
            throw std::runtime_error(m_name + ".idt cannot be written");
        }
    }

private:
    const std::string m_name;
    std::ofstream m_file;
    std::map<std::string, int> m_counts;
};

class Rows
{
public:
    explicit Rows(const std::string& folder)
        : m_registry(folder, "Registry", "Registry\tRoot\tKey\tName\tValue\tComponent_",
                     "s72\ti2\tl255\tL255\tL0\ts72"),
          m_removed(folder, "RemoveRegistry", "RemoveRegistry\tRoot\tKey\tName\tComponent_",
                    "s72\ti2\tl255\tL255\ts72")
    {
    }

    void Add(REGSAM view, const std::wstring& parent, const Key& key)
    {
        const std::wstring path = parent + L'\\' + key.name;
        if (key.removal == Key::Removal::WithContents) {
            m_removed.Add("Emptied", view, Root::Machine, {path, L"-"});
            m_registry.Add("Removed", view, Root::Machine, {path, L"-", L""});
        }
        if (key.defaultValue) {
            m_registry.Add("Registration", view, Root::Machine, {path, L"", Value(*key.defaultValue)});
        }
        for (const auto& [name, text] : key.values) {
            m_registry.Add("Registration", view, Root::Machine, {path, name, Value(text)});
        }
        if (!key.defaultValue && key.values.empty() && key.children.empty()) {
            m_registry.Add("Registration", view, Root::Machine, {path, L"+", L""});
        }
        for (const Key& child : key.children) {
            Add(view, path, child);
        }
    }

    /// A registration of the user who installs would stay in force for this user in place of the machine's.
    void RemoveForUser(REGSAM view, const std::wstring& parent, const Key& key)
    {
        const std::wstring path = parent + L'\\' + key.name;
        if (key.removal != Key::Removal::Never) {
            m_removed.Add("Emptied", view, Root::User, {path, L"-"});
            return;
        }
        for (const Key& child : key.children) {
            RemoveForUser(view, path, child);
        }
    }

    void Close()
    {
        m_registry.Close();
        m_removed.Close();
    }

private:
    /// The installer takes "#" at the beginning for a type and brackets for a property.
    static std::wstring Value(const std::wstring& text)
    {
        std::wstring value = text;
        for (std::size_t at; (at = value.find(Folder)) != std::wstring::npos;) {
            value.replace(at, std::size(Folder) - 1, InstalledFolder);
        }
        if (text.find_first_of(L"[]#") != std::wstring::npos) {
            throw std::runtime_error("a value of the scripts would have to be escaped");
        }
        return value;
    }

    Table m_registry;
    Table m_removed;
};

} // namespace

int main(int count, char** arguments)
{
    try {
        if (count != 2) {
            throw std::runtime_error("usage: RegistrationRows FOLDER");
        }
        std::vector<RegistrationPart> parts;
        if (FAILED(ReadRegistration(Folder + std::wstring(L"\\MorvanePortRouter.exe"), parts))) {
            throw std::runtime_error("the scripts cannot be read");
        }
        Rows rows(arguments[1]);
        for (const RegistrationPart& part : parts) {
            for (const Key& key : part.keys) {
                rows.Add(part.view, L"Software\\Classes", key);
                rows.RemoveForUser(part.view, L"Software\\Classes", key);
            }
        }
        rows.Close();
        return 0;
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "RegistrationRows: %s\n", fault.what());
        return 1;
    }
}
