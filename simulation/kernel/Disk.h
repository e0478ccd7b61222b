// The files of the simulated machine, as far as the log needs them: whole in memory, opened with sharing.
#pragma once

#include "simulation/kernel/Objects.h"

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct OpenFile;

struct DiskFile
{
    std::string bytes;
    std::vector<OpenFile*> handles; // that are open
};

/// Hears what happens to files, for the account. From inside the calls.
class IDiskWatch
{
public:
    /// The first `written` bytes of `text` stand in the file now, which has `size` bytes.
    virtual void OnWrite(std::string_view text, std::size_t written, std::size_t size) = 0;
    virtual void OnOpenRefused() = 0;

protected:
    ~IDiskWatch() = default;
};

/// By whole path in small letters.
struct Disk
{
    std::set<std::wstring> folders{L"c:\\", L"c:\\router\\"};
    std::map<std::wstring, std::shared_ptr<DiskFile>> files;
    IDiskWatch* watch = nullptr;
};

struct OpenFile final : Object
{
    OpenFile(std::shared_ptr<DiskFile> opened, DWORD wanted, DWORD shared)
        : Object(Kind::File), file(std::move(opened)), access(wanted), share(shared)
    {
        file->handles.push_back(this);
    }
    void OnClosed() override { std::erase(file->handles, this); }

    const std::shared_ptr<DiskFile> file;
    const DWORD access, share;
    std::size_t position = 0;
};

void WatchDisk(IDiskWatch* watch);
/// What a file holds; empty when there is none.
std::string BytesOf(const std::wstring& path);

class Call;
/// CreateFile on what is no pipe.
HANDLE OpenOnDisk(Call& call, const wchar_t* path, DWORD access, DWORD share, DWORD disposition);
BOOL WriteToDisk(Call& call, OpenFile& file, std::string_view text, DWORD* written);

} // namespace sim
