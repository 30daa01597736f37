// SPDX-License-Identifier: Apache-2.0
// Cameras that go and come back, are blank, or work side by side.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include "bench.h"
#include "files/pipe.h"

#include <csignal>
#include <thread>

namespace {

using engine::Phase;
using engine::Reason;
using engine::RomContents;
using Kind = engine::Event::Kind;

constexpr char kUnplug[] =
    R"(fault = [{when = {rom_address = 0x2000, request = "SET_CUR", count = 2}, times = 1, do = "unplug"}])";
constexpr char kUnplugInReading[] =
    R"(fault = [{when = {rom_address = 0x2000, request = "GET_CUR", count = 3}, times = 1, do = "unplug"}])";

TEST(EngineCameras, AnUpgradeGoesOnWithACameraThatComesBack)
{
    const struct {
        const char* faults;
        RomContents lost_with;
        const char* phases;
    } cases[] = {
        {kUnplug, RomContents::kIncomplete,
         "reading reading again unlocking erasing programming (programming) waiting for the camera "
         "reading unlocking erasing programming locking verifying"},
        {kUnplugInReading, RomContents::kUnverified,
         "reading reading again unlocking erasing programming locking verifying (verifying) "
         "waiting for the "
         "camera reading verifying"},
    };
    for (const auto& c : cases) {
        Bench bench{models::kRowan};
        engine::Camera camera = bench.open();
        const engine::Images images = images_for(models::kRowan);
        bench.set_faults(c.faults);
        bench.listener.on(Kind::kBegins, Phase::kWaiting, [&] {
            bench.simulated.bed().settle();
            bench.simulated.bed().replug(bench.simulated.sim());
        });
        const engine::Report report = bench.upgrade(camera, images);
        hold_device(camera);
        EXPECT_TRUE(report.status) << report.status.text();
        EXPECT_EQ(report.rom, RomContents::kNew);
        EXPECT_TRUE(bench.rom_begins_with(images.firmware.bytes()));
        EXPECT_EQ(bench.listener.phases(), c.phases);
        const auto lost =
            std::ranges::find(bench.listener.events, Kind::kLost, &engine::Event::kind);
        EXPECT_EQ(lost->rom, c.lost_with);
        EXPECT_EQ(lost->status.reason(), Reason::kCameraGone);
        EXPECT_TRUE(bench.listener.has(Kind::kRetries));
    }
}

TEST(EngineCameras, AnotherOneInThePortIsLeftAlone)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    sim::TestBed& bed = bench.simulated.bed();
    sim::PluggedCamera& other = bed.plug(*sim::find_model(models::kRowan), {.serial = "OTHER"});
    bed.unplug(other);
    bench.set_faults(kUnplug);
    bench.listener.on(Kind::kBegins, Phase::kWaiting, [&] {
        bed.settle(); // the port is free then
        bed.replug(other, bench.simulated.sim().port());
    });
    other.clear_transfers();
    const NeverFreed device_object; // of the other camera
    const engine::Report report = bench.upgrade(camera, images_for(models::kRowan));
    EXPECT_EQ(report.status.reason(), Reason::kCameraGone);
    EXPECT_EQ(report.rom, RomContents::kIncomplete);
    EXPECT_NE(report.status.message().find("is at port 1-1 now, but perhaps not the camera with "
                                           "serial number SIM00001 that went away (its ROM does "
                                           "not hold what was left there), so it is left "
                                           "alone; before: programming the ROM failed"),
              std::string::npos)
        << report.status.message();
    for (const sim::Transfer& sent : other.transfers()) {
        const sim::Setup setup = sim::Setup::from_wire(sent.setup);
        EXPECT_FALSE(setup.request == 0x01 && sent.data.size() > 1 &&
                     (sent.data[0] & XU_FLAG_WRITE) != 0 && setup.selector() == ZRV_XU_EXT_ROM);
    }
}

