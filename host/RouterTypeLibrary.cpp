#include "host/RouterTypeLibrary.h"

#include "win32/ModulePath.h"

#include <MorvanePortRouter.h>
#include <oleauto.h>

namespace {

HRESULT LoadOwnLibrary(ComPointer<ITypeLib>& library)
{
    const std::optional<std::wstring> path = win32::ModulePath();
    if (!path) {
        return HRESULT_FROM_WIN32(::GetLastError());
    }
    ITypeLib* loaded = nullptr;
    const HRESULT result = ::LoadTypeLibEx(path->c_str(), REGKIND_NONE, &loaded);
    library.reset(loaded);
    return result;
}

} // namespace

HRESULT LoadRouterTypeInfo(ComPointer<ITypeInfo>& info)
{
    ComPointer<ITypeLib> library;
    HRESULT result = LoadOwnLibrary(library);
    if (FAILED(result)) {
        return result;
    }
    ITypeInfo* found = nullptr;
    result = library->GetTypeInfoOfGuid(__uuidof(IMorvaneUSBRouter), &found);
    info.reset(found);
    return result;
}
