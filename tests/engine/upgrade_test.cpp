// SPDX-License-Identifier: Apache-2.0
// Upgrades and erasures: what goes over the wire, and what is said of the ROM at any end.
#include <gtest/gtest.h>
#include "bench.h"

namespace {

using engine::Phase;
using engine::Reason;
using engine::RomContents;
using Kind = engine::Event::Kind;

const engine::UpgradeOptions kOnlyWrite = {.always = true, .backup = false, .verify = false};

/// The shipped models, and two whose firmware wants its block selected for every access.
std::vector<sim::CameraModel> all_models()
{
    std::vector<sim::CameraModel> all(sim::models().begin(), sim::models().end());
    for (const std::string_view name : {models::kLarch, models::kHawthorn}) {
        sim::CameraModel model = *sim::find_model(name);
        model.has_xu_version = true;
        model.selects_every_block = true;
        all.push_back(model);
    }
    return all;
}

/// What the library's own upgrade sends.
std::vector<sim::Transfer> sent_by_library(const sim::CameraModel& model,
                                           const engine::Images& images)
{
    ::Camera simulated{model, Time::kSimulated};
    NyDevice* device = simulated.device();
    nyxus_write_cycle_time = 5;
    const nyxus::Bytes firmware = images.firmware.bytes();
    std::copy(firmware.begin(), firmware.end(), nyxus_fw_bin);
    nyxus_fw_bin_size = static_cast<uint16_t>(firmware.size());
    nyxus_mfi_bin_size = static_cast<uint16_t>(images.mfi ? images.mfi->bytes().size() : 0);
    simulated.listen();
    const uint8_t* mfi = images.mfi ? images.mfi->bytes().data() : nullptr;
    EXPECT_EQ(MP_FwUpgrade(device, mfi), 0) << model.name;
    return simulated.sim().transfers();
}

/// What is read first, to see what has to be kept, changes nothing; an upgrade that keeps nothing
/// consists of the rest.
std::vector<sim::Transfer> without_reading(std::vector<sim::Transfer> sent, size_t rest)
{
    const auto begin = sent.end() - static_cast<ptrdiff_t>(std::min(rest, sent.size()));
    for (auto transfer = sent.begin(); transfer != begin; ++transfer) {
        const sim::Setup setup = sim::Setup::from_wire(transfer->setup);
        const bool reads = setup.selector() == ZRV_XU_EXT_ROM
                               ? setup.request == UVC_GET_CUR || (transfer->data[0] & 0xC0) == 0
                               : setup.selector() == ZRV_XU_Read_EXT_ROM_512 ||
                                     setup.selector() == ZRV_XU_FLASH_BLOCK ||
                                     setup.request == UVC_GET_CUR;
        EXPECT_TRUE(reads) << "control " << int{setup.selector()};
    }
    return {begin, sent.end()};
}

TEST(EngineUpgrade, SendsWhatTheLibrarysSendsAndPrintsNothing)
{
    for (const sim::CameraModel& model : all_models()) {
        for (const bool with_mfi : {false, true}) {
            engine::Images images = images_with_mfi(model, "SERIAL01");
            if (!with_mfi)
                images.mfi.reset();
            const auto expected = sent_by_library(model, images);
            Bench bench{model};
            engine::Camera camera = bench.open();
            bench.simulated.listen();
            const engine::Report report = bench.upgrade(camera, images, kOnlyWrite);
            EXPECT_TRUE(report.status) << model.name << report.status.text();
            EXPECT_EQ(report.rom, RomContents::kUnverified);
            EXPECT_GT(expected.size(), 100u) << model.name;
            const auto sent = without_reading(bench.simulated.sim().transfers(), expected.size());
            EXPECT_TRUE(sent == expected)
                << model.name << ": " << sent.size() << " transfers, not " << expected.size();
            EXPECT_EQ(bench.simulated.printed(), "") << model.name;
        }
    }
}

TEST(EngineUpgrade, GoesThroughItsPhasesAndLeavesTheImages)
{
    for (const std::string_view model : models::kAll) {
        Bench bench{model};
        const auto before = bench.simulated.rom(0, 0x8000);
        const engine::Images images = images_with_mfi(*sim::find_model(model), "SERIAL01");
        engine::Camera camera = bench.open();
        const engine::Report report = bench.upgrade(camera, images);
        ASSERT_TRUE(report.status) << model << report.status.text();
        EXPECT_EQ(report.rom, RomContents::kNew);
        EXPECT_EQ(report.bytes, images.firmware.bytes().size() + images.mfi->bytes().size());
        EXPECT_TRUE(bench.rom_begins_with(images.firmware.bytes())) << model;
        EXPECT_EQ(bench.simulated.rom(NYXUS_MFI_ROM_ADDR, images.mfi->bytes().size()),
                  copy(images.mfi->bytes()));
        EXPECT_EQ(
            bench.listener.phases(),
            camera.has_spi_flash()
                ? "reading reading again unlocking erasing programming locking verifying verifying "
                  "MFi"
                : "reading reading again unlocking programming locking verifying verifying MFi");
        for (const engine::Event& event : bench.listener.events)
            EXPECT_TRUE(event.kind != Kind::kEnds || event.done == event.total);
        auto kept = *engine::load_image(report.backup, 0x10000);
        kept.resize(before.size(), 0xFF);
        EXPECT_EQ(kept, before) << model;

        const engine::Report again = bench.upgrade(camera, images);
        EXPECT_TRUE(again.up_to_date);
        EXPECT_EQ(again.rom, RomContents::kNew);
        EXPECT_EQ(again.backup, "");
    }
}

TEST(EngineUpgrade, SaysAtAnyEndWhyAndWhatTheRomHolds)
{
    // clang-format off
    const struct {
        const char* model;
        const char* fault;
        Reason reason;
        RomContents rom;
        const char* message;
    } cases[] = {
        {"rowan-spi", R"(when = {rom_address = [0x1000, 0x1FFF]}, do = "lying-write")",
         Reason::kMismatch, RomContents::kIncomplete, "bytes differ, the first one at 0x1000 (ROM FF, image "},
        {"willow-eeprom", R"(when = {rom_address = [0x1000, 0x10FF]}, do = "lying-write")",
         Reason::kMismatch, RomContents::kIncomplete, "the first one at 0x1000"},
        {"cedar-spi", R"(when = {count = 7}, do = "stuck-busy")",
         Reason::kTimedOut, RomContents::kIncomplete, "the flash did not become ready in time"},
        {"larch-spi", R"(when = {}, do = "ignored-unlock")",
         Reason::kProtected, RomContents::kUnchanged, "the flash did not confirm its write protection"},
        {"rowan-spi", R"(when = {}, do = "ignored-unlock")",
         Reason::kProtected, RomContents::kUnchanged, "unlocking the ROM failed: the flash did not become ready in time; nothing was written"},
        {"rowan-spi", R"(when = {rom_address = 0x2000, request = "SET_CUR", count = 2}, do = "power-cut")",
         Reason::kCameraGone, RomContents::kIncomplete, "before: programming the ROM failed: the camera is gone, perhaps unplugged"},
        {"fi2-spi", R"(when = {rom_address = 0x2000, count = 3}, do = "stall")",
         Reason::kOther, RomContents::kIncomplete, "erasing the ROM failed: the camera rejected a request"},
        {"hawthorn-eeprom", R"(when = {rom_address = 0x1000, request = "SET_CUR"}, do = "io-error")",
         Reason::kOther, RomContents::kIncomplete, "USB transfer error; check the cable and the hub"},
        {"hawthorn-eeprom", R"(when = {rom_address = 0x1000, request = "GET_CUR"}, do = "io-error")",
         Reason::kOther, RomContents::kUnchanged, "reading failed at 0x1000: USB transfer error"},
        {"hawthorn-eeprom", R"(when = {rom_address = 0x1000, request = "GET_CUR", count = [3, 6]}, do = "io-error")",
         Reason::kOther, RomContents::kUnverified, "verifying failed at 0x1000: USB transfer error"},
        {"hawthorn-eeprom", R"(when = {rom_address = 0x1000, request = "GET_CUR"}, do = "unplug")",
         Reason::kCameraGone, RomContents::kUnchanged, "reading failed at 0x1000: the camera is gone"},
    };
    // clang-format on
    for (const auto& c : cases) {
        Bench bench{c.model};
        engine::Camera camera = bench.open();
        const auto before = bench.simulated.rom(0, 0x8000);
        bench.set_faults("fault = [{" + std::string(c.fault) + "}]");
        const engine::Report report = bench.upgrade(camera, images_for(c.model), {.wait_s = 1});
        EXPECT_EQ(report.status.reason(), c.reason) << c.fault << report.status.text();
        EXPECT_EQ(report.rom, c.rom) << c.fault << report.status.text();
        EXPECT_NE(report.status.message().find(c.message), std::string::npos)
            << report.status.text();
        EXPECT_EQ(bench.simulated.rom(0, 0x8000) == before, c.rom == RomContents::kUnchanged)
            << c.fault;
        EXPECT_NE(report.backup.empty(),
                  c.rom != RomContents::kUnchanged || c.reason == Reason::kProtected)
            << c.fault;
    }
}

TEST(EngineUpgrade, ARomThatStaysUnlockedIsToldAndNoFailure)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    bench.set_faults(R"(fault = [{when = {}, do = "ignored-lock"}])");
    const engine::Report report = bench.upgrade(camera, images_for(models::kRowan));
    EXPECT_TRUE(report.status) << report.status.text();
    EXPECT_TRUE(report.left_unlocked);
    EXPECT_EQ(report.rom, RomContents::kNew);
}

