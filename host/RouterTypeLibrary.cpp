#include "host/RouterTypeLibrary.h"

#include <MorvanePortRouter.h>
#include <oleauto.h>

namespace {

struct LibraryName
{
    GUID id;
    WORD major;
    WORD minor;
    LCID language;
    SYSKIND system;
};

HRESULT NameOf(ITypeLib& library, LibraryName& name)
{
    TLIBATTR* attributes = nullptr;
    const HRESULT result = library.GetLibAttr(&attributes);
    if (SUCCEEDED(result)) {
        name = {attributes->guid, attributes->wMajorVerNum, attributes->wMinorVerNum, attributes->lcid,
                attributes->syskind};
        library.ReleaseTLibAttr(attributes);
    }
    return result;
}

} // namespace

std::wstring RouterModulePath()
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(2 * path.size());
    }
}

std::wstring FolderWithoutBackslash(const std::wstring& path)
{
    return path.substr(0, path.rfind(L'\\'));
}

HRESULT LoadRouterTypeLibrary(ComPointer<ITypeLib>& library)
{
    ITypeLib* loaded = nullptr;
    const HRESULT result = ::LoadTypeLibEx(RouterModulePath().c_str(), REGKIND_NONE, &loaded);
    library.reset(loaded);
    return result;
}

HRESULT LoadRouterTypeInfo(ComPointer<ITypeInfo>& info)
{
    ComPointer<ITypeLib> library;
    HRESULT result = LoadRouterTypeLibrary(library);
    if (FAILED(result)) {
        return result;
    }
    ITypeInfo* found = nullptr;
    result = library->GetTypeInfoOfGuid(__uuidof(IMorvaneUSBRouter), &found);
    info.reset(found);
    return result;
}

HRESULT RegisterRouterTypeLibrary()
{
    ComPointer<ITypeLib> library;
    const HRESULT result = LoadRouterTypeLibrary(library);
    if (FAILED(result)) {
        return result;
    }
    std::wstring path = RouterModulePath();
    std::wstring folder = FolderWithoutBackslash(path);
    return ::RegisterTypeLib(library.get(), path.data(), folder.data());
}

HRESULT UnregisterRouterTypeLibrary()
{
    ComPointer<ITypeLib> library;
    LibraryName name{};
    HRESULT result = LoadRouterTypeLibrary(library);
    if (SUCCEEDED(result)) {
        result = NameOf(*library, name);
    }
    if (FAILED(result)) {
        return result;
    }
    return ::UnRegisterTypeLib(name.id, name.major, name.minor, name.language, name.system);
}
