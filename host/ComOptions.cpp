#include "host/ComOptions.h"

#include "host/ComPointer.h"

#include <objbase.h>

// In the library of identifiers, but in none of the compiler's headers.
extern "C" const CLSID CLSID_GlobalOptions;

// Rules and values: "IGlobalOptions interface" and "GLOBALOPT_RO_FLAGS enumeration".
HRESULT SetComOptions(IGlobalOptions& options) noexcept
{
    const HRESULT rundown = options.Set(COMGLB_RO_SETTINGS, COMGLB_FAST_RUNDOWN);
    const HRESULT faults = options.Set(COMGLB_EXCEPTION_HANDLING, COMGLB_EXCEPTION_DONOT_HANDLE_ANY);
    return FAILED(rundown) ? rundown : faults;
}

HRESULT SetComOptions() noexcept
{
    void* object = nullptr;
    const HRESULT created =
        ::CoCreateInstance(CLSID_GlobalOptions, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IGlobalOptions), &object);
    if (FAILED(created)) {
        return created;
    }
    const ComPointer<IGlobalOptions> options(static_cast<IGlobalOptions*>(object));
    return SetComOptions(*options);
}
