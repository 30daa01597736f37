// SPDX-License-Identifier: Apache-2.0
// The C++ layer on the simulated camera: what it adds to the C interface.
#include <nyxus/nyxus.hpp>
#include <nyxus/simulator_gtest.hpp>

#include <unistd.h>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <span>

#include "support/captured.h"
#include "support/never_freed.h"

namespace {

/// Device objects are never freed, on purpose: held here, they are no leak to the sanitizer.
void hold(nyxus::Camera& camera)
{
    static auto& never_freed = *new std::vector<NyDevice*>;
    never_freed.push_back(camera.device());
}

nyxus::Camera open(const nyxus::Result<nyxus::CameraInfo>& info)
{
    auto camera = nyxus::Camera::open(info.value());
    EXPECT_TRUE(camera) << camera.status().message();
    hold(*camera);
    return std::move(*camera);
}

std::string fault(const std::string& when, const std::string& effect)
{
    return "[[fault]]\nwhen = { " + when + " }\ntimes = 1\n" + effect;
}

} // namespace

using CppList = nyxus::simulator::Test;
using CppCamera = nyxus::simulator::Test;
using CppRom = nyxus::simulator::Test;
using CppVideo = nyxus::simulator::Test;
using CppControls = nyxus::simulator::Test;

TEST_F(CppList, ACameraIsFoundByEachOfItsNamesAndMissedByOthers)
{
    bus.plug("rowan-spi");
    bus.plug("cedar-spi,bus=2,serial=C2");
    const auto list = nyxus::list_cameras();
    ASSERT_TRUE(list);
    ASSERT_EQ(list->size(), 2u);
    const nyxus::CameraInfo& cedar = list->back();
    EXPECT_EQ(cedar.serial, "C2");
    for (const std::string& name : {std::string("C2"), cedar.port_path, cedar.bus_address()})
        EXPECT_EQ(nyxus::find_camera(name)->serial, "C2") << name;
    EXPECT_TRUE(nyxus::can_open(cedar));
    EXPECT_TRUE(nyxus::can_claim(cedar));

    EXPECT_EQ(nyxus::find_camera().status().code(), NYXUS_E_RANGE) << "two cameras";
    for (const char* name : {"C3", "2:", ":2", "2:99999999999"})
        EXPECT_EQ(nyxus::find_camera(name).status().usb_code(), LIBUSB_ERROR_NO_DEVICE) << name;
}

TEST_F(CppList, AWatchTellsOfThoseThatAreThereComeAndGo)
{
    const auto rowan = bus.plug("rowan-spi,serial=R1");
    nyxus::CameraWatch watch;
    const auto next = [&] {
        const auto event = watch.next(0);
        EXPECT_TRUE(event) << event.status().message();
        return event ? (event->here ? "here " : "gone ") + event->camera.serial : "nothing";
    };
    EXPECT_EQ(next(), "here R1");
    EXPECT_EQ(watch.next(250).status().reason(), nyxus::Reason::kTimedOut);

    const auto cedar = bus.plug("cedar-spi,bus=2,serial=C2");
    EXPECT_EQ(next(), "here C2");
    cedar.unplug();
    rowan.unplug();
    rowan.replug();
    EXPECT_EQ(next(), "gone R1");
    EXPECT_EQ(next(), "gone C2");
    EXPECT_EQ(next(), "here R1");

    size_t events = 0;
    nyxus::CameraWatch other;
    EXPECT_TRUE(other.run([&](const nyxus::CameraEvent&) {
        ++events;
        other.stop();
    }));
    EXPECT_EQ(events, 1u);
    EXPECT_EQ(other.next(1000).status().reason(), nyxus::Reason::kStopped);
}

