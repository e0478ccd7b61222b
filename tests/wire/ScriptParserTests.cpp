// Registration scripts as keys; tests/unit/host/RegistrarScriptTests.cpp has what becomes of them in the registry.
#include "host/ScriptParser.h"

#include <gtest/gtest.h>

namespace {

/// A script whose keys lie in so many blocks.
std::wstring Nested(std::size_t levels)
{
    std::wstring text = L"HKCR { ";
    for (std::size_t level = 1; level < levels; ++level) {
        text += L"Key { ";
    }
    for (std::size_t level = 0; level < levels; ++level) {
        text += L"} ";
    }
    return text;
}

TEST(ScriptParser, ReadsBlocksUpToTheDeepestLevel)
{
    const auto keys = ParseScript(Nested(MostScriptLevels), {});
    ASSERT_TRUE(keys);
    std::size_t depth = 0;
    for (const auto* level = &*keys; !level->empty(); level = &level->front().children) {
        ++depth;
    }
    EXPECT_EQ(depth, MostScriptLevels - 1);
}

TEST(ScriptParser, RefusesABlockBeyondTheDeepestLevel)
{
    EXPECT_FALSE(ParseScript(Nested(MostScriptLevels + 1), {}));
}

TEST(ScriptParser, RefusesBlocksThatWouldFillTheStack)
{
    EXPECT_FALSE(ParseScript(Nested(1'000'000), {}));
}

TEST(ScriptParser, CountsOpenBlocksOnly)
{
    std::wstring text = L"HKCR { ";
    for (int key = 0; key < 100; ++key) {
        text += L"Key { } ";
    }
    const auto keys = ParseScript(text + L"}", {});
    ASSERT_TRUE(keys);
    EXPECT_EQ(keys->size(), 100u);
}

} // namespace