TEST(EngineUpgrade, StopsWhereItDoesNoHarm)
{
    const struct {
        Kind kind;
        Phase phase;
        RomContents rom;
        bool postponed;
        const char* phases;
    } cases[] = {
        {Kind::kBegins, Phase::kReading, RomContents::kUnchanged, false, "reading (reading)"},
        {Kind::kAdvances, Phase::kReading, RomContents::kUnchanged, false, "reading (reading)"},
        {Kind::kEnds, Phase::kReading, RomContents::kUnchanged, false,
         "reading reading again (reading again)"},
        {Kind::kEnds, Phase::kReadingAgain, RomContents::kUnchanged, false,
         "reading reading again"},
        {Kind::kBegins, Phase::kUnlocking, RomContents::kUnverified, true,
         "reading reading again unlocking erasing programming locking"},
        {Kind::kBegins, Phase::kErasing, RomContents::kUnverified, true,
         "reading reading again unlocking erasing programming locking"},
        {Kind::kAdvances, Phase::kProgramming, RomContents::kUnverified, true,
         "reading reading again unlocking erasing programming locking"},
        {Kind::kEnds, Phase::kLocking, RomContents::kUnverified, true,
         "reading reading again unlocking erasing programming locking"},
        {Kind::kAdvances, Phase::kVerifying, RomContents::kUnverified, false,
         "reading reading again unlocking erasing programming locking verifying (verifying)"},
    };
    for (const auto& c : cases) {
        Bench bench{models::kRowan};
        engine::Camera camera = bench.open();
        const engine::Images images = images_for(models::kRowan);
        bench.listener.stop_on(c.kind, c.phase);
        const engine::Report report = bench.upgrade(camera, images);
        EXPECT_EQ(report.status.reason(), Reason::kStopped) << c.phases;
        EXPECT_TRUE(report.stopped);
        EXPECT_EQ(report.rom, c.rom) << c.phases;
        EXPECT_EQ(bench.listener.phases(), c.phases);
        EXPECT_EQ(bench.listener.has(Kind::kStopPostponed), c.postponed) << c.phases;
        EXPECT_EQ(bench.rom_begins_with(images.firmware.bytes()), c.rom != RomContents::kUnchanged);
    }
}