TEST_F(CppCamera, IsGivenBackAfterARestart)
{
    const auto simulated = bus.plug();
    nyxus::Camera camera = open(nyxus::find_camera());
    const nyxus::CameraInfo before = camera.info();
    EXPECT_EQ(nyxus::wait_for_restart(before, 200).status().reason(), nyxus::Reason::kTimedOut)
        << "it has not left";
    EXPECT_EQ(nyxus::wait_for_restart(before, 1000, [] { return true; }).status().reason(),
              nyxus::Reason::kStopped);

    (void)camera.restart();
    auto again = camera.wait_for_restart(10'000);
    ASSERT_TRUE(again) << again.status().message();
    hold(*again);
    EXPECT_NE(again->info().address, before.address);
    EXPECT_EQ(again->chip(), "NY6410");

    again->close();
    simulated.unplug();
    EXPECT_EQ(nyxus::wait_for_restart(before, 200).status().reason(), nyxus::Reason::kNotBack);
}

TEST(CppStatus, EachFailureHasAReason)
{
    using nyxus::Reason;
    using nyxus::Status;
    const struct {
        Status status;
        Reason reason;
    } cases[] = {
        {Status(), Reason::kNone},
        {Status::of_libusb(LIBUSB_ERROR_NO_DEVICE), Reason::kCameraGone},
        {Status::of_libusb(LIBUSB_ERROR_ACCESS), Reason::kPermissionDenied},
        {Status::of_libusb(LIBUSB_ERROR_PIPE), Reason::kOther},
        {Status::of_video(UVC_ERROR_BUSY), Reason::kBusy},
        {Status::of_video(UVC_ERROR_INTERRUPTED), Reason::kStopped},
        {Status::of_video(UVC_ERROR_INVALID_MODE), Reason::kNotSupported},
        {Status::of(NYXUS_E_BUSY), Reason::kTimedOut},
        {Status::of(NYXUS_E_TIMEOUT), Reason::kProtected},
        {Status::of(NYXUS_E_SYSTEM(ENOSPC)), Reason::kFile},
        {Status(NYXUS_E_RANGE, "out of range"), Reason::kOutOfRange},
        {Status(Reason::kNotBack, "not back"), Reason::kNotBack},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.status.reason(), c.reason) << c.status.message();
        EXPECT_EQ(c.status.ok(), c.reason == Reason::kNone);
    }
}

TEST_F(CppCamera, TellsWhyItCannotBeOpened)
{
    const struct {
        const char* what;
        const char* effect;
        int32_t code;
        nyxus::Origin origin;
    } cases[] = {
        {"stalled", R"(do = "stall")", -16393, nyxus::Origin::kUsb},
        {"unknown chip", "do = \"wrong-length\"\nbytes = 0", 3, nyxus::Origin::kLibrary},
        {"unplugged", R"(do = "unplug")", -16388, nyxus::Origin::kUsb},
    };
    for (const auto& c : cases) {
        const auto simulated = bus.plug();
        const auto info = nyxus::find_camera();
        simulated.set_faults(fault("request = \"GET_CUR\", selector = 13", c.effect));
        const NeverFreed device_object;
        const auto camera = nyxus::Camera::open(*info);
        ASSERT_FALSE(camera) << c.what;
        EXPECT_EQ(camera.status().code(), c.code) << c.what;
        EXPECT_EQ(camera.status().origin(), c.origin) << c.what;
        EXPECT_FALSE(camera.status().message().empty()) << c.what;
        simulated.remove();
    }
}

TEST_F(CppCamera, ABlankOneIsOpenedByAskingItsFlash)
{
    bus.plug("rowan-spi,blank");
    const auto info = nyxus::find_camera();
    EXPECT_EQ(nyxus::Camera::open(*info).status().code(), NYXUS_E_INVALID);
    auto camera = nyxus::Camera::open_blank(*info);
    ASSERT_TRUE(camera) << camera.status().message();
    EXPECT_EQ(camera->rom_state(), nyxus::RomState::kBlank);
    EXPECT_TRUE(camera->has_spi_flash());
}

TEST_F(CppCamera, MovesAndClosesOnce)
{
    bus.plug();
    nyxus::Camera first = open(nyxus::find_camera());
    nyxus::Camera second = std::move(first);
    EXPECT_EQ(second.chip(), "NY6410");
    EXPECT_EQ(second.family(), "ROWAN");
    EXPECT_TRUE(second.set_flip(true));
    EXPECT_TRUE(second.flip().value());
    second.close();
    second.close();
    EXPECT_TRUE(nyxus::can_claim(*nyxus::find_camera())) << "it is free again";
}