TEST(EngineCameras, TheRomTellsWhetherItIsTheLostOneThatComesBack)
{
    using Rom = std::vector<uint8_t>;
    const auto as_left = [](const Rom& left) { return left; };
    const auto blank = [](const Rom& left) { return Rom(left.size(), 0xFF); };
    const auto factory = [](const Rom&) { return Rom(); };
    const auto touched = [](Rom left) {
        left[0x1000] ^= 1;
        return left;
    };
    const char* const kOwn = "SIM00001";
    const char* const kChips = "FROMCHIP";
    const struct {
        const char* what;
        Kind kind;
        Phase phase; ///< in which it is lost
        bool for_one_unit;
        const char* serial; ///< of what comes back
        std::function<Rom(const Rom&)> rom;
        bool goes_on;
    } cases[] = {
        {"itself before the erase", Kind::kBegins, Phase::kErasing, false, kOwn, as_left, true},
        {"no proof before it", Kind::kBegins, Phase::kErasing, false, kChips, as_left, false},
        {"a twin before it", Kind::kBegins, Phase::kErasing, false, kOwn, touched, false},
        {"a twin after it", Kind::kBegins, Phase::kProgramming, false, kOwn, factory, false},
        {"itself, erased", Kind::kBegins, Phase::kProgramming, true, kOwn, as_left, true},
        {"the chip's number", Kind::kBegins, Phase::kProgramming, false, kChips, as_left, true},
        {"not with one's own", Kind::kBegins, Phase::kProgramming, true, kChips, as_left, false},
        {"proof by ROM", Kind::kAdvances, Phase::kProgramming, true, kChips, as_left, true},
        {"a twin with firmware", Kind::kAdvances, Phase::kProgramming, true, kOwn, factory, false},
        {"a twin without", Kind::kAdvances, Phase::kProgramming, true, kOwn, blank, false},
        {"itself, complete", Kind::kBegins, Phase::kVerifying, false, kOwn, as_left, true},
        {"its like, complete", Kind::kBegins, Phase::kVerifying, false, kChips, as_left, false},
        {"its own MFi image", Kind::kBegins, Phase::kVerifying, true, kChips, as_left, true},
    };
    for (const auto& c : cases) {
        Bench bench{models::kRowan};
        engine::Camera camera = bench.open();
        sim::TestBed& bed = bench.simulated.bed();
        Rom left;
        bench.listener.on(c.kind, c.phase, [&] { bed.unplug(bench.simulated.sim()); });
        bench.listener.on(Kind::kBegins, Phase::kWaiting, [&] {
            left = bench.simulated.rom(0, 0x10000);
            const Rom rom = c.rom(left);
            sim::PluggedCamera& other =
                bed.plug(*sim::find_model(models::kRowan), {.serial = c.serial, .rom = rom});
            bed.unplug(other);
            bed.replug(other, bench.simulated.sim().port());
        });
        engine::Images images = images_with_mfi(*sim::find_model(models::kRowan), "SERIAL01");
        if (!c.for_one_unit)
            images.mfi.reset();
        const NeverFreed device_object;
        const engine::Report report = bench.upgrade(camera, images);
        EXPECT_EQ(report.status.ok(), c.goes_on) << c.what << ": " << report.status.text();
        EXPECT_EQ(bench.listener.has(Kind::kRetries), c.goes_on) << c.what;
        const std::filesystem::directory_iterator units(bench.folder.path() / "state/units");
        EXPECT_EQ(std::distance(begin(units), end(units)), 1) << c.what;
        EXPECT_FALSE(c.goes_on && bench.backups.history(camera).needs_care()) << c.what;
    }
}

TEST(EngineCameras, WaitingForALostOneEnds)
{
    for (const bool by_stop : {true, false}) {
        Bench bench{models::kRowan};
        engine::Camera camera = bench.open();
        bench.set_faults(kUnplug);
        if (by_stop)
            bench.listener.stop_on(Kind::kBegins, Phase::kWaiting);
        const engine::Report report =
            bench.upgrade(camera, images_for(models::kRowan), {.wait_s = 3});
        EXPECT_EQ(report.status.reason(), by_stop ? Reason::kStopped : Reason::kCameraGone);
        EXPECT_EQ(report.stopped, by_stop);
        EXPECT_EQ(report.rom, RomContents::kIncomplete);
        EXPECT_EQ(camera.device(), nullptr);
        const double waited_s = bench.listener.events.back().seconds;
        EXPECT_TRUE(by_stop ? waited_s < 0.1 : waited_s >= 3 && waited_s < 3.5) << waited_s;
    }
}

TEST(EngineCameras, TellWhyTheyCannotBeOpened)
{
    const struct {
        const char* what;
        std::function<void(::Camera&)> arrange;
        Reason reason;
        const char* message;
    } cases[] = {
        {"stalled", [](::Camera& c) { c.fail(0x81, 0x0D, sim::Fault::stall()); }, Reason::kOther,
         "cannot identify camera ADDRESS: the camera rejected a request"},
        {"unknown chip", [](::Camera& c) { c.answer(0x81, 0x0D, std::vector<uint8_t>(11, 'X')); },
         Reason::kNotSupported, "cannot identify camera ADDRESS: unknown controller, "},
        {"unplugged", [](::Camera& c) { c.bed().unplug(c.sim()); }, Reason::kCameraGone,
         "cannot open camera ADDRESS: the camera is gone, perhaps unplugged"},
        {"in use", [](::Camera& c) { c.device(); }, Reason::kBusy,
         "cannot open camera ADDRESS: another program uses the camera"},
    };
    for (const auto& c : cases) {
        Bench bench{models::kRowan};
        const auto info = *nyxus::find_camera();
        c.arrange(bench.simulated);
        const NeverFreed device_object;
        const auto camera = engine::Camera::open(info);
        EXPECT_EQ(camera.status().reason(), c.reason) << c.what << camera.status().text();
        const std::string message = c.message; // the address counts on from test to test
        const std::string expected =
            std::string(message).replace(message.find("ADDRESS"), 7, info.bus_address());
        EXPECT_EQ(camera.status().message().find(expected), 0u) << camera.status().text();
    }
}

