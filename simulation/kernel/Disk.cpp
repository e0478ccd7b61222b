#include "simulation/kernel/Disk.h"

#include "simulation/kernel/Call.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

#include <algorithm>
#include <cwctype>
#include <utility>

using namespace sim;

namespace {

Disk& TheDisk()
{
    return *TheWorld().disk;
}

std::wstring KeyOf(std::wstring_view path)
{
    std::wstring key(path);
    std::ranges::transform(key, key.begin(), [](wchar_t c) {
        return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
    });
    return key;
}

/// With its backslash.
std::wstring FolderOf(const std::wstring& key)
{
    return key.substr(0, key.rfind(L'\\') + 1);
}

/// The rights that another one has to share: reading and writing.
DWORD NeededShare(DWORD access)
{
    return ((access & GENERIC_READ) != 0 ? FILE_SHARE_READ : 0) |
           ((access & GENERIC_WRITE) != 0 ? FILE_SHARE_WRITE : 0);
}

// "Creating and Opening Files": tested both ways, in whatever order they were opened.
bool MayShare(const DiskFile& file, DWORD access, DWORD share)
{
    return std::ranges::none_of(file.handles, [=](const OpenFile* other) {
        return (NeededShare(access) & ~other->share) != 0 || (NeededShare(other->access) & ~share) != 0;
    });
}

HANDLE RefuseOpen(DWORD error)
{
    Call::Refuse(error);
    if (TheDisk().watch != nullptr) {
        TheDisk().watch->OnOpenRefused();
    }
    return INVALID_HANDLE_VALUE;
}

OpenFile& FileOf(HANDLE handle)
{
    return static_cast<OpenFile&>(ObjectOf(handle, Object::Kind::File));
}

} // namespace

void sim::WatchDisk(IDiskWatch* watch)
{
    TheDisk().watch = watch;
}

std::string sim::BytesOf(const std::wstring& path)
{
    const auto found = TheDisk().files.find(KeyOf(path));
    return found != TheDisk().files.end() ? found->second->bytes : std::string();
}

HANDLE sim::OpenOnDisk(Call& call, const wchar_t* path, DWORD access, DWORD share, DWORD disposition)
{
    Disk& disk = TheDisk();
    const std::wstring key = KeyOf(path);
    if (!disk.folders.contains(FolderOf(key))) {
        return RefuseOpen(ERROR_PATH_NOT_FOUND);
    }
    std::shared_ptr<DiskFile> file = disk.files.contains(key) ? disk.files[key] : nullptr;
    const bool exists = file != nullptr;
    if (!exists && disposition == OPEN_EXISTING) {
        return RefuseOpen(ERROR_FILE_NOT_FOUND);
    }
    if (const DWORD error = call.Injected({ERROR_SHARING_VIOLATION, ERROR_ACCESS_DENIED, ERROR_DISK_FULL});
        error != 0)
    {
        return RefuseOpen(error);
    }
    if (exists && !MayShare(*file, access, share)) {
        return RefuseOpen(ERROR_SHARING_VIOLATION);
    }
    if (!exists) {
        file = disk.files[key] = std::make_shared<DiskFile>();
    } else if (disposition == CREATE_ALWAYS) {
        file->bytes.clear();
    }
    const HANDLE handle = AddHandle(Ref<Object>(new OpenFile(std::move(file), access, share)));
    Call::Refuse(exists && disposition != OPEN_EXISTING ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    Point("CreateFileW done");
    return handle;
}

BOOL sim::WriteToDisk(Call& call, OpenFile& file, std::string_view text, DWORD* written)
{
    if ((file.access & GENERIC_WRITE) == 0) {
        return Call::Refuse(ERROR_ACCESS_DENIED);
    }
    const DWORD error = call.Injected({ERROR_DISK_FULL, ERROR_GEN_FAILURE, ERROR_NOT_ENOUGH_MEMORY});
    // A part of it may have been written to a disk that is full now.
    const std::size_t count = error == 0 ? text.size() : error == ERROR_DISK_FULL ? Random(text.size()) : 0;
    std::string& bytes = file.file->bytes;
    bytes.resize(std::max(bytes.size(), file.position + count));
    std::ranges::copy(text.substr(0, count), bytes.begin() + static_cast<std::ptrdiff_t>(file.position));
    file.position += count;
    *written = static_cast<DWORD>(error == 0 ? count : 0);
    if (TheDisk().watch != nullptr) {
        TheDisk().watch->OnWrite(text, count, bytes.size());
    }
    const BOOL done = error == 0 ? TRUE : Call::Refuse(error);
    Point("WriteFile done");
    return done;
}

BOOL CreateDirectoryW(const wchar_t* path, SECURITY_ATTRIBUTES* /*security*/)
{
    Call call("CreateDirectoryW");
    const std::wstring key = KeyOf(path);
    if (!TheDisk().folders.contains(FolderOf(key))) {
        return Call::Refuse(ERROR_PATH_NOT_FOUND);
    }
    if (call.Fails({ERROR_ACCESS_DENIED, ERROR_DISK_FULL})) {
        return FALSE;
    }
    return TheDisk().folders.insert(key + L'\\').second ? TRUE : Call::Refuse(ERROR_ALREADY_EXISTS);
}

BOOL MoveFileExW(const wchar_t* from, const wchar_t* to, DWORD flags)
{
    Call call("MoveFileExW");
    if (flags != MOVEFILE_REPLACE_EXISTING) {
        Fault("a file is moved in a way that is not known here");
    }
    auto& files = TheDisk().files;
    const auto source = files.find(KeyOf(from));
    if (source == files.end()) {
        return Call::Refuse(ERROR_FILE_NOT_FOUND);
    }
    if (call.Fails({ERROR_SHARING_VIOLATION, ERROR_ACCESS_DENIED})) {
        return FALSE;
    }
    // No handle here shares the right to delete, which moving and replacing need.
    const auto target = files.find(KeyOf(to));
    if (!source->second->handles.empty() || (target != files.end() && !target->second->handles.empty())) {
        return Call::Refuse(ERROR_SHARING_VIOLATION);
    }
    files[KeyOf(to)] = std::exchange(source->second, nullptr);
    files.erase(source);
    Point("MoveFileExW done");
    return TRUE;
}

BOOL DeleteFileW(const wchar_t* path)
{
    Call call("DeleteFileW");
    const auto file = TheDisk().files.find(KeyOf(path));
    if (file == TheDisk().files.end()) {
        return Call::Refuse(ERROR_FILE_NOT_FOUND);
    }
    if (!file->second->handles.empty()) {
        return Call::Refuse(ERROR_SHARING_VIOLATION);
    }
    TheDisk().files.erase(file);
    return TRUE;
}

DWORD SetFilePointer(HANDLE handle, LONG distance, LONG* high, DWORD from)
{
    Call call("SetFilePointer");
    if (distance != 0 || high != nullptr || from != FILE_END) {
        Fault("a file's pointer is set in a way that is not known here");
    }
    if (IsNoHandle(handle)) {
        call.Refuse(ERROR_INVALID_HANDLE);
        return INVALID_SET_FILE_POINTER;
    }
    OpenFile& file = FileOf(handle);
    file.position = file.file->bytes.size();
    return static_cast<DWORD>(file.position);
}

DWORD GetFileSize(HANDLE handle, DWORD* /*high*/)
{
    Call call("GetFileSize");
    if (IsNoHandle(handle)) {
        call.Refuse(ERROR_INVALID_HANDLE);
        return INVALID_FILE_SIZE;
    }
    return static_cast<DWORD>(FileOf(handle).file->bytes.size());
}