TEST_F(CppCamera, AFailureCarriesItsMessageAndNoOlderOne)
{
    const auto simulated = bus.plug();
    nyxus::Camera camera = open(nyxus::find_camera());
    simulated.set_faults(fault("request = \"SET_CUR\", selector = 4", "do = \"stall\""));
    const nyxus::Status stalled = camera.set_flip(true);
    EXPECT_EQ(stalled.usb_code(), LIBUSB_ERROR_PIPE);
    EXPECT_NE(stalled.message().find("NYXuIoctl.cpp("), std::string::npos) << stalled.message();

    const nyxus::Status refused = camera.set_mjpeg_gain(32);
    EXPECT_EQ(refused.code(), NYXUS_E_FAILED);
    EXPECT_EQ(refused.message().find("NYXu"), std::string::npos) << "not the stall's";
    simulated.forget_transfers();
    std::vector<uint8_t> nine(9);
    EXPECT_EQ(camera.read_i2c(0, nine).code(), NYXUS_E_RANGE);
    EXPECT_EQ(camera.read_i2c(0x200, std::span(nine).first(1)).code(), NYXUS_E_RANGE);
    EXPECT_EQ(camera.osd().set_text(8, "x").code(), NYXUS_E_RANGE);
    EXPECT_EQ(camera.osd().set_text(0, std::string(17, 'x')).code(), NYXUS_E_RANGE);
    EXPECT_EQ(camera.rom().read(0xFFFF, std::span(nine)).code(), NYXUS_E_RANGE);
    EXPECT_TRUE(simulated.transfers().empty()) << "nothing was sent";
}

TEST_F(CppCamera, FeaturesReadBackWhatWasSet)
{
    const auto simulated = bus.plug();
    nyxus_h264_standard_order = 1;
    nyxus::Camera camera = open(nyxus::find_camera());

    ASSERT_TRUE(camera.osd().set_text(3, "Front door"));
    EXPECT_EQ(camera.osd().text(3).value(), "Front door");
    std::tm time{};
    time.tm_year = 126, time.tm_mon = 4, time.tm_mday = 1, time.tm_hour = 12;
    ASSERT_TRUE(camera.osd().set_time(time));
    EXPECT_EQ(camera.osd().datetime()->data[0], 26);
    EXPECT_EQ(camera.osd().datetime()->data[1], 5);

    EXPECT_FALSE(camera.osd().shows_time().value());
    ASSERT_TRUE(camera.osd().show_time(true));
    EXPECT_TRUE(camera.osd().shows_time().value());
    EXPECT_FALSE(camera.osd().transparent().value());
    ASSERT_TRUE(camera.osd().set_transparent(true));
    EXPECT_TRUE(camera.osd().transparent().value());
    ASSERT_TRUE(camera.osd().set_window({2, 3, 4, 5, 6, true}));
    EXPECT_EQ(camera.osd().window()->height, 6);
    EXPECT_TRUE(camera.osd().window()->shown);
    ASSERT_TRUE(camera.osd().set_colors({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}));
    EXPECT_EQ(camera.osd().colors()->background.cb, 5);
    EXPECT_EQ(camera.osd().colors()->windows.cr, 9);

    EXPECT_EQ(camera.gpio().value()[5], nyxus::PinState::kNotDriven);
    ASSERT_TRUE(camera.set_gpio(5, true));
    ASSERT_TRUE(camera.set_gpio(12, false));
    EXPECT_EQ(camera.gpio().value()[5], nyxus::PinState::kHigh);
    EXPECT_EQ(camera.gpio().value()[12], nyxus::PinState::kLow);

    ASSERT_TRUE(camera.flash());
    EXPECT_EQ(camera.flash()->name, "MXIC MX25L1006E");
    EXPECT_EQ(camera.flash()->part_bytes, 128u << 10);
    EXPECT_EQ(camera.flash()->id[0], 0xC2);
    EXPECT_EQ(camera.xu_version(), std::optional<uint16_t>(2));
    EXPECT_EQ(camera.sensor_application(), 0x21);

    nyxus::H264 encoder = camera.h264();
    ASSERT_TRUE(encoder.set_rate_control(nyxus::RateControl::kVariableBitrate));
    EXPECT_EQ(encoder.rate_control().value(), nyxus::RateControl::kVariableBitrate);
    ASSERT_TRUE(encoder.set_bitrate({4000000, 2000000}));
    EXPECT_EQ(encoder.bitrate()->average, 2000000u);
    ASSERT_TRUE(encoder.set_qp_range({7, 20, 40}));
    EXPECT_EQ(encoder.qp_range()->most, 40);
    ASSERT_TRUE(encoder.set_iframe_period(30));
    EXPECT_EQ(encoder.iframe_period().value(), 30);

    const std::array<uint8_t, 4> setting = {1, 0x20, 0, 0};
    ASSERT_TRUE(camera.set_motion_setting(setting));
    EXPECT_EQ(camera.motion_setting().value(), setting);
    EXPECT_FALSE(camera.poll_motion().value());
    simulated.raise_motion_alarm();
    EXPECT_TRUE(camera.poll_motion().value());

    const uint8_t registers[] = {0x12, 0x34};
    ASSERT_TRUE(camera.write_registers(0x0B00, registers));
    uint8_t found[2] = {};
    ASSERT_TRUE(camera.read_registers(0x0B00, found));
    EXPECT_EQ(found[1], 0x34);
    nyxus_h264_standard_order = 0;
}

