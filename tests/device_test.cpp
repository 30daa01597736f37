// SPDX-License-Identifier: Apache-2.0
// Creation and deletion of device objects, and the libuvc session.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <optional>
#include <thread>

#include "cameras/shipped.h"
#include "support/camera.h"
#include "support/never_freed.h"
#include "support/script.h"

/// Happens before libuvc resets an interface that it is about to release.
static std::function<void(libusb_device_handle*)> before_reset;

extern "C" int libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface,
                                                int setting)
{
    static const auto set = reinterpret_cast<decltype(&libusb_set_interface_alt_setting)>(
        dlsym(RTLD_NEXT, "libusb_set_interface_alt_setting"));
    if (before_reset)
        before_reset(handle);
    return set(handle, interface, setting);
}

TEST(Device, CreationAndDeletionTellTheirMilestones)
{
    Camera camera{models::kRowan};
    ny_trace_param = NY_TRACE_STEP;
    ASSERT_NE(camera.create(), nullptr);
    camera.listen();
    camera.remove();
    ny_trace_param = 0;
    EXPECT_EQ(camera.printed(),
              "<INFO> Device object allocated and initialized \n"
              "<INFO> Device object acquire OK \n"
              "<INFO> Device object released \n");
    EXPECT_EQ(camera.wire(), std::vector<std::string>{"SET 06: 81 0B 88 01"});
    EXPECT_NE(camera.create(), nullptr) << "the camera is free again";
}

TEST(Device, TheProbeIssuesExactlyItsTransfers)
{
    Camera camera{models::kRowan};
    camera.listen();
    const NyDevice* device = camera.device();
    Script script;
    script.get(0x16);
    std::vector<std::string> expected = {"GET 16: 58 55 02 00 45 4D 01"};
    const auto wire = camera.wire();
    ASSERT_GT(wire.size(), 20u);
    EXPECT_EQ(wire[0], expected[0]);
    for (int32_t i = 0; i < device->xu_table_count; ++i)
        EXPECT_EQ(wire[static_cast<size_t>(i) + 1].substr(0, 4), "LEN ");
    auto transfers = camera.sim().transfers();
    const auto first = std::find_if(transfers.begin(), transfers.end(), [](const auto& t) {
        return sim::Setup::from_wire(t.setup).selector() == 0x0D &&
               sim::Setup::from_wire(t.setup).request == UVC_GET_CUR;
    });
    ASSERT_NE(first, transfers.end());
    EXPECT_EQ(Script{}
                  .get(0x0D)
                  .read(0x08, 1, 0x0021)
                  .set(0x07, {0x04, 0xFF, 0xFF})
                  .get(0x07)
                  .get(0x0C)
                  .read(0x03, 24, 0x0040)
                  .reg_read(0x0A27, 8)
                  .reg_read(0x0A2F, 3)
                  .set(0x0B, {0xFF})
                  .match({first, transfers.end()}),
              "");
}

TEST(Device, CamerasWithTheSameAddressAreToldApartByTheirBus)
{
    Camera first{models::kRowan};
    sim::PluggedCamera& second =
        first.bed().plug(*sim::find_model(models::kCedar), {.bus = 2, .serial = {}});
    ASSERT_EQ(first.sim().address(), second.address());
    ASSERT_NE(first.create(), nullptr);
    NyDevice* other = Camera::create(first.usb_device_of(second));
    ASSERT_NE(other, nullptr) << nyxus_errmsg;
    EXPECT_STREQ(first.device()->oBackend.name, "NY6410");
    EXPECT_STREQ(other->oBackend.name, "NY7780");
    DEV_DeleteObject(other);
}

TEST(Device, AnotherDriverTypeLetsNoDeviceBeCreated)
{
    Camera camera{models::kRowan};
    nyxus_driver_type = 0;
    EXPECT_EQ(camera.create(), nullptr);
    nyxus_driver_type = 1;
    EXPECT_EQ(nyxus_errno, -1028);
    EXPECT_STREQ(nyxus_errtmp, "Driver type not match");
}

