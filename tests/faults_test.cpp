// SPDX-License-Identifier: Apache-2.0
// What the library makes of cameras that fail by plan: its answer, and what is in the ROM then.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>

#include "faults/fault_file.h"
#include "support/camera.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int32_t kGone = -16388;
constexpr int32_t kPipe = -16393;
constexpr int32_t kIo = -16385;

void plan(Camera& camera, const std::string& text)
{
    camera.bed().set_faults(sim::parse_faults(text, "plan"));
}

/// Bytes of an image, or as many erased ones.
Bytes part(const Bytes& image, size_t begin, size_t end)
{
    return {image.begin() + static_cast<ptrdiff_t>(begin),
            image.begin() + static_cast<ptrdiff_t>(end)};
}

Bytes erased(size_t count)
{
    return Bytes(count, 0xFF);
}

} // namespace

TEST(PlannedFaults, AnUpgradeEndsWithTheFirstFailure)
{
    const struct {
        std::string_view model;
        const char* fault;
        int32_t status;
        const char* message;
    } cases[] = {
        {models::kRowan, R"({when = {selector = 3, request = "SET_CUR", count = 9}, do = "stall"})",
         kPipe, "Pipe error"},
        {models::kRowan, R"({when = {rom_address = 0x1000}, do = "stall"})", kPipe, "Pipe error"},
        {models::kRowan, R"({when = {transfer = 61}, do = "io-error"})", kIo, "Input/Output Error"},
        {models::kWillow, R"({when = {transfer = 60}, do = "timeout"})", kIo, "Input/Output Error"},
        {models::kLarch, R"({when = {rom_address = 0x1000}, do = "unplug"})", kGone,
         "No such device"},
        {models::kRowan, R"({when = {time_ms = 400}, do = "unplug", announced = false})", kGone,
         "No such device"},
        {models::kHawthorn, R"({when = {time_ms = 400}, do = "power-cut"})", kGone,
         "No such device"},
        {models::kRowan, R"({when = {}, do = "ignored-unlock"})", NYXUS_E_BUSY, ""},
        {models::kLarch, R"({when = {}, do = "ignored-unlock"})", NYXUS_E_TIMEOUT,
         "block protect timed out"},
    };
    for (const auto& c : cases) {
        Camera camera{c.model};
        load_image(c.model);
        camera.device();
        camera.listen();
        plan(camera, "fault = [" + std::string(c.fault) + "]");
        nyxus_errmsg[0] = '\0';
        EXPECT_EQ(MP_FwUpgrade(camera.device(), nullptr), c.status) << c.model << c.fault;
        EXPECT_NE(std::string(nyxus_errmsg).find(c.message), std::string::npos)
            << c.fault << nyxus_errmsg;
        EXPECT_GT(camera.bed().fault_strikes().at(0), 0U) << c.fault;
    }
}

TEST(PlannedFaults, AnIgnoredUnlockKeepsTheRomAsItWas)
{
    for (const std::string_view model : {models::kRowan, models::kLarch}) {
        Camera camera{model};
        const Bytes before = camera.rom(0, 0x10000);
        load_image(model);
        camera.device();
        plan(camera, R"(fault = [{when = {}, do = "ignored-unlock"}])");
        EXPECT_LT(MP_FwUpgrade(camera.device(), nullptr), 0);
        EXPECT_EQ(camera.rom(0, 0x10000), before) << model;
        EXPECT_NE(camera.sim().controller()->flash_status() & 0x0C, 0) << model;
    }
}

TEST(PlannedFaults, AnIgnoredLockDoesNotFailAnUpgradeThatIsComplete)
{
    for (const std::string_view model : {models::kRowan, models::kLarch}) {
        Camera camera{model};
        const Bytes image = load_image(model);
        camera.device();
        plan(camera, R"(fault = [{when = {}, do = "ignored-lock"}])");
        EXPECT_EQ(MP_FwUpgrade(camera.device(), nullptr), 0) << model;
        EXPECT_EQ(camera.rom(0, image.size()), image) << model;
        EXPECT_EQ(camera.sim().controller()->flash_status() & 0x1C, 0) << model << ": unlocked";
        EXPECT_LT(MP_ExtRomWriteEnable(camera.device(), EXTROM_TYPE_SPI, false), 0) << model;
    }
}

