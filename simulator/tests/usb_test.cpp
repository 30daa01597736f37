// SPDX-License-Identifier: Apache-2.0
// The simulated camera seen through unmodified libusb and libuvc in the same process.
#include "usb_test.h"

#include "bus/virtual_time.h"
#include "camera_events.h"
#include "cameras/shipped.h"
#include "chip/firmware_image.h"
#include "usb/descriptors.h"

#include <gtest/gtest.h>
#include <libusb.h>
#include <libuvc/libuvc.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace usb_test;
using sim::Fault;

TEST_F(UsbTest, LibusbEnumeratesAndReadsDescriptors)
{
    sim::PluggedCamera& camera = plug();
    const Handle handle = open(camera);
    libusb_device* device = libusb_get_device(handle.get());
    EXPECT_EQ(libusb_get_port_number(device), camera.port());
    EXPECT_EQ(libusb_get_device_speed(device), LIBUSB_SPEED_HIGH);

    libusb_device_descriptor descriptor{};
    ASSERT_EQ(libusb_get_device_descriptor(device, &descriptor), 0);
    EXPECT_EQ(descriptor.bDeviceClass, LIBUSB_CLASS_MISCELLANEOUS);
    EXPECT_EQ(descriptor.idVendor, 0x1162);
    EXPECT_EQ(descriptor.idProduct, first_model().usb_product_id);
    EXPECT_EQ(string_of(handle.get(), descriptor.iManufacturer), "NYXUS Simulator");
    EXPECT_EQ(string_of(handle.get(), descriptor.iProduct), first_model().name);
    EXPECT_EQ(string_of(handle.get(), descriptor.iSerialNumber), "S1");

    libusb_config_descriptor* configuration = nullptr;
    ASSERT_EQ(libusb_get_active_config_descriptor(device, &configuration), 0);
    EXPECT_EQ(configuration->bNumInterfaces, 2);
    libusb_free_config_descriptor(configuration);
}

TEST_F(UsbTest, ItsSerialNumberIsThatOfTheMfiImageFromTheNextStartOn)
{
    sim::PluggedCamera& camera = plug();
    const auto serial = [&] {
        libusb_device_descriptor descriptor{};
        context_.reset();
        const Handle handle = open(camera);
        EXPECT_EQ(libusb_get_device_descriptor(libusb_get_device(handle.get()), &descriptor), 0);
        return string_of(handle.get(), descriptor.iSerialNumber);
    };
    const auto write = [&](size_t offset, std::span<const uint8_t> bytes) {
        const auto controller = camera.controller();
        const auto rom = std::span((*controller).rom).subspan(sim::kMfiRomAddress + offset);
        std::ranges::copy(bytes, rom.begin());
    };
    const auto start = [&] {
        bed_.unplug(camera);
        bed_.replug(camera);
        return serial();
    };
    write(0, sim::make_mfi_image(1, "A0001234"));
    EXPECT_EQ(serial(), "S1");
    EXPECT_EQ(start(), "A0001234");
    EXPECT_EQ(camera.serial(), "S1") << "which is what tests call it";
    for (const uint8_t hostile :
         {uint8_t{0x00}, uint8_t{0xFF}}) { // what the header says of length and address
        write(0x0E, std::vector<uint8_t>(4, hostile));
        EXPECT_EQ(start(), "S1");
    }
}

TEST_F(UsbTest, LibuvcOpensNegotiatesAndCloses)
{
    plug();
    uvc_context_t* context = nullptr;
    ASSERT_EQ(uvc_init(&context, nullptr), UVC_SUCCESS);
    uvc_device_t* device = nullptr;
    ASSERT_EQ(uvc_find_device(context, &device, 0x1162, 0, "S1"), UVC_SUCCESS);
    uvc_device_handle_t* handle = nullptr;
    ASSERT_EQ(uvc_open(device, &handle), UVC_SUCCESS);

    uvc_stream_ctrl_t stream{};
    EXPECT_EQ(uvc_get_stream_ctrl_format_size(handle, &stream, UVC_FRAME_FORMAT_YUYV, 640, 480, 30),
              UVC_SUCCESS);
    EXPECT_EQ(stream.dwMaxVideoFrameSize, 640u * 480 * 2);
    int16_t brightness = 0;
    EXPECT_EQ(uvc_get_brightness(handle, &brightness, UVC_GET_MAX), UVC_SUCCESS);
    EXPECT_EQ(brightness, 255);

    uvc_close(handle);
    uvc_unref_device(device);
    uvc_exit(context);
}