TEST(EngineCameras, TellWhoUsesThem)
{
    Bench bench{models::kRowan};
    const auto info = *nyxus::find_camera();
    bench.simulated.device(); // which takes it
    char node[64];
    snprintf(node, sizeof node, "/dev/bus/usb/%03u/%03u", info.bus, info.address);
    const std::string file = bench.simulated.bed().folder() + node;
    const files::Pipe ready = files::make_pipe();
    const pid_t user = fork();
    if (user == 0) {
        (void)syscall(SYS_openat, AT_FDCWD, file.c_str(), O_RDONLY, 0); // not the simulator's
        (void)!write(ready.write_end.get(), "y", 1);
        for (;;)
            pause();
    }
    char byte = 0;
    ASSERT_EQ(read(ready.read_end.get(), &byte, 1), 1);
    const NeverFreed device_object;
    const std::string message = engine::Camera::open(info).status().message();
    EXPECT_TRUE(
        message.ends_with(" (process " + std::to_string(user) + "); close it and try again"))
        << message;
    kill(user, SIGKILL);
    waitpid(user, nullptr, 0);
}

TEST(EngineCameras, ABlankOneIsOpenedAndAnEepromNamed)
{
    for (const std::string_view model : {models::kCedar, models::kHawthorn}) {
        const bool spi = model == models::kCedar;
        Bench bench{model, std::vector<uint8_t>(spi ? 0x10000 : 0x8000, 0xFF)};
        engine::Camera camera = bench.open();
        EXPECT_EQ(camera.rom_state(), spi ? nyxus::RomState::kBlank : nyxus::RomState::kUnknown);
        EXPECT_EQ(camera.require_rom(0).reason(), spi ? Reason::kNone : Reason::kUnknownRom);
        EXPECT_TRUE(camera.require_rom(0x8000));
        const engine::Report report = bench.upgrade(camera, images_for(model));
        EXPECT_TRUE(report.status) << model << report.status.text();
    }
}

TEST(EngineCameras, AreWaitedForByName)
{
    Bench bench{models::kRowan};
    sim::TestBed& bed = bench.simulated.bed();
    bed.unplug(bench.simulated.sim());
    EXPECT_TRUE(engine::wait_for_cameras("1-1", 1, bench.listener.caller())->empty());
    EXPECT_EQ(bench.listener.phases(), "waiting for the camera (waiting for the camera)");
    Listener second;
    second.on(Kind::kBegins, Phase::kWaiting, [&] { bed.replug(bench.simulated.sim()); });
    EXPECT_EQ(engine::wait_for_cameras("1-1", 1, second.caller())->size(), 1u);
    EXPECT_TRUE(engine::wait_for_cameras("1-2", 0, {})->empty());
}

TEST(EngineCameras, TwoAreUpgradedInTwoThreadsAtOnce)
{
    Bench bench{models::kFi2};
    sim::PluggedCamera& larch = bench.simulated.bed().plug(*sim::find_model(models::kLarch));
    const engine::Images images[] = {images_for(models::kFi2), images_for(models::kLarch)};
    const auto infos = *nyxus::list_cameras();
    ASSERT_EQ(infos.size(), 2u);
    engine::Report reports[2];
    const auto work = [&](size_t which) {
        const NeverFreed device_object;
        auto camera = engine::Camera::open(infos[which]);
        ASSERT_TRUE(camera) << camera.status().text();
        reports[which] = engine::upgrade(*camera, images[which], {}, bench.backups, {});
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    for (const engine::Report& report : reports)
        EXPECT_EQ(report.rom, RomContents::kNew) << report.status.text();
    EXPECT_TRUE(bench.rom_begins_with(images[0].firmware.bytes()));
    const std::span<const uint8_t> rom = (*larch.controller()).rom;
    EXPECT_TRUE(std::ranges::equal(images[1].firmware.bytes(),
                                   rom.first(images[1].firmware.bytes().size())));
    EXPECT_NE(reports[0].backup, reports[1].backup);
}

} // namespace
