// Stand-in for <process.h>.
#pragma once

#include <cstdint>

std::uintptr_t _beginthreadex(void* security, unsigned stack, unsigned (*body)(void*), void* argument,
                              unsigned flags, unsigned* id);
