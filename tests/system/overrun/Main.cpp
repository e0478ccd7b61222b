// Writes beyond the end of an array on its stack, compiled as the product's programs are. Prints "survived" when
// nothing ended it.
#include "win32/Windows.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// Not inlined, so that the compiler knows nothing of the array's size.
[[gnu::noinline]] int Fill(char* target, std::size_t length)
{
    std::memset(target, 'x', length);
    return target[0];
}

[[gnu::noinline]] int Overrun(std::size_t length)
{
    char text[16] = {};
    return Fill(text, length);
}

} // namespace

/// `length` bytes go into an array of 16.
int main(int count, char** words)
{
    if (count != 2) {
        return 2;
    }
    // A crash ends the program with its code at once, without a debugger that is started first.
    ::SetUnhandledExceptionFilter([](EXCEPTION_POINTERS*) -> LONG { return EXCEPTION_EXECUTE_HANDLER; });
    const int first = Overrun(std::strtoul(words[1], nullptr, 10));
    std::printf("survived %c\n", first);
    return 0;
}
