#include "win32/OwnUserSecurity.h"

#include "win32/Handle.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace {

std::string TextOf(PSID sid)
{
    char* text = nullptr;
    EXPECT_TRUE(::ConvertSidToStringSidA(sid, &text));
    std::string copy = text != nullptr ? text : "";
    ::LocalFree(text);
    return copy;
}

std::string OwnUser()
{
    HANDLE token = nullptr;
    EXPECT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
    const win32::KernelHandle owner(token);
    std::vector<std::byte> user(1024);
    DWORD length = 0;
    EXPECT_TRUE(::GetTokenInformation(token, TokenUser, user.data(), static_cast<DWORD>(user.size()), &length));
    return TextOf(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid);
}

/// The users that a DACL lets in; each entry must allow `access`.
std::set<std::string> AllowedBy(PACL list, ACCESS_MASK access)
{
    std::set<std::string> users;
    for (DWORD index = 0; list != nullptr && index < list->AceCount; ++index) {
        void* entry = nullptr;
        EXPECT_TRUE(::GetAce(list, index, &entry));
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        EXPECT_EQ(allowed->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
        EXPECT_EQ(allowed->Mask & access, access);
        users.insert(TextOf(&allowed->SidStart));
    }
    return users;
}

const char* const System = "S-1-5-18";
const char* const Administrators = "S-1-5-32-544";

TEST(OwnUserSecurity, LetsInTheUserSystemAndAdministratorsOnly)
{
    win32::OwnUserSecurity security;
    ASSERT_TRUE(security) << security.Error();
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL list = nullptr;
    ASSERT_TRUE(
        ::GetSecurityDescriptorDacl(security.Attributes()->lpSecurityDescriptor, &present, &list, &defaulted));
    ASSERT_TRUE(present);
    EXPECT_EQ(AllowedBy(list, FILE_ALL_ACCESS), (std::set<std::string>{OwnUser(), System, Administrators}));
}

TEST(OwnUserSecurity, InheritsNothing)
{
    win32::OwnUserSecurity security;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    ASSERT_TRUE(::GetSecurityDescriptorControl(security.Attributes()->lpSecurityDescriptor, &control, &revision));
    EXPECT_NE(control & SE_DACL_PROTECTED, 0);
}

TEST(OwnUserSecurity, APipeCreatedWithItHasItsEntries)
{
    win32::OwnUserSecurity security;
    const win32::FileHandle pipe(::CreateNamedPipeA("\\\\.\\pipe\\OwnUserSecurityTest", PIPE_ACCESS_DUPLEX, 0,
                                                    PIPE_UNLIMITED_INSTANCES, 64, 64, 0, security.Attributes()));
    ASSERT_TRUE(pipe);
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_EQ(::GetSecurityInfo(pipe.Get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list,
                                nullptr, &descriptor),
              static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(AllowedBy(list, FILE_ALL_ACCESS), (std::set<std::string>{OwnUser(), System, Administrators}));
    ::LocalFree(descriptor);
}

} // namespace
