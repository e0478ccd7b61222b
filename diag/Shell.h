// The calls into Windows' shell that a test wants to see instead of the user.
#pragma once

#include "win32/Windows.h"

#include <shellapi.h>

struct Shell
{
    decltype(&::Shell_NotifyIconW) NotifyIcon = &::Shell_NotifyIconW;
    decltype(&::ShellExecuteW) Execute = &::ShellExecuteW;
};