TEST(Device, ACameraInUseOrGoneLeavesTheOthersAlone)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    libusb_device* usb = camera.usb_device();
    const NeverFreed objects_given_up_early;
    EXPECT_EQ(DEV_CreateObjectUsb(usb), nullptr) << "in use";
    uint8_t flip = 0;
    EXPECT_EQ(XuGetFlip(device, &flip), 0);
    camera.remove();
    camera.bed().unplug(camera.sim(), sim::Announce::kYes);
    EXPECT_EQ(DEV_CreateObjectUsb(usb), nullptr) << "gone";
    camera.bed().replug(camera.sim());
    EXPECT_NE(camera.create(), nullptr) << nyxus_errmsg;
}

TEST(Device, AFailedProbeReleasesTheCamera)
{
    const struct {
        const char* name;
        uint8_t request, selector;
        sim::Fault fault;
        int32_t code;
    } cases[] = {
        {"length check", UVC_GET_LEN, 0x05, sim::Fault::stall(), -16393},
        {"chip", UVC_GET_CUR, 0x0D, sim::Fault::io_error(), -16385},
        {"set-file", UVC_GET_CUR, 0x0C, sim::Fault::stall(), -16393},
        {"ROM header", UVC_GET_CUR, 0x03, sim::Fault::stall(), -16393},
        {"ROM type", UVC_SET_CUR, 0x0B, sim::Fault::stall(), -16393},
        {"unknown chip", UVC_GET_CUR, 0x0D, sim::Fault::answer(std::vector<uint8_t>(11, '?')), 0},
    };
    Camera camera{models::kRowan};
    for (const auto& c : cases) {
        nyxus_errno = 0;
        camera.fail(c.request, c.selector, c.fault);
        EXPECT_EQ(camera.create(), nullptr) << c.name;
        EXPECT_EQ(nyxus_errno, c.code) << c.name;
        camera.heal();
        ASSERT_NE(camera.create(), nullptr) << "after " << c.name << ": " << nyxus_errmsg;
        camera.remove();
    }
    EXPECT_EQ(DEV_Init(nullptr), -1026);
    EXPECT_STREQ(nyxus_errtmp, "'pDevObj' cannot be NULL");
}

TEST(Device, ABlankRomIsReachedThroughAPresetReadIdCommand)
{
    Camera camera{models::kRowan, std::vector<uint8_t>(128 * 1024, 0xFF)};
    EXPECT_EQ(camera.create(), nullptr);
    EXPECT_EQ(nyxus_errno, -1030);
    EXPECT_STREQ(nyxus_errtmp, "Command Read ID is invalid");

    NyDevice object = {};
    object.usb_device = camera.usb_device();
    init_uvc_video(&object);
    ASSERT_NE(object.uvc_handle, nullptr);
    object.usb_handle = uvc_get_libusb_handle(object.uvc_handle);
    object.oFlashInfo.bCmdRDID = 0x9F;
    EXPECT_EQ(DEV_Init(&object), 0) << nyxus_errmsg;
    EXPECT_EQ(object.xSpiMode, 1);
    EXPECT_EQ(object.xModuleMode, 0);
    EXPECT_STREQ(object.oFlashInfo.szName, "MXIC MX25L1006E");
    DEV_DeleteObject(&object);
}

TEST(Device, ACameraThatIsGoneIsAbandonedNotClosed)
{
    for (const sim::Announce announce : {sim::Announce::kYes, sim::Announce::kNo}) {
        Camera camera{models::kRowan};
        NyDevice* device = camera.device();
        camera.bed().unplug(camera.sim(), announce);
        uint8_t flip = 0;
        EXPECT_EQ(XuGetFlip(device, &flip), -16388);
        EXPECT_EQ(device->device_gone, 1);
        camera.remove(); // libusb would abort here if the handle were closed
    }
    Camera camera{models::kLarch};
    camera.device();
    camera.bed().unplug(camera.sim(), sim::Announce::kYes);
    camera.remove(); // idle since: the deletion itself finds out
    camera.bed().replug(camera.sim());
    EXPECT_NE(camera.create(), nullptr);
}