TEST_F(UsbTest, TransfersAreRecordedAndTakeTime)
{
    sim::PluggedCamera& camera = plug();
    const Handle handle = open(camera);
    camera.clear_transfers();
    const uint64_t before_us = clock_.now_us();
    EXPECT_EQ(get_len(handle.get()), 2);
    EXPECT_EQ(clock_.now_us() - before_us, first_model().usb_latency_us);

    const std::vector<sim::Transfer> transfers = camera.transfers();
    ASSERT_EQ(transfers.size(), 1u);
    const std::array<uint8_t, 8> setup{0xA1, kGetLen, 0, kRegisterSelector, 0, 6, 2, 0};
    EXPECT_EQ(transfers[0].setup, setup);
    EXPECT_EQ(transfers[0].data.size(), 2u);
    EXPECT_EQ(transfers[0].status, 0);
}

TEST_F(UsbTest, UnknownRequestsStall)
{
    const Handle handle = open(plug());
    struct Case {
        uint8_t type, request;
        uint16_t value, index;
    };
    const Case cases[] = {
        {0x80, 6, 0x0A00, 0},            // debug descriptor
        {0x80, 6, 0x0309, 0},            // missing string
        {0xA1, kGetLen, 0x7F00, 0x0600}, // missing control
        {0xA1, kGetLen, 0x0100, 0x0C00}, // H.264 unit
        {0xA1, kGetLen, 0x0100, 0x0500}, // missing unit
        {0xC0, 1, 0, 0},                 // vendor request
    };
    for (const Case& c : cases) {
        uint8_t data[64];
        EXPECT_EQ(libusb_control_transfer(handle.get(), c.type, c.request, c.value, c.index, data,
                                          sizeof data, 0),
                  LIBUSB_ERROR_PIPE)
            << std::hex << c.value << " " << c.index;
    }
}

// They would be obeyed if the camera looked at the code alone.
TEST_F(UsbTest, RequestsThatContradictThemselvesStall)
{
    sim::PluggedCamera& camera = plug();
    const sim::Setup cases[] = {
        {0xA1, kSetCur, 0x0E00, 0x0600, 1}, // in, the write protection
        {0xA1, kSetCur, 0x0200, 0x0200, 2}, // in, the brightness
        {0x21, kGetLen, 0x0600, 0x0600, 2}, // out
        {0x21, kGetLen, 0x0100, 0x0001, 2}, // out, to the video interface
        {0xA1, kGetLen, 0x0655, 0x0600, 2}, // the selector's neighbour is reserved
        {0x00, 6, 0x0100, 0, 18},           // a descriptor, out
        {0x82, 0, 0, 0x008F, 2},            // status of an endpoint that is not there
        {0x81, 0, 0, 2, 2},                 // of an interface
    };
    for (const sim::Setup& setup : cases) {
        std::vector<uint8_t> data(setup.length);
        EXPECT_EQ(camera.control(setup, data), -EPIPE) << std::hex << setup.value;
    }
    EXPECT_TRUE(camera.controller()->write_protect);
}

