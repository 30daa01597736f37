// SPDX-License-Identifier: Apache-2.0
// How frames become pictures and Y4M, also those that no camera should send.
#include "video/picture.h"
#include "video/y4m.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cstdlib>

namespace {

using Bytes = std::vector<uint8_t>;

/// Two pixels each: white, and red.
constexpr uint8_t kWhite[] = {235, 128, 235, 128};
constexpr uint8_t kRed[] = {81, 90, 81, 240};

TEST(Picture, AFrameOfAnyLengthFillsItsSize)
{
    const struct {
        size_t bytes;
        Bytes rgb; ///< of 4 pixels
    } cases[] = {
        {8, {255, 255, 255, 255, 255, 255, 255, 0, 0, 255, 0, 0}},
        {7, {255, 255, 255, 255, 255, 255, 0, 0, 0, 0, 0, 0}}, // half a pair is none
        {4, {255, 255, 255, 255, 255, 255, 0, 0, 0, 0, 0, 0}},
        {0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {12, {255, 255, 255, 255, 255, 255, 255, 0, 0, 255, 0, 0}},
    };
    for (const auto& [bytes, rgb] : cases) {
        Bytes frame(kWhite, kWhite + 4);
        frame.insert(frame.end(), kRed, kRed + 4);
        frame.resize(bytes, 200);
        frame.shrink_to_fit(); // a sanitizer sees what is read behind it
        const tool::Picture picture = tool::picture_of_yuyv(2, 2, frame);
        ASSERT_EQ(picture.rgb.size(), rgb.size());
        for (size_t i = 0; i < rgb.size(); ++i)
            EXPECT_LE(std::abs(picture.rgb[i] - rgb[i]), 1) << bytes << " bytes, " << i;
        EXPECT_FALSE(tool::png_of(picture).empty());
    }
}

TEST(Picture, AJpegShowsWhatItWasMadeOf)
{
    tool::Picture picture{64, 16, Bytes(size_t{64} * 16 * 3)};
    for (size_t i = 0; i < picture.rgb.size(); ++i)
        picture.rgb[i] = static_cast<uint8_t>(i / 3 % 64 * 4);
    const tool::Picture seen = tool::picture_of_jpeg(tool::jpeg_of(picture));
    ASSERT_EQ(seen.width, 64U);
    ASSERT_EQ(seen.height, 16U);
    for (size_t i = 0; i < picture.rgb.size(); ++i)
        ASSERT_LE(std::abs(picture.rgb[i] - seen.rgb[i]), 8) << i;
}

TEST(Y4m, TheRateIsWholeWhereTheUnitIsCoarseOnly)
{
    const struct {
        uint32_t interval;
        const char* rate;
    } cases[] = {{333333, " F30:1 "},
                 {333334, " F30:1 "},
                 {666666, " F15:1 "},
                 {2000000, " F5:1 "},
                 {166666, " F60:1 "},
                 {333667, " F10000000:333667 "},
                 {20000000, " F10000000:20000000 "},
                 {0, " F10000000:1 "}};
    for (const auto& [interval, rate] : cases) {
        const std::string header = tool::y4m_header(640, 480, interval);
        EXPECT_NE(header.find(rate), std::string::npos) << interval << ": " << header;
    }
}

TEST(Y4m, AFrameOfAnyLengthBecomesThreeWholePlanes)
{
    const Bytes yuyv = {1, 2, 3, 4, 5, 6, 7, 8, 99};
    for (const size_t bytes : {size_t{9}, size_t{8}, size_t{6}, size_t{0}}) {
        const Bytes sent(yuyv.begin(), yuyv.begin() + static_cast<ptrdiff_t>(bytes));
        const std::string frame =
            tool::y4m_frame({4, 1, 0, {sent.data(), sent.size()}, NYXUS_FOURCC_YUYV, 0});
        std::string planes = {1, 3, 5, 7, 2, 6, 4, 8};
        if (bytes < 8)
            planes = bytes < 4 ? std::string(8, '\0') : std::string{1, 3, 0, 0, 2, 0, 4, 0};
        EXPECT_EQ(frame, "FRAME\n" + planes) << bytes;
    }
}

} // namespace
