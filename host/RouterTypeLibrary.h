// The type library that lies in this program's resources.
#pragma once

#include "host/ComPointer.h"
#include "win32/Windows.h"

#include <oaidl.h>
#include <string>

/// Full path of this program's file, however long.
std::wstring RouterModulePath();

/// The folder that `path` lies in.
std::wstring FolderWithoutBackslash(const std::wstring& path);

HRESULT LoadRouterTypeLibrary(ComPointer<ITypeLib>& library);

/// The description of IMorvaneUSBRouter that IDispatch works by.
HRESULT LoadRouterTypeInfo(ComPointer<ITypeInfo>& info);

/// Registers the library for all users.
HRESULT RegisterRouterTypeLibrary();

/// A failure when the library is not registered, or only in part.
HRESULT UnregisterRouterTypeLibrary();