TEST_F(UsbTest, TheKernelsDriverLendsTheCamera)
{
    sim::PluggedCamera& camera =
        bed_.plug(first_model(), {.serial = {}, .has_kernel_driver = true});
    const auto drivers = [](const Handle& handle) {
        return std::pair(libusb_kernel_driver_active(handle.get(), 0),
                         libusb_kernel_driver_active(handle.get(), 1));
    };
    const auto kNone = std::pair(0, 0);
    const auto kBoth = std::pair(1, 1);
    Handle handle = open(camera);
    EXPECT_EQ(drivers(handle), kBoth);
    EXPECT_EQ(libusb_claim_interface(handle.get(), 1), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_detach_kernel_driver(handle.get(), 0), 0);
    EXPECT_EQ(drivers(handle), kNone) << "it needs the control interface";
    EXPECT_EQ(libusb_attach_kernel_driver(handle.get(), 1), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_claim_interface(handle.get(), 0), 0);
    EXPECT_EQ(libusb_attach_kernel_driver(handle.get(), 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_release_interface(handle.get(), 0), 0);
    EXPECT_EQ(libusb_attach_kernel_driver(handle.get(), 0), 0);
    EXPECT_EQ(drivers(handle), kBoth);

    libusb_set_auto_detach_kernel_driver(handle.get(), 1);
    EXPECT_EQ(libusb_claim_interface(handle.get(), 0), 0);
    EXPECT_EQ(drivers(handle), kNone);
    EXPECT_EQ(libusb_release_interface(handle.get(), 0), 0);
    EXPECT_EQ(drivers(handle), kBoth);

    EXPECT_EQ(libusb_claim_interface(handle.get(), 0), 0);
    handle = open(camera);
    EXPECT_EQ(drivers(handle), kNone) << "closed without a release";
    handle.reset();
    bed_.unplug(camera);
    bed_.replug(camera);
    EXPECT_EQ(drivers(open(camera)), kBoth);
}

TEST_F(UsbTest, AnswersAreClippedToTheRequest)
{
    const Handle handle = open(plug());
    uint8_t data[4] = {0, 0, 0xEE, 0xEE};
    EXPECT_EQ(libusb_control_transfer(handle.get(), 0x80, 6, 0x0100, 0, data, 2, 0), 2);
    EXPECT_EQ(data[1], 0x01);
    EXPECT_EQ(data[2], 0xEE);
}

TEST_F(UsbTest, FaultsReachTheCaller)
{
    sim::PluggedCamera& camera = plug();
    const Handle handle = open(camera);
    const struct {
        Fault fault;
        int result;
        int recorded_status;
    } cases[] = {
        {Fault::stall(), LIBUSB_ERROR_PIPE, -EPIPE},
        {Fault::io_error(), LIBUSB_ERROR_IO, -EPROTO},
        {Fault::timeout(), LIBUSB_ERROR_IO, -ETIME},
        {Fault::no_answer(), LIBUSB_ERROR_TIMEOUT, -ENOENT},
        {Fault::short_answer(1), 1, 0},
        {Fault::submit_error(ENOMEM), LIBUSB_ERROR_IO, 0},
        {Fault::none(), 2, 0},
    };
    for (const auto& c : cases) {
        camera.clear_transfers();
        camera.set_fault([&](const sim::Setup&, uint64_t) { return c.fault; });
        EXPECT_EQ(get_len(handle.get(), kTimeoutMs), c.result) << static_cast<int>(c.fault.kind);
        if (c.fault.kind != Fault::Kind::kSubmitError) {
            ASSERT_EQ(camera.transfers().size(), 1u);
            EXPECT_EQ(camera.transfers()[0].status, c.recorded_status);
        }
    }
}

TEST_F(UsbTest, FaultHookCountsFromZero)
{
    sim::PluggedCamera& camera = plug();
    const Handle handle = open(camera);
    camera.set_fault([](const sim::Setup&, uint64_t ordinal) {
        return ordinal == 1 ? Fault::stall() : Fault::none();
    });
    EXPECT_EQ(get_len(handle.get()), 2);
    EXPECT_EQ(get_len(handle.get()), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(get_len(handle.get()), 2);
}

TEST_F(UsbTest, SilentUnplugIsNoticedByItsUsersOnly)
{
    sim::PluggedCamera& camera = plug();
    const Handle handle = open(camera);
    camera.set_fault([](const sim::Setup&, uint64_t) { return Fault::unplug_silent(); });
    EXPECT_EQ(get_len(handle.get()), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(get_len(handle.get()), LIBUSB_ERROR_NO_DEVICE);
    bed_.settle();
    EXPECT_EQ(device_count(), 2u); // the root hub, and the camera nobody misses yet
}

TEST_F(UsbTest, AnnouncedUnplugLeavesTheList)
{
    sim::PluggedCamera& camera = plug();
    const Handle handle = open(camera);
    EXPECT_EQ(device_count(), 2u);
    bed_.unplug(camera, sim::Announce::kYes);
    EXPECT_EQ(get_len(handle.get()), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(device_count(), 1u);
}

TEST_F(UsbTest, UnplugEndsAPendingTransfer)
{
    sim::PluggedCamera& camera = plug();
    const Handle handle = open(camera);
    camera.set_fault([](const sim::Setup&, uint64_t) { return Fault::no_answer(); });
    sim::CameraEvents events(camera);
    std::thread puller([&] {
        EXPECT_TRUE(
            events.wait_for([](const auto& seen) { return seen.transfers_under_way == 1; }));
        bed_.unplug(camera, sim::Announce::kNo);
    });
    EXPECT_EQ(get_len(handle.get()), LIBUSB_ERROR_NO_DEVICE);
    puller.join();
}

TEST_F(UsbTest, ReplugHasANewAddress)
{
    sim::PluggedCamera& camera = plug();
    Handle handle = open(camera);
    const unsigned before = camera.address();
    bed_.unplug(camera, sim::Announce::kNo);
    bed_.replug(camera);
    EXPECT_NE(camera.address(), before);
    handle = open(camera);
    EXPECT_EQ(get_len(handle.get()), 2);
}

TEST_F(UsbTest, ReplugMayChooseAnotherPort)
{
    sim::PluggedCamera& first = plug();
    sim::PluggedCamera& second = plug();
    ASSERT_EQ(second.port(), 2U);
    bed_.unplug(first, sim::Announce::kNo);
    bed_.unplug(second);
    EXPECT_THROW(bed_.replug(second, 1), std::invalid_argument) << "the host does not know yet";
    EXPECT_THROW(bed_.replug(second, 0), std::invalid_argument);
    EXPECT_THROW(bed_.replug(second, 16), std::invalid_argument);
    bed_.unplug(first);
    bed_.replug(second, 1);
    EXPECT_EQ(second.port(), 1U);
    const Handle handle = open(second);
    EXPECT_EQ(libusb_get_port_number(libusb_get_device(handle.get())), 1);
    EXPECT_EQ(get_len(handle.get()), 2);
    EXPECT_THROW(bed_.replug(first), std::invalid_argument) << "somebody else is in its port now";
    bed_.replug(first, 2);
    EXPECT_EQ(get_len(open(first).get()), 2);
}

TEST_F(UsbTest, RestartAskedByTheHostGivesANewAddress)
{
    const sim::InstalledVirtualClock installed(clock_);
    sim::PluggedCamera& camera = plug();
    Handle handle = open(camera);
    const unsigned before = camera.address();
    uint8_t restart[11] = {0x81, 0x00, 0x26, 0x10}; // write one byte, restart bit, to 0x0026
    ASSERT_EQ(libusb_control_transfer(handle.get(), 0x21, kSetCur, kRegisterSelector << 8, 0x0600,
                                      restart, sizeof restart, 0),
              static_cast<int>(sizeof restart));
    sim::sleep_virtually(clock_, 1000); // returns when the camera is back
    EXPECT_NE(camera.address(), before);
    EXPECT_EQ(get_len(handle.get()), LIBUSB_ERROR_NO_DEVICE);
    handle = open(camera);
    EXPECT_EQ(get_len(handle.get()), 2);
}

TEST_F(UsbTest, BusesMayUseTheSameAddress)
{
    sim::PluggedCamera& first = plug(1);
    sim::PluggedCamera& second = plug(2);
    EXPECT_EQ(first.address(), second.address());
    const Handle first_handle = open(first);
    const Handle second_handle = open(second);
    EXPECT_EQ(string_of(first_handle.get(), 3), "S1");
    EXPECT_EQ(string_of(second_handle.get(), 3), "S2");
}

TEST_F(UsbTest, OneUserAtATimeHoldsAnInterface)
{
    sim::PluggedCamera& camera = plug();
    Handle first = open(camera);
    const Handle second = open(camera);
    EXPECT_EQ(libusb_claim_interface(first.get(), 0), 0);
    EXPECT_EQ(libusb_claim_interface(second.get(), 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_claim_interface(second.get(), 5), LIBUSB_ERROR_NOT_FOUND);
    first.reset(); // closing drops the claim at once
    EXPECT_EQ(libusb_claim_interface(second.get(), 0), 0);
}

// The times are such that a busy machine does not matter.
TEST(UsbInRealTime, QueuedTransfersFollowEachOtherOnTheWire)
{
    using std::chrono::steady_clock;
    sim::RealClock clock;
    sim::TestBed bed(clock);
    sim::CameraModel model = first_model();
    model.usb_latency_us = 1'500'000;
    model.usb_wire_us = 20'000;
    const sim::PluggedCamera& camera = bed.plug(model);
    const Context context = make_context();
    const Handle handle = open_camera(context.get(), camera.bus(), camera.address());
    const auto start = steady_clock::now();
    std::vector<int> finished;
    struct Queued {
        std::vector<int>& finished;
        int number;
        uint8_t buffer[LIBUSB_CONTROL_SETUP_SIZE + 2];
    } queued[] = {{finished, 0, {}}, {finished, 1, {}}, {finished, 2, {}}, {finished, 3, {}}};
    for (Queued& one : queued) {
        const auto finish = [](libusb_transfer* transfer) {
            const auto& its = *static_cast<Queued*>(transfer->user_data);
            EXPECT_EQ(transfer->status, LIBUSB_TRANSFER_COMPLETED);
            its.finished.push_back(its.number);
        };
        libusb_transfer* transfer = libusb_alloc_transfer(0);
        transfer->flags = LIBUSB_TRANSFER_FREE_TRANSFER;
        libusb_fill_control_setup(one.buffer, 0x80, 0, 0, 0, 2); // GET_STATUS
        libusb_fill_control_transfer(transfer, handle.get(), one.buffer, finish, &one, 0);
        ASSERT_EQ(libusb_submit_transfer(transfer), 0);
    }
    EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(1500)) << "submitting waits";
    while (finished.size() < std::size(queued))
        libusb_handle_events(context.get());
    const auto elapsed = steady_clock::now() - start;
    EXPECT_EQ(finished, (std::vector{0, 1, 2, 3}));
    EXPECT_GE(elapsed, std::chrono::microseconds(1'500'000 + 3 * 20'000));
    EXPECT_LT(elapsed, std::chrono::microseconds(2 * 1'500'000)) << "each has turned around";
}

} // namespace
