// Runs each target once over each file of its corpus: the test of the corpus, without a fuzzer.
//
//   fuzz_replay CORPUS    a folder with one folder for each target
//
// A target without a file and a folder without a target are errors, too.
#include "tests/fuzz/Target.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::size_t Replay(const fuzz::Target& target, const fs::path& folder)
{
    std::size_t files = 0;
    std::error_code missing;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, missing)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> read{std::istreambuf_iterator<char>(file), {}};
        const auto exact = std::make_unique<std::uint8_t[]>(read.size());
        std::ranges::copy(read, exact.get());
        // Seen only when the run fails: the file to look at.
        std::fprintf(stderr, "%s\n", entry.path().c_str());
        target.run({exact.get(), read.size()});
        ++files;
    }
    return files;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fprintf(stderr, "usage: fuzz_replay CORPUS\n");
        return 2;
    }
    const fs::path corpus = arguments[1];
    int faults = 0;
    for (const fuzz::Target& target : fuzz::Targets()) {
        const std::size_t files = Replay(target, corpus / target.name);
        std::printf("%.*s: %zu files\n", static_cast<int>(target.name.size()), target.name.data(), files);
        faults += files == 0 ? 1 : 0;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(corpus)) {
        if (fuzz::FindTarget(entry.path().filename().string()) == nullptr) {
            std::printf("%s belongs to no target\n", entry.path().c_str());
            ++faults;
        }
    }
    return faults == 0 ? 0 : 1;
}
