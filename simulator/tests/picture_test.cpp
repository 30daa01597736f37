// SPDX-License-Identifier: Apache-2.0
#include "chip/picture.h"
#include "bench.h"

#include <string>

namespace sim {
namespace {

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;
constexpr Bytes::value_type kText = 235;

struct Pixel {
    uint8_t y, u, v;
    bool operator==(const Pixel&) const = default;
};

struct Picture {
    explicit Picture(const Bench& bench, uint32_t number = 0, const PictureSettings& settings = {})
        : yuyv(kWidth * kHeight * 2)
    {
        bench.chip.picture(kWidth, kHeight, number, yuyv, settings);
    }

    Pixel at(uint32_t x, uint32_t y) const
    {
        const uint8_t* pair = &yuyv[(y * kWidth + (x & ~1U)) * 2];
        return {pair[x % 2 * 2], pair[1], pair[3]};
    }

    /// Pixels of this luma in one character cell.
    int count(uint32_t column, uint32_t row, uint8_t luma) const
    {
        int found = 0;
        for (uint32_t y = row * 16; y < row * 16 + 16; ++y) {
            for (uint32_t x = column * 16; x < column * 16 + 16; ++x)
                found += at(x, y).y == luma;
        }
        return found;
    }

    Bytes yuyv;
};

void command(Bench& bench, Bytes bytes)
{
    bytes.resize(18);
    ASSERT_EQ(bench.set(kOsd, bytes), 18);
}

} // namespace

TEST(Picture, FlipAndMirrorTurnItWithItsFrameNumber)
{
    Bench straight_bench("rowan-spi");
    const Picture straight(straight_bench, 0x8123ABCD);
    EXPECT_EQ(straight.at(60, 50), (Pixel{210, 16, 146})) << "the second bar is yellow";
    for (const bool flip : {false, true}) {
        for (const bool mirror : {false, true}) {
            SCOPED_TRACE(std::to_string(flip) + std::to_string(mirror));
            Bench bench("rowan-spi");
            bench.set(kFlip, {static_cast<uint8_t>(flip ? 0x02 : 0)});
            bench.set(kMirror, {static_cast<uint8_t>(mirror ? 0x01 : 0)});
            const Picture turned(bench, 0x8123ABCD);
            EXPECT_EQ(read_frame_number(kWidth, kHeight, turned.yuyv, flip, mirror), 0x8123ABCD);
            EXPECT_NE(read_frame_number(kWidth, kHeight, turned.yuyv, !flip, mirror), 0x8123ABCD);
            EXPECT_NE(read_frame_number(kWidth, kHeight, turned.yuyv, flip, !mirror), 0x8123ABCD);
            for (uint32_t y = 0; y < kHeight; ++y) {
                for (uint32_t x = 0; x < kWidth; ++x) {
                    const uint32_t from_x = mirror ? kWidth - 1 - x : x;
                    const uint32_t from_y = flip ? kHeight - 1 - y : y;
                    ASSERT_EQ(turned.at(x, y), straight.at(from_x, from_y)) << x << ' ' << y;
                }
            }
        }
    }
}

TEST(Picture, FollowsItsSettingsButForTheFrameNumber)
{
    Bench bench("rowan-spi");
    const struct {
        PictureSettings settings;
        Pixel yellow, grey; ///< what is (210, 16, 146), and (144, 128, 128)
    } cases[] = {
        {{}, {210, 16, 146}, {144, 128, 128}},
        {{.brightness = 0.5}, {235, 16, 146}, {194, 128, 128}},
        {{.brightness = -1}, {110, 16, 146}, {44, 128, 128}},
        {{.contrast = 1}, {235, 16, 146}, {160, 128, 128}},
        {{.contrast = -1}, {128, 16, 146}, {128, 128, 128}},
        {{.saturation = -1}, {210, 128, 128}, {144, 128, 128}},
        {{.saturation = -0.5}, {210, 72, 137}, {144, 128, 128}},
        {{.hue = 1}, {210, 240, 110}, {144, 128, 128}},
        {{.gain = -0.5}, {113, 16, 146}, {80, 128, 128}},
        {{.warmth = 1}, {210, 16, 186}, {144, 88, 168}},
        {{.exposure = 0.5}, {113, 16, 146}, {80, 128, 128}},
        {{.exposure = 1000}, {235, 16, 146}, {235, 128, 128}},
        {{.gamma = 0.5}, {188, 16, 146}, {91, 128, 128}},
        {{.is_covered = true}, {16, 128, 128}, {16, 128, 128}},
    };
    for (const auto& c : cases) {
        const Picture picture(bench, 0x8123ABCD, c.settings);
        EXPECT_EQ(picture.at(60, 50), c.yellow);
        EXPECT_EQ(picture.at(140, 200), c.grey);
        EXPECT_EQ(read_frame_number(kWidth, kHeight, picture.yuyv, false, false), 0x8123ABCD);
    }

    const Picture whole(bench);
    const Picture zoomed(bench, 0, {.zoom = 2});
    for (uint32_t y = 8; y < kHeight; y += 8) {
        for (uint32_t x = 0; x < kWidth; x += 4)
            ASSERT_EQ(zoomed.at(x, y), whole.at(80 + x / 2, 60 + y / 2)) << x << ' ' << y;
    }
    const Picture aside(bench, 0, {.zoom = 2, .pan = -1, .tilt = 1});
    for (uint32_t y = 8; y < kHeight; y += 8) {
        for (uint32_t x = 0; x < kWidth; x += 4)
            ASSERT_EQ(aside.at(x, y), whole.at(x / 2, y / 2)) << x << ' ' << y;
    }
}

// Four stripes side by side, each of its own brightness, of a picture that is wider than the
// canvas.
TEST(Picture, ShowsTheMiddleOfASceneAsTheTestPattern)
{
    constexpr uint32_t kSeenWidth = 800, kSeenHeight = 480; // 80 on either side are cut off
    Bytes seen(size_t{kSeenWidth} * kSeenHeight * 2);
    for (uint32_t i = 0; i < seen.size() / 2; ++i) {
        const uint32_t x = i % kSeenWidth;
        seen[2 * i] = static_cast<uint8_t>(x < 80 || x >= 720 ? 20 : 40 + (x - 80) / 160 * 50);
        seen[2 * i + 1] = x % 2 == 0 ? 16 : 146;
    }
    CameraModel model = *find_model("rowan-spi");
    model.numbers_frames = false;
    VirtualClock clock;
    Controller chip(model, clock);
    Bytes yuyv(kWidth * kHeight * 2);
    const auto look = [&](const PictureSettings& settings, uint32_t width = kWidth) {
        chip.picture(width, kHeight, 7, yuyv, settings, {kSeenWidth, kSeenHeight, seen});
        std::string stripes;
        for (const uint32_t x : {4U, 100U, 180U, 316U})
            stripes += std::to_string(yuyv[(120 * kWidth + x) * 2]) + ' ';
        return stripes;
    };
    EXPECT_EQ(look({}), "40 90 140 190 ");
    EXPECT_EQ(yuyv[0], 40) << "no number";
    EXPECT_EQ(look({.brightness = 0.1}), "50 100 150 200 ");
    EXPECT_EQ(look({.zoom = 2}), "90 90 140 140 ");
    EXPECT_EQ(look({.zoom = 2, .pan = 1}), "140 140 190 190 ");
    EXPECT_EQ(look({.is_covered = true}), "16 16 16 16 ");
    const struct {
        PictureSettings settings;
        int blue, red; ///< of (16, 146)
    } colours[] = {
        {{.saturation = -1}, 128, 128}, {{.hue = 1}, 240, 110}, {{.warmth = 1}, 16, 186}};
    for (const auto& c : colours) {
        look(c.settings);
        EXPECT_NEAR(yuyv[1], c.blue, 1);
        EXPECT_NEAR(yuyv[3], c.red, 1);
    }
    const auto turn = [&](Selector selector, uint8_t value) {
        EXPECT_EQ(chip.xu_request(6, selector, kSetCur, {&value, 1}), 1);
    };
    EXPECT_TRUE(chip.leaves_scenes_alone());
    turn(kMirror, 1);
    EXPECT_FALSE(chip.leaves_scenes_alone());
    EXPECT_EQ(look({}), "190 140 90 40 ");
    // A size of its own passes as it is, a buffer too small stays.
    turn(kMirror, 0);
    Bytes same(seen.size());
    chip.picture(kSeenWidth, kSeenHeight, 7, same, {}, {kSeenWidth, kSeenHeight, seen});
    EXPECT_EQ(same, seen);
    Bytes small(100);
    chip.picture(kSeenWidth, kSeenHeight, 7, small, {}, {kSeenWidth, kSeenHeight, seen});
    chip.picture(kWidth, kHeight, 7, yuyv, {}, {kSeenWidth, kSeenHeight + 1, seen});
    EXPECT_EQ(small, Bytes(100));
}

TEST(Picture, FillsEverySizeAndLeavesABufferTooSmallAlone)
{
    Bench bench("rowan-spi");
    command(bench, {0x01, 1});
    command(bench, {0x10, 0, 250, 250, 255, 255, 1});
    bench.write(kReg, 0x0544, {0x02});
    for (const auto& [width, height] :
         {std::pair{320U, 240U}, {640U, 480U}, {1280U, 720U}, {130U, 5U}, {2U, 1U}, {0U, 0U}}) {
        Bytes yuyv(size_t{width} * height * 2);
        bench.chip.picture(width, height, 7, yuyv);
        EXPECT_EQ(std::ranges::count(yuyv, 0), 0) << width;
        const auto number = read_frame_number(width, height, yuyv, false, false);
        EXPECT_EQ(number.value_or(7), 7U);
        EXPECT_EQ(number.has_value(), width >= 128);
    }
    Bytes small(320 * 240 * 2 - 1);
    bench.chip.picture(320, 240, 7, small);
    EXPECT_EQ(std::ranges::count(small, 0), static_cast<std::ptrdiff_t>(small.size()));
    EXPECT_EQ(read_frame_number(320, 240, small, false, false), std::nullopt);
}

TEST(Picture, ShowsTextUprightOnlyWhileEnabled)
{
    Bench bench("rowan-spi");
    const Picture bare(bench);
    command(bench, {0x08, 1, 'L', 0, 'L'});
    EXPECT_EQ(Picture(bench).yuyv, bare.yuyv);
    command(bench, {0x01, 1});
    const Picture shown(bench);
    // Seven dots down and four more to the right, each of 2x2 pixels, in row 2 + 1.
    EXPECT_EQ(shown.count(1, 3, kText), 11 * 4);
    EXPECT_EQ(shown.count(1, 3, 16), 256 - 11 * 4);
    EXPECT_EQ(shown.count(3, 3, kText), 11 * 4);
    EXPECT_EQ(shown.at(2 * 16 + 8, 56), bare.at(2 * 16 + 8, 56)) << "NUL leaves its cell alone";
    EXPECT_EQ(shown.at(18, 48).y, kText);
    EXPECT_EQ(shown.at(26, 48).y, 16);

    bench.set(kFlip, {0x02});
    EXPECT_EQ(Picture(bench).at(26, 48).y, 16) << "not turned";
    EXPECT_EQ(Picture(bench).count(1, 3, kText), 11 * 4);
    bench.set(kFlip, {0x00});

    bench.write(kReg, 0x0544, {0x10});
    EXPECT_EQ(Picture(bench).at(26, 48), bare.at(26, 48)) << "transparent background";
    command(bench, {0x02});
    bench.write(kReg, 0x0544, {0x00});
    EXPECT_EQ(Picture(bench).yuyv, bare.yuyv);
}

TEST(Picture, ShowsStampWindowsAndColours)
{
    Bench bench("willow-eeprom");
    command(bench, {0x04, 26, 11, 21, 10, 20, 30, 1, 13});
    EXPECT_EQ(Picture(bench).count(1, 13, kText), 0);
    bench.write(kReg, 0x0544, {0x02});
    const Picture before(bench);
    EXPECT_GT(before.count(1, 13, kText), 0);
    bench.clock.advance_us(1'000'000);
    EXPECT_NE(Picture(bench).yuyv, before.yuyv) << "its clock runs";
    bench.write(kReg, 0x0544, {0x00});

    command(bench, {0x01, 1});
    command(bench, {0x20, 200, 1, 2, 100, 3, 4, 50, 5, 6});
    command(bench, {0x10, 3, 2, 4, 3, 2, 1});
    const Picture window(bench);
    EXPECT_EQ(window.at(32, 64), (Pixel{50, 5, 6}));
    EXPECT_EQ(window.at(79, 95), (Pixel{50, 5, 6}));
    EXPECT_NE(window.at(80, 64), (Pixel{50, 5, 6}));
    EXPECT_NE(window.at(32, 96), (Pixel{50, 5, 6}));
    command(bench, {0x08, 0, 'I'});
    EXPECT_EQ(Picture(bench).count(1, 2, 200) + Picture(bench).count(1, 2, 100), 256);
    command(bench, {0x40});
    EXPECT_GT(Picture(bench).count(1, 1, 200), 0) << "the header";
}

} // namespace sim