TEST(Device, TheApplicationMayKnowFirstThatACameraIsGone)
{
    Camera camera{models::kRowan};
    EXPECT_EQ(nyxus_mark_device_gone(nullptr), -1026);
    ASSERT_EQ(nyxus_mark_device_gone(camera.device()), 0);
    camera.remove();
    ASSERT_NE(camera.create(), nullptr) << "it was not, and has been closed as usual";

    camera.listen();
    camera.bed().unplug(camera.sim(), sim::Announce::kYes);
    ASSERT_EQ(nyxus_mark_device_gone(camera.device()), 0);
    EXPECT_TRUE(camera.wire().empty());
    EXPECT_EQ(close_libuvc(camera.device()), 0); // would abort in libusb
    camera.remove();
    camera.bed().replug(camera.sim());
    EXPECT_NE(camera.create(), nullptr) << nyxus_errmsg;
}

TEST(Device, WithoutAnEventThreadItTransfersAndClosesHoweverItsCameraGoes)
{
    EXPECT_EQ(nyxus_usb_context(nullptr), nullptr);
    for (const std::optional<sim::Announce> unplug :
         {std::optional<sim::Announce>(), std::optional(sim::Announce::kYes),
          std::optional(sim::Announce::kNo)}) {
        Camera camera{models::kRowan};
        EXPECT_EQ(nyxus_set_event_thread(0), 1);
        NyDevice* device = camera.create();
        EXPECT_EQ(nyxus_set_event_thread(1), 0);
        ASSERT_NE(device, nullptr) << nyxus_errmsg;
        EXPECT_NE(nyxus_usb_context(device), nullptr);
        uint8_t byte = 0;
        EXPECT_EQ(XuRegRead(device, 0x20, 1, &byte), 0) << nyxus_errmsg;
        if (unplug)
            camera.bed().unplug(camera.sim(), *unplug);
        camera.remove(); // would abort in libusb if an interface of a camera that is gone were
                         // released
    }
    Camera camera{models::kRowan};
    EXPECT_EQ(nyxus_usb_context(camera.device()), nullptr);
}

TEST(Device, WithoutAnEventThreadItClosesACameraThatGoesMeanwhile)
{
    Camera camera{models::kRowan};
    nyxus_set_event_thread(0);
    ASSERT_NE(camera.create(), nullptr) << nyxus_errmsg;
    nyxus_set_event_thread(1);
    std::atomic<bool> is_about_to_reset = false, has_gone = false;
    std::thread hand(
        [&] { // of its own: what waits for a lock in libuvc's place seems to have come through
            while (!is_about_to_reset)
                std::this_thread::yield();
            camera.bed().unplug(camera.sim(), sim::Announce::kYes);
        });
    before_reset = [&](libusb_device_handle* handle) {
        is_about_to_reset = true;
        while (libusb_kernel_driver_active(handle, 0) != LIBUSB_ERROR_NO_DEVICE)
            std::this_thread::yield(); // libusb's own thread has to hear of it
        has_gone = true;
    };
    camera.remove(); // would abort in libusb, which unlocks then what it has not locked
    before_reset = nullptr;
    is_about_to_reset = true;
    hand.join();
    EXPECT_TRUE(has_gone);
}

TEST(Device, AnObjectWithoutAHandleStaysMarked)
{
    NyDevice object = {};
    uint8_t flip = 0;
    nyxus_mark_device_gone(&object);
    EXPECT_EQ(UvcXuCtrlQuery(&object, NY_UNIT_VENDOR, ZRV_XU_FLIP, UVC_GET_CUR, 1, &flip), -16388);
    EXPECT_EQ(object.device_gone, 1);
}

TEST(Device, ATransferThatSucceedsClearsTheMark)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    uint8_t flip = 0;
    camera.fail(UVC_GET_CUR, 0x04, sim::Fault::submit_error(19));
    EXPECT_EQ(XuGetFlip(device, &flip), -16388);
    EXPECT_EQ(device->device_gone, 1);
    EXPECT_EQ(XuGetFlip(device, &flip), 0);
    EXPECT_EQ(device->device_gone, 0);
}

