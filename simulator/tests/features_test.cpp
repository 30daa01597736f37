// SPDX-License-Identifier: Apache-2.0
#include "bench.h"

#include <string>

namespace sim {
namespace {

constexpr uint8_t kH264 = 12;

Bytes h264_get(Bench& bench, uint8_t selector, uint8_t request = kGetCur, size_t room = 64)
{
    Bytes data(room, 0xEE);
    const int moved = bench.chip.xu_request(kH264, selector, request, data);
    data.resize(moved < 0 ? 0 : static_cast<size_t>(moved));
    return data;
}

int h264_set(Bench& bench, uint8_t selector, Bytes data)
{
    return bench.chip.xu_request(kH264, selector, kSetCur, data);
}

/// One transfer of the I2C master, started as hosts start it.
void i2c(Bench& bench, uint8_t device, uint16_t address, uint8_t length, uint8_t control)
{
    bench.write(kReg, 0x0E48,
                {static_cast<uint8_t>(device & 1), static_cast<uint8_t>(device & 0xFE)});
    bench.write(kReg, 0x0E4A,
                {static_cast<uint8_t>(address >> 1 & 0x80), static_cast<uint8_t>(address), length,
                 control});
}

Bytes osd_get(Bench& bench, uint8_t code, uint8_t index = 0)
{
    Bytes frame(18);
    frame[0] = code;
    frame[1] = index;
    bench.set(kOsd, frame);
    return bench.get(kOsd);
}

void osd_set(Bench& bench, Bytes command)
{
    command.resize(18);
    bench.set(kOsd, command);
}

} // namespace

TEST(H264, HoldsItsSettingsUntilTheEncoderIsReset)
{
    struct Case {
        uint8_t selector;
        uint8_t length, info;
        Bytes defaults;
    };
    const Case cases[] = {
        {0x03, 3, 3, {0, 0, 1}},
        {0x0A, 2, 1, {0x00, 0x01}},
        {0x0E, 10, 3, {0, 0, 0x00, 0x09, 0x3D, 0x00, 0x80, 0x84, 0x1E, 0x00}},
        {0x0F, 5, 3, {0, 0, 7, 20, 40}},
        {0x09, 4, 3, {0, 0, 0, 0}},
        {0x0B, 2, 2, {}},
    };
    Bench bench("rowan-spi");
    for (const Case& row : cases) {
        SCOPED_TRACE(std::to_string(row.selector));
        EXPECT_EQ(h264_get(bench, row.selector, kGetLen, 2), (Bytes{row.length, 0}));
        EXPECT_EQ(h264_get(bench, row.selector, kGetInfo, 1), Bytes{row.info});
        EXPECT_EQ(h264_get(bench, row.selector), row.defaults);
        EXPECT_EQ(h264_set(bench, row.selector, Bytes(row.length + 1U)), kStall);
        if ((row.info & 2) == 0) {
            EXPECT_EQ(h264_set(bench, row.selector, Bytes(row.length)), kStall);
        } else if (row.selector != 0x0B) {
            EXPECT_EQ(h264_set(bench, row.selector, Bytes(row.length, 0x55)), row.length);
            EXPECT_EQ(h264_get(bench, row.selector), Bytes(row.length, 0x55));
        }
    }
    EXPECT_EQ(h264_set(bench, 0x0B, {0, 0}), 2);
    for (const Case& row : cases)
        EXPECT_EQ(h264_get(bench, row.selector), row.defaults);
    EXPECT_EQ(h264_get(bench, 0x0C), Bytes());
}

TEST(H264, OnlyATolerantUnitAnswersTheSwappedOrder)
{
    for (const std::string_view model : {"cedar-spi", "cedar-swapped"}) {
        SCOPED_TRACE(model);
        const bool tolerant = model == "cedar-swapped";
        Bench bench(model);
        h264_set(bench, 0x0F, {0, 0, 1, 2, 3});
        EXPECT_EQ(h264_get(bench, 0x0F, 5, 0x81), tolerant ? (Bytes{0, 0, 1, 2, 3}) : Bytes());
        EXPECT_EQ(h264_get(bench, 0x0F, 5, 0x01), tolerant ? Bytes{0} : Bytes());
        EXPECT_EQ(h264_get(bench, 0x0F, 4, 0x81), Bytes());
        EXPECT_EQ(h264_get(bench, 0x0F), (Bytes{0, 0, 1, 2, 3}));
    }
}

TEST(Osd, ReturnsWhatItWasGivenFromOffsetZero)
{
    for (const std::string_view model : {"rowan-spi", "willow-eeprom"}) {
        Bench bench(model);
        struct Case {
            Bytes command;
            uint8_t get, index;
            Bytes reply;
        };
        const Case cases[] = {
            {{0x01, 1}, 0x81, 0, {1}},
            {{0x04, 26, 2, 3, 4, 5, 6, 7, 8}, 0x84, 0, {26, 2, 3, 4, 5, 6, 7, 8}},
            {{0x08, 3, 'A', 'b', 0, 'c'}, 0x88, 3, {'A', 'b', 0, 'c'}},
            {{0x08, 200, 'X'}, 0x88, 200, {}},
            {{0x10, 2, 4, 5, 6, 7, 1, 8, 9, 10}, 0x90, 0, {2, 4, 5, 6, 7, 1, 8, 9, 10}},
            {{0x20, 1, 2, 3, 4, 5, 6, 7, 8, 9}, 0xA0, 0, {1, 2, 3, 4, 5, 6, 7, 8, 9}},
        };
        for (const Case& row : cases) {
            osd_set(bench, row.command);
            Bytes expected = row.reply;
            expected.resize(18);
            EXPECT_EQ(osd_get(bench, row.get, row.index), expected);
        }
        osd_set(bench, {0x02});
        EXPECT_EQ(osd_get(bench, 0x81), Bytes(18));
        EXPECT_EQ(osd_get(bench, 0x88, 3), Bytes(18));
    }
}

TEST(Osd, ItsClockRunsOnFromAValidDate)
{
    Bench bench("rowan-spi");
    osd_set(bench, {0x04, 24, 2, 28, 23, 59, 58, 1, 1});
    bench.clock.advance_us(3'000'000);
    Bytes now = osd_get(bench, 0x84);
    now.resize(8);
    EXPECT_EQ(now, (Bytes{24, 2, 29, 0, 0, 1, 1, 1}));
    osd_set(bench, {0x04, 24, 13, 0, 99, 99, 99, 1, 1});
    bench.clock.advance_us(3'000'000);
    EXPECT_EQ(osd_get(bench, 0x84)[1], 13);
}

TEST(Leds, StayPendingUntilTheFirmwareHasLooked)
{
    Bench bench("rowan-spi");
    bench.write(kReg, 0x0B69 + 3, {0x98});
    bench.clock.advance_us(15'000);
    EXPECT_EQ(bench.read(kReg, 0x0B6C, 1)[0], 0x98);
    bench.clock.advance_us(5'000);
    EXPECT_EQ(bench.chip.reg(0x0B6C), 0x18);
    bench.write(kReg, 0x0B84, {0x80});
    bench.clock.advance_us(20'000);
    EXPECT_EQ(bench.chip.reg(0x0B84), 0x80) << "no LED";
}

TEST(I2c, ReachesTheSensorAndNobodyElse)
{
    Bench bench("rowan-spi");
    bench.write(kReg, 0x0E40, {1, 2, 3, 4});
    i2c(bench, 0x60, 0x1A5, 3, 0x80);
    EXPECT_EQ(bench.chip.sensor[0x1A5], 1);
    EXPECT_EQ(bench.chip.sensor[0x1A7], 3);
    EXPECT_EQ(bench.chip.sensor[0x1A8], 0);
    EXPECT_EQ(bench.read(kSensor, 0x1A5, 3), (Bytes{1, 2, 3}));

    bench.write(kReg, 0x0E40, Bytes(8));
    i2c(bench, 0x61, 0x1A6, 200, 0xC0);
    EXPECT_EQ(bench.read(kReg, 0x0E40, 3), (Bytes{2, 3, 0}));
    EXPECT_EQ(bench.chip.reg(0x0E49), 0x60) << "eight bytes at most";

    i2c(bench, 0x42, 0x1A5, 8, 0x80);
    EXPECT_EQ(bench.chip.sensor[0x1A5], 1);
    i2c(bench, 0x42, 0x1A5, 8, 0xC0);
    EXPECT_EQ(bench.read(kReg, 0x0E40, 8), Bytes(8, 0xFF));
}

TEST(Registers, HaveTheirDefaultsAndPinsTheirLevels)
{
    Bench bench("rowan-spi");
    EXPECT_EQ(bench.read(kReg, 0x0060, 1)[0], 16);
    EXPECT_EQ(bench.read(kReg, 0x0D00, 4), (Bytes{0, 30, 0, 29}));
    EXPECT_EQ(bench.read(kReg, 0x0D0A, 2), (Bytes{8, 8}));

    bench.write(kReg, 0x0020, {0xFF, 0xFF});
    bench.write(kReg, 0x0022, {0x81, 0x42});
    for (unsigned pin = 0; pin < 17; ++pin)
        EXPECT_EQ(bench.chip.gpio(pin), pin == 7 || pin == 9 || pin == 14) << pin;
    bench.write(kReg, 0x0029, {0x80});
    EXPECT_TRUE(bench.chip.gpio(0));

    bench.write(kReg, 0x0B84, {1, 2, 3, 4});
    bench.chip.raise_motion_alarm();
    EXPECT_EQ(bench.read(kReg, 0x0B84, 4), (Bytes{1, 2, 3, 5}));
}

TEST(FingerprintBoard, CountsItsCommandsAndFeelsAFinger)
{
    Bench bench("fi2-board");
    bench.write(kReg, 0x0B78, {4});
    EXPECT_EQ(bench.read(kReg, 0x0B78, 1)[0], 4);
    bench.write(kReg, 0x0B8D, {1});
    bench.write(kReg, 0x0B78, {3});
    EXPECT_EQ(bench.chip.sensor_resets, 2U);
    EXPECT_EQ(bench.chip.snapshot_triggers, 1U);

    bench.write(kReg, 0x0B88, {1});
    bench.chip.set_touch(0x5A);
    bench.chip.restart();
    EXPECT_EQ(bench.read(kReg, 0x0B8F, 1)[0], 0x5A);
    EXPECT_EQ(bench.read(kReg, 0x0B88, 1)[0], 0);
    EXPECT_EQ(bench.read(kMcu, 0x20, 1)[0], 1);
}

TEST(FingerprintBoard, ItsEepromNeedsGpio0LowAndNoWriteProtection)
{
    struct Case {
        const char* name;
        uint8_t selected, driven, level, write_protect;
        bool written;
    };
    const Case cases[] = {
        {"driven low", 0x80, 1, 0, 0, true},       {"driven high", 0x80, 1, 1, 0, false},
        {"not driven", 0x80, 0, 0, 0, false},      {"not selected", 0x00, 1, 0, 0, false},
        {"write-protected", 0x80, 1, 0, 1, false},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        Bench bench("fi2-board");
        const std::span<uint8_t> rom = bench.chip.rom;
        std::ranges::fill(rom.subspan(0x2400, 64), uint8_t{0xFF});
        bench.write(kReg, 0x0029, {row.selected});
        bench.write(kReg, 0x0022, {row.driven});
        bench.write(kReg, 0x0020, {row.level});
        bench.set(kWriteProtect, {row.write_protect});
        bench.write(kExtRom, 0x241E, {1, 2, 3});
        EXPECT_EQ(rom[0x241E], row.written ? 1 : 0xFF);
        EXPECT_EQ(rom[0x2400], row.written ? 3 : 0xFF) << "wraps inside its page";
        EXPECT_EQ(rom[0x2420], 0xFF);
    }
}

TEST(LargeRom, The512ByteControlFollowsTheBlockIndex)
{
    Bench bench("larch-large");
    const std::span<uint8_t> rom = bench.chip.rom;
    ASSERT_EQ(rom.size(), 0x80000U);
    rom[0x1FFFF] = 0x11;
    rom[0x20000] = 0x22;
    rom[0x7FFFF] = 0x33;
    const auto read = [&bench](uint8_t block, uint16_t address, uint16_t length) {
        bench.set(kFlashBlock, {block, 0});
        Bytes frame(516);
        frame[0] = static_cast<uint8_t>(length >> 8);
        frame[1] = static_cast<uint8_t>(length);
        frame[2] = static_cast<uint8_t>(address >> 8);
        frame[3] = static_cast<uint8_t>(address);
        bench.set(kExtRom512, frame);
        const Bytes answer = bench.get(kExtRom512);
        return Bytes(answer.begin() + 4, answer.begin() + 4 + length);
    };
    EXPECT_EQ(read(1, 0xFE00, 512).back(), 0x11);
    EXPECT_EQ(read(2, 0, 1)[0], 0x22);
    EXPECT_EQ(read(7, 0xFFFF, 1)[0], 0x33);
}

} // namespace sim
