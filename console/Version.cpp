#include "console/Version.h"

#include <Version.h>

std::string console::VersionLine(std::string_view program)
{
    return std::string(program) + " " MORVANE_VERSION_TEXT;
}