TEST(EngineUpgrade, AStopThatWaitsWhenItFailsIsTold)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    bench.set_faults(
        R"(fault = [{when = {rom_address = 0x2000, request = "SET_CUR", count = 2}, do = "unplug"}])");
    bench.listener.stop_on(Kind::kBegins, Phase::kProgramming);
    const engine::Report report = bench.upgrade(camera, images_for(models::kRowan));
    EXPECT_EQ(report.status.reason(), Reason::kCameraGone) << report.status.text();
    EXPECT_TRUE(report.stopped);
    EXPECT_EQ(report.rom, RomContents::kIncomplete);
    EXPECT_FALSE(bench.listener.has(Kind::kLost)) << "it is not waited for";
}

TEST(EngineUpgrade, TellsBeforehandWhatAnEndInTheMiddleMeans)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan)).status);
    std::vector<std::pair<RomContents, bool>> outlooks;
    for (const engine::Event& event : bench.listener.events) {
        if (event.kind == Kind::kOutlook)
            outlooks.emplace_back(event.rom, event.stop_waits);
    }
    const std::vector<std::pair<RomContents, bool>> expected = {{RomContents::kUnchanged, false},
                                                                {RomContents::kIncomplete, true},
                                                                {RomContents::kUnverified, false},
                                                                {RomContents::kNew, false}};
    EXPECT_EQ(outlooks, expected);
}

