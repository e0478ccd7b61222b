// What the built program tells Windows about its windows.
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Manifest()
{
    const HMODULE program = ::LoadLibraryExW((support::ProgramFolder() / L"MorvanePortRouter.exe").c_str(),
                                             nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
    const HRSRC resource = ::FindResourceW(program, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24)); // RT_MANIFEST
    const HGLOBAL data = ::LoadResource(program, resource);
    const std::string text(static_cast<const char*>(::LockResource(data)), ::SizeofResource(program, resource));
    ::FreeLibrary(program);
    return text;
}

/// The text of the element of that name; "none" when there is none.
std::string Setting(const std::string& name)
{
    const std::string manifest = Manifest();
    const std::size_t element = manifest.find("<" + name + " ");
    const std::size_t begin = manifest.find('>', element) + 1;
    return element == std::string::npos ? "none" : manifest.substr(begin, manifest.find('<', begin) - begin);
}

TEST(Manifest, LetsWindowsScaleTheWindows)
{
    EXPECT_EQ(Setting("dpiAware"), "false");
    EXPECT_EQ(Setting("gdiScaling"), "true");
    EXPECT_EQ(Setting("dpiAwareness"), "none") << "it would take precedence";
}

} // namespace
