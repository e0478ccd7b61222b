// An owner of one reference to a COM object.
#pragma once

#include <memory>

struct ComRelease
{
    template <class Interface>
    void operator()(Interface* object) const noexcept
    {
        object->Release();
    }
};

/// Takes over a reference that the caller holds.
template <class Interface>
using ComPointer = std::unique_ptr<Interface, ComRelease>;