TEST_F(CppCamera, RawRequestsHaveTheLengthsThatTheCameraAnnounced)
{
    const auto simulated = bus.plug();
    nyxus::Camera camera = open(nyxus::find_camera());
    bool has_version = false;
    for (const nyxus::XuControl& control : camera.xu_controls())
        has_version = has_version || (control.selector == 0x0D && control.size == 11);
    EXPECT_TRUE(has_version);
    const auto version = camera.get_xu(0x0D); // of the internal firmware
    ASSERT_TRUE(version) << version.status().message();
    EXPECT_EQ(std::string(version->begin(), version->end()).find(camera.internal_version()), 0u);
    simulated.forget_transfers();
    EXPECT_EQ(camera.get_xu(0xFE).status().reason(), nyxus::Reason::kNotSupported);
    EXPECT_EQ(camera.set_xu(0x0D, std::vector<uint8_t>(12)).reason(), nyxus::Reason::kOutOfRange);
    EXPECT_TRUE(simulated.transfers().empty()) << "nothing was sent";
}

TEST_F(CppRom, IsReadInSlicesThatPrintNothing)
{
    for (const char* model : {"rowan-spi", "hawthorn-eeprom"}) {
        const auto simulated = bus.plug(model);
        nyxus::Camera camera = open(nyxus::find_camera());
        Captured printed;
        std::vector<uint32_t> steps;
        const auto dump = camera.rom().dump([&](uint32_t done, uint32_t total) {
            EXPECT_EQ(total, camera.rom().size());
            steps.push_back(done);
        });
        ASSERT_TRUE(dump) << dump.status().message();
        std::vector<uint8_t> held = simulated.rom();
        held.resize(camera.rom().size());
        EXPECT_EQ(*dump, held) << model;
        EXPECT_EQ(steps.size(), camera.rom().size() / 256 + 1);
        EXPECT_TRUE(std::ranges::is_sorted(steps));
        EXPECT_EQ(printed.text(), "") << model;
        std::vector<uint8_t> beyond(2);
        EXPECT_EQ(camera.rom().read(0xFFFF, beyond).code(), NYXUS_E_RANGE);
        camera.close();
        simulated.remove();
    }
}

TEST_F(CppRom, OnlyAFlashIsErased)
{
    const auto simulated = bus.plug("hawthorn-eeprom");
    nyxus::Camera camera = open(nyxus::find_camera());
    simulated.forget_transfers();
    EXPECT_EQ(camera.rom().erase().code(), NYXUS_E_NO_SUPPORT);
    EXPECT_TRUE(simulated.transfers().empty());
}

TEST_F(CppVideo, FramesComeUntilTheStreamIsDropped)
{
    bus.plug();
    nyxus::Camera camera = open(nyxus::find_camera());
    std::mutex mutex;
    std::condition_variable changed;
    size_t frames = 0;
    {
        auto stream = nyxus::Stream::start(camera, {320, 240, 30}, [&](const nyxus::Frame& frame) {
            EXPECT_EQ(frame.data.size(), 320u * 240 * 2);
            const std::lock_guard lock(mutex);
            ++frames;
            changed.notify_one();
        });
        ASSERT_TRUE(stream) << stream.status().message();
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [&] { return frames >= 3; }));
    }
    const auto picture = nyxus::take_picture(camera, {320, 240, 0});
    ASSERT_TRUE(picture) << picture.status().message();
    EXPECT_EQ(picture->data.size(), 320u * 240 * 2);

    const auto refused = nyxus::Stream::start(camera, {123, 45, 0}, [](const nyxus::Frame&) {});
    EXPECT_EQ(refused.status().origin(), nyxus::Origin::kVideo);
}

