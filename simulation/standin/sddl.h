// Stand-in for <sddl.h>.
#pragma once

#include "simulation/standin/types.h"

#define SDDL_REVISION_1 1

BOOL ConvertSidToStringSidA(PSID sid, char** text);
BOOL ConvertStringSecurityDescriptorToSecurityDescriptorA(const char* text, DWORD revision, void** descriptor,
                                                          ULONG* size);
