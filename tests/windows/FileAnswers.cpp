// Files, as the log uses them.
#include "tests/support/UniqueName.h"
#include "tests/windows/Answers.h"
#include "win32/ModulePath.h"

#include <string>

namespace windowscheck {

namespace {

constexpr const char* OpenPage = "CreateFileW function";
constexpr const char* SharingPage = "Creating and Opening Files";
constexpr const char* MovePage = "MoveFileExW function";

std::wstring ProgramFolder()
{
    return win32::FolderOf(win32::ModulePath().value_or(std::wstring()));
}

/// Two paths beside the program; what stands there in the end is removed.
struct Paths
{
    Paths() = default;
    ~Paths()
    {
        ::DeleteFileW(first.c_str());
        ::DeleteFileW(second.c_str());
    }
    Paths(const Paths&) = delete;
    Paths& operator=(const Paths&) = delete;

    const std::wstring first = ProgramFolder() + support::UniqueName(L"Answers");
    const std::wstring second = first + L".BAK";
};

/// As the log is opened, unless told otherwise.
win32::FileHandle Open(const std::wstring& path, DWORD disposition, DWORD access = GENERIC_READ | GENERIC_WRITE,
                       DWORD share = FILE_SHARE_READ)
{
    return win32::FileHandle(
        ::CreateFileW(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

std::string Opened(const win32::FileHandle& file)
{
    return Done(file ? TRUE : FALSE);
}

void Write(const win32::FileHandle& file, const std::string& text)
{
    DWORD count = 0;
    ::WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &count, nullptr);
}

std::string SizeOf(const win32::FileHandle& file)
{
    return Bytes(::GetFileSize(file.Get(), nullptr));
}

std::string OpenOfAMissingFile()
{
    const Paths paths;
    return Opened(Open(paths.first, OPEN_EXISTING));
}

std::string OpenInAMissingFolder()
{
    const Paths paths;
    return Opened(Open(paths.first + L"\\log", CREATE_ALWAYS));
}

/// How often it was there already: opened twice with `disposition`, 5 bytes in between.
std::string OpenTwice(DWORD disposition)
{
    const Paths paths;
    std::string answers;
    for (int time = 0; time < 2; ++time) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        const win32::FileHandle file = Open(paths.first, disposition);
        answers += Error(::GetLastError()) + ", " + SizeOf(file) + (time == 0 ? "; " : "");
        Write(file, "12345");
    }
    return answers;
}

std::string OpenAlways()
{
    return OpenTwice(OPEN_ALWAYS);
}

std::string CreateAlways()
{
    return OpenTwice(CREATE_ALWAYS);
}

std::string AppendedTo()
{
    const Paths paths;
    Write(Open(paths.first, CREATE_ALWAYS), "12345");
    const win32::FileHandle file = Open(paths.first, OPEN_ALWAYS);
    ::SetFilePointer(file.Get(), 0, nullptr, FILE_END);
    Write(file, "678");
    return SizeOf(file);
}

std::string OpenForASecondWriter()
{
    const Paths paths;
    const win32::FileHandle file = Open(paths.first, CREATE_ALWAYS);
    return Opened(Open(paths.first, OPEN_ALWAYS));
}

std::string OpenForAReader()
{
    const Paths paths;
    const win32::FileHandle file = Open(paths.first, CREATE_ALWAYS);
    return Opened(Open(paths.first, OPEN_EXISTING, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE));
}

std::string OpenForAReaderWhoSharesNoWriting()
{
    const Paths paths;
    const win32::FileHandle file = Open(paths.first, CREATE_ALWAYS);
    return Opened(Open(paths.first, OPEN_EXISTING, GENERIC_READ, FILE_SHARE_READ));
}

std::string Move(const Paths& paths)
{
    return Done(::MoveFileExW(paths.first.c_str(), paths.second.c_str(), MOVEFILE_REPLACE_EXISTING));
}

std::string MoveOntoAnother()
{
    const Paths paths;
    Write(Open(paths.first, CREATE_ALWAYS), "12345");
    Write(Open(paths.second, CREATE_ALWAYS), "678");
    std::string answers = Move(paths);
    answers += ", " + Opened(Open(paths.first, OPEN_EXISTING));
    return answers + ", " + SizeOf(Open(paths.second, OPEN_EXISTING));
}

std::string MoveOfAnOpenOne()
{
    const Paths paths;
    const win32::FileHandle file = Open(paths.first, CREATE_ALWAYS);
    return Move(paths);
}

std::string MoveOntoAnOpenOne()
{
    const Paths paths;
    Open(paths.first, CREATE_ALWAYS);
    const win32::FileHandle file = Open(paths.second, CREATE_ALWAYS);
    return Move(paths) == "done" ? "done" : "refused"; // with error 5 or 32
}

std::string SizeOfNoHandle()
{
    const DWORD size = ::GetFileSize(nullptr, nullptr);
    return size == INVALID_FILE_SIZE ? Error(::GetLastError()) : Bytes(size);
}

std::string FolderThatIsThere()
{
    const std::wstring folder = ProgramFolder();
    return Done(::CreateDirectoryW(folder.substr(0, folder.size() - 1).c_str(), nullptr));
}

std::string FolderInAMissingOne()
{
    const Paths paths;
    return Done(::CreateDirectoryW((paths.first + L"\\Log").c_str(), nullptr));
}

} // namespace

std::vector<Answer> FileAnswers()
{
    return {
        {"OpenOfAMissingFile", "CreateFile, no such file", "error 2", OpenPage, OpenOfAMissingFile},
        {"OpenInAMissingFolder", "CreateFile, no such folder", "error 3", OpenPage, OpenInAMissingFolder},
        {"OpenAlways", "CreateFile with OPEN_ALWAYS, a new file and one that is there",
         "error 0, 0 bytes; error 183, 5 bytes", OpenPage, OpenAlways},
        {"CreateAlways", "CreateFile with CREATE_ALWAYS, a new file and one that is there",
         "error 0, 0 bytes; error 183, 0 bytes", OpenPage, CreateAlways},
        {"AppendedTo", "WriteFile of 3 bytes after SetFilePointer, the file has 5", "8 bytes",
         "SetFilePointer function", AppendedTo},
        {"OpenForASecondWriter", "CreateFile to write, the writer shares reading", "error 32", SharingPage,
         OpenForASecondWriter},
        {"OpenForAReader", "CreateFile to read, sharing both, the writer shares reading", "done", SharingPage,
         OpenForAReader},
        {"OpenForAReaderWhoSharesNoWriting", "CreateFile to read, sharing reading, of what is written", "error 32",
         SharingPage, OpenForAReaderWhoSharesNoWriting},
        {"MoveOntoAnother", "MoveFileEx onto another file; then both are opened", "done, error 2, 5 bytes",
         MovePage, MoveOntoAnother},
        {"MoveOfAnOpenOne", "MoveFileEx of a file that is open", "error 32", SharingPage, MoveOfAnOpenOne},
        {"MoveOntoAnOpenOne", "MoveFileEx onto a file that is open", "refused", SharingPage, MoveOntoAnOpenOne},
        {"SizeOfNoHandle", "GetFileSize, no handle", "error 6", "GetFileSize function", SizeOfNoHandle},
        {"FolderThatIsThere", "CreateDirectory, it is there", "error 183", "CreateDirectoryW function",
         FolderThatIsThere},
        {"FolderInAMissingOne", "CreateDirectory, no parent", "error 3", "CreateDirectoryW function",
         FolderInAMissingOne},
    };
}

} // namespace windowscheck
