// The tracer's debug window, which Windows always refuses here.
#include "diag/CDebugWindow.h"

void CDebugWindow::Create()
{
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
}

void CDebugWindow::Destroy() noexcept {}

void CDebugWindow::ServeSoon(bool /*on*/) noexcept {}

int DebugList::AddLine(std::string_view /*text*/, bool /*scroll*/)
{
    return -1;
}

void DebugList::ScrollTo(int /*index*/) noexcept {}

void DebugList::Clear() noexcept {}
