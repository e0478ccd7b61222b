#include "tests/system/install/PackageTables.h"

#include "win32/Windows.h"

#include <msi.h>
#include <msiquery.h>
#include <stdexcept>

namespace {

class MsiObject
{
public:
    MsiObject() = default;
    ~MsiObject() { ::MsiCloseHandle(m_handle); }
    MsiObject(const MsiObject&) = delete;
    MsiObject& operator=(const MsiObject&) = delete;

    MSIHANDLE Get() const noexcept { return m_handle; }
    MSIHANDLE* Receive()
    {
        ::MsiCloseHandle(m_handle);
        m_handle = 0;
        return &m_handle;
    }

private:
    MSIHANDLE m_handle = 0;
};

std::wstring Text(const MsiObject& record, UINT field)
{
    std::vector<wchar_t> text(4096);
    auto length = static_cast<DWORD>(text.size());
    // Of a stream no text can be had.
    return ::MsiRecordGetStringW(record.Get(), field, text.data(), &length) == ERROR_SUCCESS ? text.data() : L"";
}

PackageTable ReadTable(const MsiObject& database, const std::wstring& name)
{
    MsiObject view;
    MsiObject names;
    if (::MsiDatabaseOpenViewW(database.Get(), (L"SELECT * FROM `" + name + L"`").c_str(), view.Receive()) !=
            ERROR_SUCCESS ||
        ::MsiViewExecute(view.Get(), 0) != ERROR_SUCCESS ||
        ::MsiViewGetColumnInfo(view.Get(), MSICOLINFO_NAMES, names.Receive()) != ERROR_SUCCESS)
    {
        throw std::runtime_error("a table cannot be read");
    }
    PackageTable table;
    for (MsiObject record; ::MsiViewFetch(view.Get(), record.Receive()) == ERROR_SUCCESS;) {
        PackageRow& row = table.emplace_back();
        for (UINT column = 1; column <= ::MsiRecordGetFieldCount(names.Get()); ++column) {
            row[Text(names, column)] = Text(record, column);
        }
    }
    return table;
}

} // namespace

std::map<std::wstring, PackageTable> ReadTables(const std::filesystem::path& package)
{
    MsiObject database;
    if (::MsiOpenDatabaseW(package.c_str(), MSIDBOPEN_READONLY, database.Receive()) != ERROR_SUCCESS) {
        throw std::runtime_error("the package cannot be opened");
    }
    std::map<std::wstring, PackageTable> tables;
    for (const PackageRow& row : ReadTable(database, L"_Tables")) {
        tables[row.at(L"Name")] = ReadTable(database, row.at(L"Name"));
    }
    return tables;
}

PackageRow Find(const PackageTable& table, const std::wstring& name, const std::wstring& value)
{
    for (const PackageRow& row : table) {
        if (row.at(name) == value) {
            return row;
        }
    }
    return {};
}