TEST(Device, AResetBringsTheNewFirmwareUnderANewAddress)
{
    Camera camera{models::kRowan};
    const auto image = load_image(models::kRowan, 4096, 0x0307);
    ASSERT_EQ(MP_FwUpgrade(camera.device(), nullptr), 0) << nyxus_errmsg;
    const unsigned address = camera.sim().address();
    camera.listen();
    EXPECT_EQ(DEV_SoftReset(camera.device()), 0);
    EXPECT_EQ(camera.wire().at(0), "SET 06: 01 00 26");
    EXPECT_EQ(camera.wire().at(2).substr(0, 16), "SET 06: 81 00 26");
    camera.bed().settle();
    camera.remove();
    ASSERT_NE(camera.create(), nullptr) << nyxus_errmsg;
    EXPECT_NE(camera.sim().address(), address);
    EXPECT_EQ(camera.device()->wExtFwVer, 0x0307);
}

TEST(Device, EachThreadKeepsTheFailureOfItsOwnCamera)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    NyDevice other_object = {}; // no handle: every transfer is a claim failure
    std::thread other([&] {
        for (int i = 0; i < 200; ++i) {
            uint8_t value = 0;
            other_object.xu_table = device->xu_table;
            other_object.xu_table_count = device->xu_table_count;
            ASSERT_EQ(XuGetFlip(&other_object, &value), -16388);
            ASSERT_EQ(nyxus_errno, -16388);
        }
    });
    for (int i = 0; i < 200; ++i) {
        uint8_t value = 0;
        ASSERT_EQ(UvcXuCtrlQueryNYXU(device, 0x77, UVC_GET_CUR, &value), -1030);
        ASSERT_STREQ(nyxus_errtmp, "Invalid XU selector: 0x77");
    }
    other.join();
}

TEST(Session, TheApplicationsHandleIsAnsweredAndClosedOnce)
{
    Camera camera{models::kRowan};
    libusb_device_handle* usb = nullptr;
    get_libusb_handle(&usb);
    EXPECT_EQ(usb, nullptr);

    NyDevice object = {};
    object.usb_device = camera.usb_device();
    init_uvc_video(&object);
    ASSERT_NE(object.uvc_handle, nullptr);
    setLibuvcHandleForNYXUS(object.uvc_handle);
    get_libusb_handle(&usb);
    EXPECT_EQ(usb, uvc_get_libusb_handle(object.uvc_handle));
    EXPECT_EQ(close_libuvc(&object), 0);
    EXPECT_EQ(close_libuvc(&object), 0);
    get_libusb_handle(&usb);
    EXPECT_EQ(usb, nullptr) << "closed";
}

TEST(Session, ThreadsCloseTheirOwn)
{
    const auto close_many = [] {
        for (int i = 0; i < 1000; ++i) {
            NyDevice object = {};
            libusb_device_handle* usb = nullptr;
            EXPECT_EQ(close_libuvc(&object), 0);
            get_libusb_handle(&usb);
            EXPECT_EQ(usb, nullptr);
        }
    };
    std::thread other(close_many);
    close_many();
    other.join();
}

TEST(Session, OpensAgainAfterItWasClosed)
{
    Camera camera{models::kRowan};
    const NeverFreed device;
    NyDevice* object = camera.device();
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(close_libuvc(object), 0);
        init_uvc_video(object);
        ASSERT_NE(object->uvc_handle, nullptr) << "still open: round " << round;
        EXPECT_EQ(object->usb_handle, uvc_get_libusb_handle(object->uvc_handle));
        uint8_t flip = 0;
        EXPECT_EQ(XuGetFlip(object, &flip), 0);
    }
}

TEST(Session, AMissingDeviceIsReportedOnStandardOutput)
{
    NyDevice object = {};
    Captured out{1};
    init_uvc_video(&object);
    const NeverFreed object_given_up_early;
    EXPECT_EQ(DEV_CreateObjectUsb(nullptr), nullptr);
    EXPECT_EQ(out.text(), "Wrong libusb device\nWrong libusb device\n");
}
