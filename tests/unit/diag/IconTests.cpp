// The icons that stand in the program.
#include "diag/Resource.h"
#include "win32/Windows.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using Pixels = std::vector<std::uint32_t>; // alpha in the top byte

/// The image that the program has in that very size; empty when it has none of it.
Pixels ImageOf(UINT id, int size)
{
    const auto icon = static_cast<HICON>(
        ::LoadImageW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(id), IMAGE_ICON, size, size, 0));
    ICONINFO info{};
    if (icon == nullptr || !::GetIconInfo(icon, &info)) {
        return {};
    }
    BITMAP bitmap{};
    ::GetObjectW(info.hbmColor, sizeof bitmap, &bitmap);
    Pixels pixels(static_cast<std::size_t>(size) * static_cast<std::size_t>(size));
    BITMAPINFO layout{};
    layout.bmiHeader = {sizeof(BITMAPINFOHEADER), size, -size, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    const HDC screen = ::GetDC(nullptr);
    const int rows =
        ::GetDIBits(screen, info.hbmColor, 0, static_cast<UINT>(size), pixels.data(), &layout, DIB_RGB_COLORS);
    ::ReleaseDC(nullptr, screen);
    ::DeleteObject(info.hbmColor);
    ::DeleteObject(info.hbmMask);
    ::DestroyIcon(icon);
    return rows == size && bitmap.bmWidth == size ? pixels : Pixels{};
}

bool IsOpaque(std::uint32_t pixel)
{
    return (pixel >> 24) > 127;
}

int CountOpaque(const Pixels& pixels)
{
    int count = 0;
    for (const std::uint32_t pixel : pixels) {
        count += IsOpaque(pixel) ? 1 : 0;
    }
    return count;
}

/// Pixels whose colour differs clearly.
int Difference(const Pixels& a, const Pixels& b)
{
    int count = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const int green = static_cast<int>(a[i] >> 8 & 0xFF) - static_cast<int>(b[i] >> 8 & 0xFF);
        count += green > 60 || green < -60 ? 1 : 0;
    }
    return count;
}

class IconTest : public testing::TestWithParam<int>
{};

INSTANTIATE_TEST_SUITE_P(AtEachSize, IconTest, testing::Values(16, 20, 24, 32));

TEST_P(IconTest, FramesDifferEnoughToReadAsMotionButHaveOneOutline)
{
    const int size = GetParam();
    const Pixels frames[] = {ImageOf(IDI_CONNECTED_1, size), ImageOf(IDI_CONNECTED_2, size),
                             ImageOf(IDI_CONNECTED_3, size)};
    for (int i = 0; i < 3; ++i) {
        const Pixels& one = frames[i];
        const Pixels& next = frames[(i + 1) % 3];
        ASSERT_FALSE(one.empty());
        EXPECT_GT(Difference(one, next), size * size / 16);
        EXPECT_EQ(CountOpaque(one), CountOpaque(next));
    }
}

TEST_P(IconTest, DisconnectedDiffersInShapeAndNotOnlyInColour)
{
    const int size = GetParam();
    const Pixels connected = ImageOf(IDI_CONNECTED_1, size);
    const Pixels disconnected = ImageOf(IDI_DISCONNECTED, size);
    ASSERT_FALSE(disconnected.empty());
    int different = 0;
    for (std::size_t i = 0; i < connected.size(); ++i) {
        different += IsOpaque(connected[i]) != IsOpaque(disconnected[i]) ? 1 : 0;
    }
    EXPECT_GT(different, size * size / 8);
}

} // namespace
