#include "host/RouterTypeLibrary.h"

#include <gtest/gtest.h>

namespace {

WORD FlagsOf(ITypeInfo& info)
{
    TYPEATTR* attributes = nullptr;
    if (FAILED(info.GetTypeAttr(&attributes))) {
        return 0;
    }
    const WORD flags = attributes->wTypeFlags;
    info.ReleaseTypeAttr(attributes);
    return flags;
}

// The marshaler of the type library takes the interface only with this flag. It stands in the library once, for both
// views of a dual interface; Wine's GetTypeAttr leaves it out of the view of IDispatch, so the other one is asked.
TEST(RouterTypeLibrary, InterfaceIsMarkedForOleAutomation)
{
    ComPointer<ITypeInfo> dispatchView;
    ASSERT_EQ(LoadRouterTypeInfo(dispatchView), S_OK);
    HREFTYPE reference = 0;
    ASSERT_EQ(dispatchView->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference), S_OK);
    ITypeInfo* found = nullptr;
    ASSERT_EQ(dispatchView->GetRefTypeInfo(reference, &found), S_OK);
    const ComPointer<ITypeInfo> methodView(found);
    constexpr WORD Expected = TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE;
    EXPECT_EQ(FlagsOf(*methodView) & Expected, Expected);
    EXPECT_NE(FlagsOf(*dispatchView) & TYPEFLAG_FDUAL, 0);
}

} // namespace
