// SPDX-License-Identifier: Apache-2.0
// What an upgrade does not replace stays, or the plan says why not.
#include <gtest/gtest.h>
#include "bench.h"

namespace {

using Kind = engine::Event::Kind;
using Contents = std::vector<uint8_t>;

constexpr uint32_t kMfi = NYXUS_MFI_ROM_ADDR;
constexpr uint32_t kReserved = SPI_RESERVED_ADDR;

void put(Contents& rom, uint32_t address, const Contents& bytes)
{
    rom.resize(std::max(rom.size(), address + bytes.size()), 0xFF);
    std::ranges::copy(bytes, rom.begin() + address);
}

const Contents kNotes = {1, 2, 3, 0xFF, 5};

/// Firmware, an MFi image, notes in the reserved area, and data of others, also in another block.
Contents full_rom(const sim::CameraModel& model, uint32_t firmware_bytes = 0x5A3C)
{
    Contents rom(sim::rom_bytes(model), 0xFF);
    put(rom, 0, image_bytes(model, firmware_bytes));
    put(rom, kMfi, sim::make_mfi_image(7, "UNIT0007"));
    put(rom, kReserved, kNotes);
    for (const uint32_t address : {0x7130u, 0x9000u, 0xC2FFu, 0x1'2340u}) {
        if (address + kNotes.size() < rom.size())
            put(rom, address, kNotes);
    }
    return rom;
}

uint32_t size_of(const Contents& contents)
{
    return static_cast<uint32_t>(contents.size());
}

/// The image over what was there, with the rest of the former firmware gone, and what lies behind.
Contents expected_after(Contents before, nyxus::Bytes image, uint32_t lost_from)
{
    std::fill_n(before.begin(), kMfi, uint8_t{0xFF});
    std::fill(before.begin() + lost_from, before.end(), uint8_t{0xFF});
    std::ranges::copy(image, before.begin());
    return before;
}

std::string names(const std::vector<engine::Part>& parts)
{
    std::string text;
    for (const engine::Part& part : parts)
        text += (text.empty() ? "" : ", ") + to_text(part);
    return text;
}

TEST(EngineKeeping, WhatTheEraseTakesAndTheImageDoesNotReplaceIsThereAgain)
{
    for (const char* name : {"rowan-spi", "cedar-spi", "larch-spi", "fi2-spi"}) {
        const sim::CameraModel& model = *sim::find_model(name);
        const Contents before = full_rom(model);
        Bench bench{name, before};
        engine::Camera camera = bench.open();
        const engine::Images images{*engine::Firmware::from(image_bytes(model, 4096))};
        const engine::Report report = bench.upgrade(camera, images);
        ASSERT_TRUE(report.status) << name << report.status.text();
        EXPECT_EQ(report.rom, engine::RomContents::kNew);
        EXPECT_EQ(report.bytes, 4096u);
        EXPECT_TRUE(bench.listener.has(Kind::kKept)) << name;
        const bool all_erased = erased_flash_bytes(camera) > engine::kRomBlock;
        EXPECT_EQ(bench.simulated.rom(0, before.size()),
                  expected_after(before, images.firmware.bytes(),
                                 all_erased ? engine::kRomBlock : size_of(before)))
            << name;
        camera = *engine::restart(std::move(camera), 5, bench.backups, {});
        hold_device(camera);
        EXPECT_TRUE(engine::check_started(camera, bench.backups)) << name;
        EXPECT_EQ(camera.info().serial, "UNIT0007") << "it is in the MFi image";
    }
}

TEST(EngineKeeping, TheWholePartIsKeptWhereThatIsAskedFor)
{
    const sim::CameraModel& model = *sim::find_model(models::kRowan);
    const Contents before = full_rom(model);
    for (const engine::Keep keep : {engine::Keep::kFirst64K, engine::Keep::kWhole}) {
        Bench bench{models::kRowan, before};
        engine::Camera camera = bench.open();
        const engine::Images images{*engine::Firmware::from(image_bytes(model, 4096))};
        ASSERT_EQ(erased_flash_bytes(camera), before.size());
        const engine::Report report = bench.upgrade(camera, images, {.keep = keep});
        ASSERT_TRUE(report.status) << report.status.text();
        const bool whole = keep == engine::Keep::kWhole;
        EXPECT_EQ(bench.simulated.rom(0, before.size()),
                  expected_after(before, images.firmware.bytes(),
                                 whole ? size_of(before) : engine::kRomBlock));
        EXPECT_EQ(bench.listener.has(Kind::kNotKept), !whole);
        EXPECT_TRUE(engine::Firmware::load_rom(report.backup)) << "it can be recovered from";
    }
}

TEST(EngineKeeping, ThePlanNamesWhatIsKeptReplacedAndLost)
{
    const sim::CameraModel& rowan = *sim::find_model(models::kRowan);
    const sim::CameraModel& hawthorn = *sim::find_model(models::kHawthorn);
    sim::CameraModel fi2 = *sim::find_model(models::kFi2); // which selects no blocks
    fi2.flash = rowan.flash;
    const struct {
        const sim::CameraModel& model;
        uint32_t former;
        uint32_t image;
        engine::UpgradeOptions options;
        const char* kept;
        const char* replaced;
        const char* lost;
        const char* unreachable = "";
    } cases[] = {
        {rowan,
         0x5A3C,
         0x1000,
         {},
         "MFi image (256 bytes from 0x6000), other data (256 bytes from 0x7100), reserved area "
         "(256 "
         "bytes from 0x7F00), other data (13312 bytes from 0x9000)",
         "firmware (23296 bytes from 0x0000)",
         "what else the flash holds (65536 bytes from 0x10000): the controller does not use it, "
         "and it is not looked at"},
        {rowan,
         0x5A3C,
         0x1000,
         {.keep = engine::Keep::kWhole, .discard = {true, true}},
         "other data (256 bytes from 0x7100), other data (37888 bytes from 0x9000)",
         "firmware (23296 bytes from 0x0000)",
         "MFi image (256 bytes from 0x6000): it is not wanted, reserved area (256 bytes from "
         "0x7F00): it is not wanted"},
        // The image lies over the first notes, and over the MFi image.
        {rowan,
         0x5A3C,
         0x7200,
         {.keep = engine::Keep::kWhole, .discard = {.reserved = true}},
         "other data (37888 bytes from 0x9000)",
         "firmware (23296 bytes from 0x0000)",
         "MFi image (256 bytes from 0x6000): the image overwrites it, other data (256 bytes from "
         "0x7100): the image overwrites it, reserved area (256 bytes from 0x7F00): it is not "
         "wanted"},
        // Without a gap before it, the MFi image is known by its header.
        {rowan,
         0x6000,
         0x1000,
         {.keep = engine::Keep::kWhole, .discard = {true, true}},
         "other data (256 bytes from 0x7100), other data (37888 bytes from 0x9000)",
         "firmware (24576 bytes from 0x0000)",
         "MFi image (256 bytes from 0x6000): it is not wanted, reserved area (256 bytes from "
         "0x7F00): it is not wanted"},
        {fi2,
         0x5A3C,
         0x1000,
         {.keep = engine::Keep::kWhole, .discard = {true, true}},
         "other data (256 bytes from 0x7100), other data (13312 bytes from 0x9000)",
         "firmware (23296 bytes from 0x0000)",
         "MFi image (256 bytes from 0x6000): it is not wanted, reserved area (256 bytes from "
         "0x7F00): it is not wanted",
         "what else the flash holds (65536 bytes from 0x10000): the camera cannot be asked for it"},
        {hawthorn, 0x2000, 0x1000, {}, "", "firmware (8192 bytes from 0x0000)", ""},
        {hawthorn,
         0x2000,
         0x7000,
         {},
         "",
         "firmware (8192 bytes from 0x0000)",
         "MFi image (256 bytes from 0x6000): the image overwrites it"},
    };
    for (const auto& c : cases) {
        const Contents before = full_rom(c.model, c.former);
        Bench bench{c.model, before};
        engine::Camera camera = bench.open();
        const engine::Images images{*engine::Firmware::from(image_bytes(c.model, c.image))};
        const nyxus::Bytes read = nyxus::Bytes(before).subspan(
            0, std::min<size_t>(before.size(), bytes_before(camera, c.options)));
        const engine::Plan plan = engine::plan_upgrade(camera, images, c.options, read);
        EXPECT_EQ(names(plan.kept), c.kept);
        EXPECT_EQ(names(plan.replaced), c.replaced);
        EXPECT_EQ(names(plan.lost), c.lost);
        EXPECT_EQ(names(plan.unreachable), c.unreachable);
    }
}

// What of a former firmware is longer than the new one is not taken for data.
TEST(EngineKeeping, TheRestOfTheFormerFirmwareIsNotKept)
{
    const sim::CameraModel& model = *sim::find_model(models::kRowan);
    Bench bench{models::kRowan, image_bytes(model, 0x8000)};
    engine::Camera camera = bench.open();
    const engine::Images images{*engine::Firmware::from(image_bytes(model, 4096))};
    ASSERT_TRUE(bench.upgrade(camera, images).status);
    EXPECT_FALSE(bench.listener.has(Kind::kKept));
    EXPECT_TRUE(engine::is_blank(bench.simulated.rom(4096, 0xF000)));
}

// Addresses wrap in a part of 32 KiB; what is read behind its end is no other data.
TEST(EngineKeeping, NothingLiesBehindTheEndOfAPart)
{
    sim::CameraModel model = *sim::find_model(models::kRowan);
    model.flash.name = "ISSI Pm25LD025C";
    model.flash.id = {0x7F, 0x9D, 0x2F};
    model.flash.size_bytes = 0x8000;
    Bench bench{model, full_rom(model)};
    engine::Camera camera = bench.open();
    ASSERT_EQ(engine::part_bytes(camera), 0x8000u);
    const Contents once = full_rom(model);
    Contents before = once;
    before.insert(before.end(), once.begin(), once.end());
    const engine::Images images{*engine::Firmware::from(image_bytes(model, 4096))};
    for (const engine::Part& part : engine::plan_upgrade(camera, images, {}, before).kept)
        EXPECT_LE(part.address + part.size, 0x8000u);
}

TEST(EngineKeeping, WhatIsKeptIsVerifiedAndStandsBeforeTheHeaderDoes)
{
    const sim::CameraModel& model = *sim::find_model(models::kRowan);
    const struct {
        const char* fault;
        engine::Reason reason;
        const char* message;
    } cases[] = {
        {R"(when = {rom_address = [0x9000, 0x90FF]}, do = "lying-write")",
         engine::Reason::kMismatch, "the first one at 0x9000 (ROM FF, before 01)"},
        {R"(when = {rom_address = 0x9000, request = "SET_CUR", count = 2}, do = "stall")",
         engine::Reason::kOther, "programming the ROM failed"},
    };
    for (const auto& c : cases) {
        Bench bench{models::kRowan, full_rom(model)};
        engine::Camera camera = bench.open();
        bench.set_faults("fault = [{" + std::string(c.fault) + "}]");
        const engine::Images images{*engine::Firmware::from(image_bytes(model, 4096))};
        const engine::Report report = bench.upgrade(camera, images);
        EXPECT_EQ(report.status.reason(), c.reason) << report.status.text();
        EXPECT_NE(report.status.message().find(c.message), std::string::npos)
            << report.status.text();
        EXPECT_EQ(report.rom, engine::RomContents::kIncomplete);
        EXPECT_EQ(engine::is_blank(bench.simulated.rom(0, engine::Firmware::kHeaderBytes)),
                  c.reason == engine::Reason::kOther);
    }
}

} // namespace