TEST_F(CppVideo, EveryFormatComesOneFrameAtATime)
{
    bus.plug("maple-mjpeg");
    nyxus::Camera camera = open(nyxus::find_camera());
    const auto formats = nyxus::list_formats(camera);
    ASSERT_TRUE(formats) << formats.status().message();
    EXPECT_EQ(nyxus::fourcc_text(formats->front().fourcc), "YUYV");
    EXPECT_EQ(nyxus::fourcc_text(formats->back().fourcc), "MJPG");

    std::optional<nyxus::Stream> kept;
    for (const uint32_t fourcc : {NYXUS_FOURCC_YUYV, NYXUS_FOURCC_MJPEG}) {
        auto stream = nyxus::Stream::start(camera, {320, 240, 30, fourcc});
        ASSERT_TRUE(stream) << stream.status().message();
        const auto frame = stream->next(20000);
        ASSERT_TRUE(frame) << frame.status().message();
        EXPECT_EQ(frame->fourcc, fourcc);
        EXPECT_GT(frame->data.size(), 2u);
        stream->stop();
        EXPECT_EQ(stream->next(20000).status().code(), UVC_ERROR_INTERRUPTED);
        EXPECT_GE(stream->status().frames, 1u);
        kept = std::move(*stream);
    }
    camera.close(); // before what streamed
    EXPECT_EQ(kept->next(0).status().code(), UVC_ERROR_INTERRUPTED);

    nyxus::Camera again = open(nyxus::find_camera());
    const auto refused = nyxus::Stream::start(again, {640, 480, 7});
    EXPECT_NE(refused.status().message().find("no YUYV of 640x480 at this rate"), std::string::npos)
        << refused.status().message();
}

TEST_F(CppVideo, ALoopTakesFramesUntilTheStreamEnds)
{
    bus.plug();
    nyxus::Camera camera = open(nyxus::find_camera());
    auto stream = nyxus::Stream::start(camera, {320, 240, 30});
    ASSERT_TRUE(stream) << stream.status().message();
    std::vector<nyxus::Picture> kept;
    for (auto& frame : *stream) {
        kept.emplace_back(frame);
        if (kept.size() == 3)
            stream->stop();
        if (kept.size() == 10)
            break;
    }
    EXPECT_GE(kept.size(), 3u);
    EXPECT_LT(kept.size(), 10u) << "four may have waited";
    EXPECT_TRUE(stream->failure());
    EXPECT_EQ(kept[0].data.size(), 320u * 240 * 2);
    EXPECT_LT(kept[0].sequence, kept[2].sequence);

    EXPECT_TRUE(nyxus::take_picture(camera, {320, 240, 30})) << "nothing streams any more";
}

TEST_F(CppControls, AreListedReadAndSet)
{
    bus.plug("maple-mjpeg");
    nyxus::Camera camera = open(nyxus::find_camera());
    const auto controls = nyxus::list_controls(camera);
    ASSERT_TRUE(controls) << controls.status().message();
    EXPECT_EQ(controls->size(), 7u);
    EXPECT_TRUE(nyxus::set_control(camera, NYXUS_CONTROL_HUE, -9000));
    const auto hue = nyxus::get_control(camera, NYXUS_CONTROL_HUE);
    ASSERT_TRUE(hue);
    EXPECT_EQ(hue->value, -9000);
    EXPECT_EQ(nyxus::set_control(camera, NYXUS_CONTROL_HUE, 18001).code(), NYXUS_E_RANGE);
}

TEST(CppVideoDeathTest, ALoopOfACameraThatGoesEndsAtOnce)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto body = [] {
        alarm(20);
        const nyxus::simulator::Bus bus;
        const auto simulated = bus.plug();
        nyxus::Camera camera = open(nyxus::find_camera());
        auto stream = nyxus::Stream::start(camera, {320, 240, 30});
        stream->patience_ms = 1'000'000;
        size_t frames = 0;
        for (const nyxus::Frame& frame : *stream) {
            if (++frames == 2 && frame.data.size() > 0)
                simulated.unplug();
        }
        _exit(stream->failure().reason() == nyxus::Reason::kCameraGone ? 0 : 1);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST(CppVideoDeathTest, AStreamOfACameraThatGoesEndsInPeace)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto body = [] {
        alarm(20);
        const nyxus::simulator::Bus bus;
        const auto simulated = bus.plug();
        nyxus::Camera camera = open(nyxus::find_camera());
        std::mutex mutex;
        std::condition_variable changed;
        bool any = false;
        auto stream = nyxus::Stream::start(camera, {320, 240, 30}, [&](const nyxus::Frame&) {
            const std::lock_guard lock(mutex);
            any = true;
            changed.notify_one();
        });
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return any; });
        lock.unlock();
        simulated.unplug();
        if (camera.flip().status().usb_code() != LIBUSB_ERROR_NO_DEVICE)
            _exit(1);
        stream->stop();
        camera.close();
        _exit(0);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}