TEST(EngineUpgrade, APlanCountsWhatItSends)
{
    for (const std::string_view model : models::kAll) {
        Bench bench{model};
        const uint8_t notes[] = {1, 2, 3};
        std::ranges::copy(notes, bench.simulated.sim().controller()->rom.begin() + 0x7C00);
        engine::Camera camera = bench.open();
        const engine::Images images = images_with_mfi(*sim::find_model(model), "SERIAL01");
        const auto before = bench.simulated.rom(0, replaced_bytes(camera));
        const engine::Plan plan = engine::plan_upgrade(camera, images, {}, before);
        EXPECT_EQ(plan.kept.empty(), !camera.has_spi_flash()) << model;
        engine::Cost cost;
        for (const engine::Step& step : plan.steps)
            cost += engine::cost_of(camera, step);
        bench.simulated.listen();
        const uint64_t begun_us = bench.simulated.time().now_us();
        ASSERT_TRUE(bench.upgrade(camera, images).status) << model;
        const auto sent = bench.simulated.sim().transfers();
        const auto polls = std::ranges::count_if(sent, [](const sim::Transfer& transfer) {
            return sim::Setup::from_wire(transfer.setup).selector() == ZRV_XU_SPI_STATUS;
        });
        EXPECT_LE(cost.transfers, sent.size()) << model;
        EXPECT_GE(cost.transfers, sent.size() - static_cast<size_t>(polls)) << model;
        EXPECT_LE(cost.pauses_s,
                  static_cast<double>(bench.simulated.time().now_us() - begun_us) / 1e6);
    }
}

TEST(EngineErase, LeavesABlankFlashOrSaysWhatIsLeft)
{
    const struct {
        const char* model;
        const char* faults;
        Reason reason;
        RomContents rom;
    } cases[] = {
        {"rowan-spi", "[]", Reason::kNone, RomContents::kErased},
        {"cedar-spi", "[]", Reason::kNone, RomContents::kErased},
        {"hawthorn-eeprom", "[]", Reason::kNotSupported, RomContents::kUnchanged},
        {"rowan-spi", R"(fault = [{when = {}, do = "ignored-unlock"}])", Reason::kProtected,
         RomContents::kUnchanged},
        {"rowan-spi", R"(fault = [{when = {}, do = "lying-erase"}])", Reason::kMismatch,
         RomContents::kIncomplete},
        {"rowan-spi", R"(fault = [{when = {rom_address = 0x2000}, do = "stuck-busy"}])",
         Reason::kTimedOut, RomContents::kIncomplete},
    };
    for (const auto& c : cases) {
        Bench bench{c.model};
        engine::Camera camera = bench.open();
        bench.set_faults(c.faults);
        const engine::Report report = engine::erase(camera, bench.backups, bench.listener.caller());
        EXPECT_EQ(report.status.reason(), c.reason) << c.faults << report.status.text();
        EXPECT_EQ(report.rom, c.rom) << c.faults;
        const bool is_blank = engine::is_blank(bench.simulated.rom(0, 0x8000));
        EXPECT_TRUE(is_blank ? c.rom != RomContents::kUnchanged : c.rom != RomContents::kErased);
    }
}

} // namespace
