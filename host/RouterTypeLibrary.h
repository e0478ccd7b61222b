// The type library that lies in this program's resources.
#pragma once

#include "host/ComPointer.h"
#include "win32/Windows.h"

#include <oaidl.h>

/// The description of IMorvaneUSBRouter that IDispatch works by. Throws std::bad_alloc.
HRESULT LoadRouterTypeInfo(ComPointer<ITypeInfo>& info);