TEST(PlannedFaults, AnUpgradeDoesNotNoticeALie)
{
    nyxus_write_cycle_time = 5;
    for (const std::string_view model : models::kAll) {
        Camera camera{model};
        const Bytes before = camera.rom(0, 0x8000);
        const Bytes image = load_image(model, 0x4000);
        camera.device();
        plan(camera, R"(fault = [{when = {rom_address = [0x1000, 0x1FFF]}, do = "lying-write"}])");
        EXPECT_EQ(MP_FwUpgrade(camera.device(), nullptr), 0) << model;
        const bool is_eeprom = camera.device()->bExtRomType != EXTROM_TYPE_SPI;
        EXPECT_EQ(camera.rom(0, 0x1000), part(image, 0, 0x1000)) << model;
        EXPECT_EQ(camera.rom(0x1000, 0x1000),
                  is_eeprom ? part(before, 0x1000, 0x2000) : erased(0x1000))
            << model;
        EXPECT_EQ(camera.rom(0x2000, 0x2000), part(image, 0x2000, 0x4000)) << model;
    }
}

TEST(PlannedFaults, AnEraseThatDidNotHappenLeavesOldBitsInTheNewFirmware)
{
    Camera camera{models::kCedar};
    const Bytes before = camera.rom(0, 0x4000);
    Bytes image = load_image(models::kCedar, 0x4000);
    camera.device();
    plan(camera, R"(fault = [{when = {}, do = "lying-erase"}])");
    EXPECT_EQ(MP_FwUpgrade(camera.device(), nullptr), 0);
    std::ranges::transform(image, before, image.begin(), std::bit_and<>());
    EXPECT_EQ(camera.rom(0, 0x4000), image);
}

TEST(PlannedFaults, APowerCutLeavesAWriteHalfDone)
{
    nyxus_write_cycle_time = 5;
    const struct {
        std::string_view model;
        size_t chunk;
        bool is_eeprom;
    } cases[] = {
        {models::kRowan, 32, false},  {models::kCedar, 32, false}, {models::kLarch, 8, false},
        {models::kHawthorn, 8, true}, {models::kWillow, 32, true},
    };
    for (const auto& c : cases) {
        Camera camera{c.model};
        const Bytes before = camera.rom(0, 0x8000);
        const Bytes image = load_image(c.model, 0x4000);
        camera.device();
        plan(camera, R"(fault = [{when = {rom_address = 0x1000, request = "SET_CUR", count = )" +
                         std::string(c.is_eeprom ? "1" : "2") + R"(}, do = "power-cut"}])");
        EXPECT_EQ(MP_FwUpgrade(camera.device(), nullptr), kGone) << c.model;
        const size_t half = 0x1000 + c.chunk / 2;
        EXPECT_EQ(camera.rom(0x40, half - 0x40), part(image, 0x40, half)) << c.model;
        const Bytes old = c.is_eeprom ? part(before, half, 0x4000) : erased(0x4000 - half);
        EXPECT_EQ(camera.rom(half, 0x4000 - half), old) << c.model;

        camera.remove();
        camera.bed().replug(camera.sim());
        EXPECT_FALSE(camera.sim().controller()->firmware.external) << c.model;
    }
}

TEST(PlannedFaults, APowerCutLeavesAnEraseHalfDone)
{
    Camera camera{models::kRowan};
    load_image(models::kRowan);
    camera.device();
    std::ranges::fill(std::span(camera.sim().controller()->rom).subspan(0x8000), uint8_t{0x5A});
    plan(camera, R"(fault = [{when = {time_ms = 300}, do = "power-cut"}])");
    EXPECT_EQ(MP_FwUpgrade(camera.device(), nullptr), kGone);
    EXPECT_EQ(camera.rom(0, 0x10000), erased(0x10000));
    EXPECT_EQ(camera.rom(0x10000, 0x10000), Bytes(0x10000, 0x5A));
}

