// The library's errors: what a call returns, and what it says about them.
#pragma once

#include "client/morvane_client.h"

#include "win32/Windows.h"

namespace clientlib {

/// A MORVANE_E_... code and its Windows error or HRESULT, 0 when there is none.
struct Result
{
    int code = MORVANE_OK;
    DWORD windowsError = ERROR_SUCCESS;

    bool IsOk() const noexcept { return code == MORVANE_OK; }
};

/// Static texts; the second is one sentence for people.
const char* NameOf(int code) noexcept;
const char* TextOf(int code) noexcept;

} // namespace clientlib
