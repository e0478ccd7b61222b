// The entry of clang's fuzzer, which brings its own main. The environment variable MORVANE_FUZZ_TARGET names the
// target; without it the program lists the targets and ends.
#include "tests/fuzz/Target.h"

#include <cstdio>
#include <cstdlib>

namespace {

const fuzz::Target* g_target = nullptr; // set once, before the first run

}

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/);
extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/)
{
    const char* const name = std::getenv("MORVANE_FUZZ_TARGET");
    if (name == nullptr) {
        for (const fuzz::Target& target : fuzz::Targets()) {
            std::printf("%.*s\n", static_cast<int>(target.name.size()), target.name.data());
        }
        std::exit(0);
    }
    g_target = fuzz::FindTarget(name);
    if (g_target == nullptr) {
        std::fprintf(stderr, "no fuzz target is called %s\n", name);
        std::exit(2);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    g_target->run({data, size});
    return 0;
}