TEST(PlannedFaults, APowerCutOfAnIdleRomChangesNothing)
{
    Camera camera{models::kRowan};
    const Bytes before = camera.rom(0, 0x20000);
    camera.device();
    camera.bed().power_cut(camera.sim());
    EXPECT_EQ(camera.rom(0, 0x20000), before);
    camera.remove();
    camera.bed().replug(camera.sim());
    EXPECT_TRUE(camera.sim().controller()->firmware.external);
    EXPECT_NE(camera.create(), nullptr);
}

TEST(PlannedFaults, AStuckFlashIsGivenUpInBoundedTime)
{
    const struct {
        const char* fault;
        int32_t status;
    } cases[] = {
        {R"({when = {rom_address = 0x1000}, do = "stuck-busy"})", NYXUS_E_BUSY},
        {R"({when = {rom_address = 0x1000}, do = "stuck-busy", ms = 60000})", NYXUS_E_BUSY},
        {R"({when = {rom_address = 0x1000}, do = "stuck-busy", ms = 500, times = 3})", 0},
    };
    for (const auto& c : cases) {
        Camera camera{models::kRowan};
        load_image(models::kRowan);
        camera.device();
        plan(camera, "fault = [" + std::string(c.fault) + "]");
        const uint64_t before_us = camera.time().now_us();
        EXPECT_EQ(MP_FwUpgrade(camera.device(), nullptr), c.status) << c.fault;
        EXPECT_LT(camera.time().now_us() - before_us, 20'000'000U) << c.fault;
    }
}

TEST(PlannedFaults, BitsFlipOnTheWayOutAndNotInTheRom)
{
    for (const std::string_view model : {models::kRowan, models::kWillow}) {
        Camera camera{model};
        const Bytes rom = camera.rom(0, 0x4000);
        camera.device();
        plan(
            camera,
            R"(fault = [{when = {rom_address = [0x1001, 0x1002]}, do = "bit-flip", mask = 0x81}])");
        Bytes read(0x4000);
        EXPECT_EQ(XuExtRomRead(camera.device(), 0, 0x4000, read.data()), 0);
        Bytes expected = rom;
        expected[0x1001] ^= 0x81;
        expected[0x1002] ^= 0x81;
        EXPECT_EQ(read, expected) << model;
        EXPECT_EQ(camera.rom(0, 0x4000), rom) << model;

        const auto by_chance = [&](const std::string& seed) {
            plan(camera, R"(fault = [{when = {probability = 0.05}, do = "bit-flip", seed = )" +
                             seed + "}]");
            EXPECT_EQ(XuExtRomRead(camera.device(), 0, 0x4000, read.data()), 0);
            int flipped = 0;
            for (size_t i = 0; i < rom.size(); ++i)
                flipped += __builtin_popcount(rom[i] ^ read[i]);
            EXPECT_EQ(camera.bed().fault_strikes().at(0), static_cast<uint64_t>(flipped));
            EXPECT_GT(flipped, 5);
            return read;
        };
        const Bytes first = by_chance("1");
        EXPECT_EQ(first, by_chance("1")) << "the same seed, the same bits";
        EXPECT_NE(first, by_chance("2"));
    }
}

TEST(PlannedFaults, WithoutAnAnswerTheLibraryWaitsForTheUnplug)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    plan(camera, R"(fault = [{when = {selector = 3, request = "GET_CUR"}, do = "no-answer"}])");
    int32_t status = 0;
    std::thread reader([&] {
        uint8_t data[8];
        status = XuExtRomRead(device, 0, sizeof data, data);
    });
    while (camera.bed().fault_strikes().at(0) == 0)
        std::this_thread::yield();
    camera.bed().unplug(camera.sim());
    reader.join();
    EXPECT_EQ(status, kGone);
}

TEST(PlannedFaults, ALateAnswerIsWaitedFor)
{
    Camera camera{models::kRowan};
    camera.device();
    plan(
        camera,
        R"(fault = [{when = {selector = 3, request = "GET_CUR", count = 2}, do = "late", ms = 300}])");
    const uint64_t before_us = camera.time().now_us();
    Bytes read(0x100);
    EXPECT_EQ(XuExtRomRead(camera.device(), 0, 0x100, read.data()), 0);
    EXPECT_EQ(read, camera.rom(0, 0x100));
    EXPECT_GE(camera.time().now_us() - before_us, 300'000U);
}
