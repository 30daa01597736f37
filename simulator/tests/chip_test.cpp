// SPDX-License-Identifier: Apache-2.0
#include "bench.h"
#include "chip/prng.h"

#include <map>
#include <string>

namespace sim {

TEST(Boot, TellsTheHostWhatRuns)
{
    for (const CameraModel& model : models()) {
        for (const bool external : {true, false}) {
            SCOPED_TRACE(std::string(model.name) + (external ? " external" : " mask ROM"));
            const Bytes erased(16, 0xFF);
            Bench bench(model.name, external ? std::span<const uint8_t>() : erased);
            EXPECT_EQ(bench.chip.firmware.external, external);

            const bool spi = bench.has_flash();
            const uint8_t field = bench.read(kMcu, 0x21, 1)[0];
            EXPECT_EQ(field, (spi ? 0x04 : 0) | (external ? 0x18 : 0));
            const Bytes versions = bench.read(kSensor, 0xFFFF, 4);
            EXPECT_EQ(versions, external ? (Bytes{0x21, 0x00, 0x00, 0x01}) : Bytes(4));
            const Bytes setfile = bench.get(kSetfileVersion);
            EXPECT_STREQ(reinterpret_cast<const char*>(setfile.data()),
                         external ? "SF-01.00" : "MASKROM");
            if (bench.length(kDevStatus) != 0) {
                const uint8_t present = external ? 1 : 0;
                const Bytes expected = {0, present, present, 1, 0, 0, 0, model.bond, 0, 0, 0};
                EXPECT_EQ(bench.get(kDevStatus), expected);
            }
        }
    }
}

TEST(ExtensionUnit, AnswersTheLengthsOfItsGenerationAndStallsTheRest)
{
    // clang-format off
    const std::map<std::string_view, std::map<int, size_t>> expected = {
        {"larch-spi",       {{0x02, 2}, {0x03, 11}, {0x04, 1}, {0x05, 1}, {0x06, 11}, {0x07, 11},
                             {0x08, 11}, {0x09, 11}, {0x0A, 1}, {0x0B, 1}, {0x0C, 11}, {0x0D, 11},
                             {0x0E, 1}, {0x11, 11}, {0x12, 11}, {0x18, 516}}},
        {"rowan-spi",       {{0x02, 2}, {0x03, 35}, {0x04, 1}, {0x05, 1}, {0x06, 11}, {0x07, 35},
                             {0x08, 11}, {0x09, 11}, {0x0A, 1}, {0x0B, 1}, {0x0C, 11}, {0x0D, 11},
                             {0x0E, 1}, {0x0F, 64}, {0x11, 11}, {0x12, 11}, {0x13, 18}, {0x15, 11},
                             {0x16, 11}}},
        {"cedar-spi",       {{0x02, 2}, {0x03, 35}, {0x04, 1}, {0x05, 1}, {0x06, 11}, {0x07, 35},
                             {0x08, 11}, {0x09, 11}, {0x0A, 1}, {0x0B, 1}, {0x0C, 11}, {0x0D, 11},
                             {0x0E, 1}, {0x12, 11}, {0x16, 11}, {0x19, 11}, {0x1B, 11}, {0x1C, 11}}},
        {"willow-eeprom",   {{0x03, 35}, {0x04, 1}, {0x05, 1}, {0x06, 11}, {0x07, 35}, {0x08, 11},
                             {0x09, 11}, {0x0A, 1}, {0x0B, 1}, {0x0C, 11}, {0x0D, 11}, {0x0E, 1},
                             {0x0F, 64}, {0x11, 11}, {0x12, 11}, {0x13, 18}, {0x16, 11}}},
        {"fi2-spi",         {{0x03, 35}, {0x04, 1}, {0x05, 1}, {0x06, 11}, {0x07, 11}, {0x08, 11},
                             {0x09, 11}, {0x0A, 1}, {0x0B, 1}, {0x0C, 11}, {0x0D, 11}, {0x0E, 1},
                             {0x11, 11}, {0x12, 11}, {0x16, 11}, {0x18, 516}}},
    };
    // clang-format on
    for (const auto& [model, lengths] : expected) {
        Bench bench(model);
        std::map<int, size_t> found;
        for (int selector = 0; selector < 256; ++selector) {
            const auto code = static_cast<uint8_t>(selector);
            if (const size_t length = bench.length(code); length != 0) {
                found[selector] = length;
                EXPECT_EQ(bench.get(code, length - 1).size(), length - 1) << "clipped to wLength";
                EXPECT_EQ(bench.set(code, Bytes(length + 1)), kStall);
            } else {
                EXPECT_TRUE(bench.get(code).empty());
            }
        }
        EXPECT_EQ(found, lengths) << model;
    }
}

TEST(ExtensionUnit, NamesItselfAndItsVersion)
{
    Bench rowan("rowan-spi");
    EXPECT_EQ(rowan.get(kXuVersion), (Bytes{'X', 'U', 0x02, 0x00, 'E', 'M', 0x01, 0, 0, 0, 0}));
    const Bytes text = rowan.get(kIntFwVersion);
    EXPECT_STREQ(reinterpret_cast<const char*>(text.data()), "RO2-1.0.12");
    EXPECT_EQ(rowan.set(kIntFwVersion, Bytes(11)), kStall);

    Bytes room(8);
    EXPECT_EQ(rowan.chip.xu_request(7, kReg, kGetLen, room), kStall);
    EXPECT_EQ(rowan.chip.xu_request(6, kReg, 0x40, room), kStall);
}

TEST(ExtensionUnit, ReadsAndWritesItsMemories)
{
    Bench bench("rowan-spi");
    const Bytes data = {1, 2, 3, 4, 5, 6, 7, 8};
    for (const uint8_t space : {kReg, kSensor, kMcu}) {
        EXPECT_EQ(bench.write(space, 0x1280, data), 11 + (space == kSensor ? 24 : 0));
        EXPECT_EQ(bench.read(space, 0x1280, 8), data);
        EXPECT_EQ(bench.read(space, 0x1282, 3), (Bytes{3, 4, 5}));
    }
    EXPECT_EQ(bench.read(kMcu, 0x80, 2), (Bytes{1, 2})) << "256 bytes, the address wraps";
    EXPECT_EQ(bench.read(kReg, 0xFFFF, 2), (Bytes{0, 0})) << "the address wraps";
    EXPECT_EQ(bench.set(kReg, {0x80 | 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), kStall);
    EXPECT_EQ(bench.get(kReg)[0], 2) << "the refused request left the last one";
}

TEST(ExtensionUnit, RestartsOnTheClockRegisterAndForgets)
{
    Bench bench("rowan-spi");
    bench.write(kSensor, 0x10, {9});
    bench.set(kWriteProtect, {0});
    bench.set_status(0x00);
    ASSERT_TRUE(bench.wait_ready());
    EXPECT_FALSE(bench.chip.restart_pending);
    bench.write(kReg, 0x0026, {0x10});
    EXPECT_TRUE(bench.chip.restart_pending);

    bench.chip.restart();
    EXPECT_FALSE(bench.chip.restart_pending);
    EXPECT_EQ(bench.read(kSensor, 0x10, 1)[0], 0);
    EXPECT_TRUE(bench.chip.write_protect);
    EXPECT_EQ(bench.status(), 0x8C);
}

TEST(SpiChannel, ReadsTheIdByThePartsOwnCommandOnly)
{
    for (const CameraModel& model : models()) {
        SCOPED_TRACE(model.name);
        Bench bench(model.name);
        const FlashPart& part = model.flash;
        const Bytes id(part.id.begin(), part.id.end());
        for (const uint8_t opcode : Bytes{0x9F, 0x15, 0x90, 0xAB}) {
            const bool known = bench.has_flash() && opcode == part.read_id_command;
            const Bytes expected = known ? id : Bytes(3, 0xFF);
            EXPECT_EQ(bench.spi({opcode, 0, 0, 0}, 3), expected);
            EXPECT_EQ(bench.spi({opcode}, 3), opcode == 0x9F ? expected : Bytes(3, 0xFF));
            if (bench.length(kFlashReadId) != 0) {
                bench.set(kFlashReadId, {opcode, 4, 3, 0, 0, 0, 0, 0, 0, 0, 0});
                EXPECT_EQ(bench.get(kFlashReadId, 3), expected);
            }
        }
        const Bytes info = bench.read(kReg, 0x0A27, 8);
        EXPECT_EQ(Bytes(info.begin() + 5, info.end()), bench.has_flash() ? id : Bytes(3));
        EXPECT_EQ(bench.status(), !bench.has_flash() ? 0xFF : model.gpio0_is_wp ? 0x9C : 0x8C);
    }
}

TEST(SpiChannel, ShowsItsBusyBitWhileTheCommandRuns)
{
    Bench bench("rowan-spi");
    bench.write(kReg, 0x0100, {0x9F});
    bench.write(kReg, 0x0049, {0x14, 1, 0x01});
    bench.write(kReg, 0x0046, {3});
    Bytes start(11);
    start[0] = 0x81;
    start[2] = 0x49;
    start[3] = 0x37;
    ASSERT_EQ(bench.chip.xu_request(6, kReg, kSetCur, start), 11);
    EXPECT_EQ(bench.chip.reg(0x0049) & 1, 1);
    bench.clock.advance_us(100);
    Bytes poll(11);
    poll[0] = 1;
    poll[2] = 0x49;
    ASSERT_EQ(bench.chip.xu_request(6, kReg, kSetCur, poll), 11);
    ASSERT_EQ(bench.chip.xu_request(6, kReg, kGetCur, poll), 11);
    EXPECT_EQ(poll[3] & 1, 1);
    EXPECT_EQ(bench.chip.reg(0x0100), 0x9F) << "the answer comes with the end";
    bench.clock.advance_us(100);
    ASSERT_EQ(bench.chip.xu_request(6, kReg, kGetCur, poll), 11);
    EXPECT_EQ(poll[3] & 1, 0);
    EXPECT_EQ(bench.chip.reg(0x0100), 0xC2);
}

TEST(Upgrade, WorksOnEveryModelAndSurvivesAPowerCut)
{
    for (const CameraModel& model : models()) {
        SCOPED_TRACE(model.name);
        Bench bench(model.name);
        const Bytes image = new_image(model);
        const auto body = std::span(image).subspan(0x40);

        bench.unlock();
        if (bench.has_flash()) {
            bench.erase();
            ASSERT_EQ(bench.chip.rom[0x40], 0xFF);
        }
        bench.program(0x40, body.first(0x800));
        bench.chip.restart();
        EXPECT_FALSE(bench.chip.firmware.external);

        bench.unlock();
        bench.program(0x40, body);
        bench.program(0, std::span(image).first(0x40));
        EXPECT_TRUE(std::ranges::equal(std::span(bench.chip.rom).first(image.size()), image));
        bench.chip.restart();
        EXPECT_TRUE(bench.chip.firmware.external);
        EXPECT_EQ(bench.read(kSensor, 0xFFFF, 4), (Bytes{0x77, 0x00, 0x34, 0x02}));

        Bench restored(model.name, bench.chip.rom);
        EXPECT_TRUE(std::ranges::equal(bench.chip.rom, restored.chip.rom));
    }
}

TEST(Upgrade, ALockedRomKeepsItsFirmware)
{
    for (const CameraModel& model : models()) {
        SCOPED_TRACE(model.name);
        Bench bench(model.name);
        const Bytes before(bench.chip.rom.begin(), bench.chip.rom.end());
        bench.write(kExtRom, 0x40, Bytes(8), bench.newer() ? 0x80 : 0xA0);
        if (bench.has_flash()) {
            bench.erase();
            bench.set(kWriteProtect, {1});
            bench.set_status(0x00);
            bench.clock.advance_us(10'000);
            EXPECT_NE(bench.status() & SpiFlash::kBlockProtect, 0);
        }
        EXPECT_TRUE(std::ranges::equal(bench.chip.rom, before));
    }
}

TEST(Upgrade, OlderFirmwareWantsItsProtectionReleasedBeforeEveryChunk)
{
    Bench bench("larch-spi");
    bench.write(kReg, 0x0029, {0x80});
    bench.write(kReg, 0x0020, {0x01});
    EXPECT_FALSE(bench.chip.gpio(0)) << "not driven, so pulled low";
    bench.write(kReg, 0x0022, {0x01});
    EXPECT_TRUE(bench.chip.gpio(0));
    bench.set_status(0x00);
    bench.clock.advance_us(10'000);
    EXPECT_EQ(bench.status(), 0x9C) << "the host has to enable the status write itself";
    bench.unlock();
    EXPECT_EQ(bench.status(), 0x00);
    bench.erase();

    bench.set(kWriteProtect, {0});
    bench.write(kExtRom, 0x40, {1}, 0x80);
    EXPECT_EQ(bench.chip.rom[0x40], 0xFF) << "this generation writes with 0xA0 only";
    bench.write(kExtRom, 0x40, {1}, 0xA0);
    EXPECT_EQ(bench.chip.rom[0x40], 1);
    EXPECT_TRUE(bench.chip.write_protect);
    bench.write(kExtRom, 0x41, {2}, 0xA0);
    EXPECT_EQ(bench.chip.rom[0x41], 0xFF);
}

TEST(Rom, ReadsBeyond64KiBThroughTheBlockIndex)
{
    Bench bench("cedar-spi");
    bench.chip.rom[0x30012] = 0x5C;
    bench.set(kFlashBlock, {3, 0});
    EXPECT_EQ(bench.read(kExtRom, 0x0012, 1)[0], 0x5C);
    EXPECT_EQ(bench.get(kFlashBlock), (Bytes{3, 0}));
    bench.set(kFlashBlock, {0xFF, 0xFF});
    EXPECT_EQ(bench.read(kExtRom, 0xFFFF, 32).size(), 32U);
}

TEST(Rom, Moves512BytesInOneRequest)
{
    const auto request = [](uint16_t length, uint8_t fill) {
        Bytes frame(516, fill);
        frame[0] = static_cast<uint8_t>(length >> 8);
        frame[1] = static_cast<uint8_t>(length);
        frame[2] = 0x24;
        frame[3] = 0x10;
        return frame;
    };
    const auto read = [&request](Bench& bench) {
        bench.set(kExtRom512, request(512, 0));
        const Bytes answer = bench.get(kExtRom512);
        return Bytes(answer.begin() + 4, answer.end());
    };
    for (const std::string_view model : {"hawthorn-eeprom", "fi2-spi"}) {
        SCOPED_TRACE(model);
        Bench bench(model);
        bench.unlock();
        if (bench.has_flash())
            bench.erase();
        bench.set(kWriteProtect, {1});
        EXPECT_EQ(read(bench), Bytes(512, 0xFF)) << "a request to a locked ROM writes nothing";
        bench.set(kWriteProtect, {0});
        bench.set(kExtRom512, request(512, 0xA7));
        bench.set(kWriteProtect, {1});
        bench.clock.advance_us(17 * 5000); // the firmware goes on page by page
        EXPECT_EQ(read(bench), Bytes(512, 0xA7));
    }
}

TEST(ExtensionUnit, TakesAnyRequestWithoutHarm)
{
    Prng prng(1);
    Bytes picture(320 * 240 * 2);
    for (const CameraModel& model : models()) {
        Bench bench(model.name);
        for (int round = 0; round < 5'000; ++round) {
            const auto selector = static_cast<uint8_t>(prng.next() % (kSelectorEnd + 2));
            const auto control = find_control(model, selector);
            const bool fitting = control && prng.next() % 8 != 0;
            Bytes data(fitting ? control->length : prng.next() % 600);
            std::ranges::generate(data, [&prng] { return prng.next_byte(); });
            const auto request =
                static_cast<uint8_t>(prng.next() % 2 != 0 ? kSetCur : kGetCur + prng.next() % 8);
            const uint8_t unit = prng.next() % 4 != 0 ? 6 : 12;
            const int moved = bench.chip.xu_request(unit, selector, request, data);
            ASSERT_GE(moved, kStall);
            ASSERT_LE(moved, static_cast<int>(data.size()));
            if (round % 500 == 0)
                bench.chip.picture(320, 240, 0, picture);
            bench.clock.advance_us(prng.next() % 300);
        }
    }
}

} // namespace sim
