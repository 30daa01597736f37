// SPDX-License-Identifier: Apache-2.0
// The simulated camera seen through unmodified libusb and libuvc in the same process.
#include "bus/bed.h"
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

using sim::Fault;

constexpr uint8_t kGetLen = 0x85;
constexpr uint8_t kSetCur = 0x01;
constexpr uint8_t kRegisterSelector = 0x06;
constexpr unsigned kTimeoutMs = 200;

const sim::CameraModel& first_model()
{
    return sim::models().front();
}

struct ContextDeleter {
    void operator()(libusb_context* context) const { libusb_exit(context); }
};
struct HandleDeleter {
    void operator()(libusb_device_handle* handle) const { libusb_close(handle); }
};
using Context = std::unique_ptr<libusb_context, ContextDeleter>;
using Handle = std::unique_ptr<libusb_device_handle, HandleDeleter>;

Context make_context()
{
    libusb_context* context = nullptr;
    EXPECT_EQ(libusb_init(&context), 0);
    return Context(context);
}

Handle open_camera(libusb_context* context, unsigned bus, unsigned address)
{
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    libusb_device_handle* handle = nullptr;
    for (ssize_t i = 0; i < count; ++i) {
        if (libusb_get_bus_number(list[i]) == bus &&
            libusb_get_device_address(list[i]) == address) {
            EXPECT_EQ(libusb_open(list[i], &handle), 0);
        }
    }
    libusb_free_device_list(list, 1);
    return Handle(handle);
}

std::string string_of(libusb_device_handle* handle, uint8_t index)
{
    unsigned char text[128] = {};
    libusb_get_string_descriptor_ascii(handle, index, text, sizeof text);
    return reinterpret_cast<char*>(text);
}

class UsbTest : public testing::Test {
protected:
    sim::PluggedCamera& plug(unsigned bus = 1)
    {
        return bed_.plug(first_model(), {.bus = bus, .serial = "S" + std::to_string(bus)});
    }
    Handle open(sim::PluggedCamera& camera)
    {
        if (!context_)
            context_ = make_context();
        Handle handle = open_camera(context_.get(), camera.bus(), camera.address());
        EXPECT_NE(handle, nullptr);
        return handle;
    }
    static int get_len(libusb_device_handle* handle, unsigned timeout_ms = 0)
    {
        uint8_t length[2] = {};
        return libusb_control_transfer(handle, 0xA1, kGetLen, kRegisterSelector << 8,
                                       sim::kVendorUnit << 8, length, sizeof length, timeout_ms);
    }
    size_t device_count()
    {
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(context_.get(), &list);
        libusb_free_device_list(list, 1);
        return static_cast<size_t>(count);
    }

    sim::VirtualClock clock_;
    sim::TestBed bed_{clock_};
    Context context_;
};

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

TEST_F(UsbTest, PictureControlsAnswerAsDescribed)
{
    using Bytes = std::vector<uint8_t>;
    constexpr int kSet = 0x01, kCur = 0x81, kMin = 0x82, kMax = 0x83, kRes = 0x84, kLen = 0x85,
                  kInfo = 0x86, kDef = 0x87;
    constexpr uint16_t kBrightness = 0x0200, kWhiteBalance = 0x0A00, kZoom = 0x0B00;
    constexpr uint16_t kTerminal = 0x0100, kUnit = 0x0200;
    // From a description that does not outlive the call.
    sim::PluggedCamera& camera = bed_.plug(sim::CameraModel(*sim::find_model("maple-mjpeg")));
    const struct {
        int request;
        uint16_t selector, unit;
        Bytes data; ///< sent, or answered
        bool is_refused = false;
    } cases[] = {
        {kLen, kBrightness, kUnit, {2, 0}},
        {kInfo, kBrightness, kUnit, {3}},
        {kMin, kBrightness, kUnit, {0xC0, 0xFF}}, // -64
        {kMax, kBrightness, kUnit, {64, 0}},
        {kDef, kBrightness, kUnit, {0, 0}},
        {kSet, kBrightness, kUnit, {0xC0, 0xFF}},
        {kSet, kBrightness, kUnit, {0xBF, 0xFF}, true},
        {kSet, kBrightness, kUnit, {65, 0}, true},
        {kSet, kBrightness, kUnit, {1}, true},
        {kCur, kBrightness, kUnit, {0xC0, 0xFF}},
        {kRes, kWhiteBalance, kUnit, {10, 0}},
        {kSet, kWhiteBalance, kUnit, {0xFF, 0x0F}}, // 4095: rounded down to 4090
        {kCur, kWhiteBalance, kUnit, {0xFA, 0x0F}},
        {kMax, kZoom, kTerminal, {0x90, 0x01}},
        {kSet, kZoom, kTerminal, {0xC8, 0x00}},
        {kCur, kZoom, kTerminal, {0xC8, 0x00}},
        {kMax, kZoom, kUnit, {0, 0}, true},
        {kCur, 0x0800, kUnit, {0, 0}, true}, // sharpness
    };
    for (const auto& c : cases) {
        Bytes data = c.request == kSet ? c.data : Bytes(c.data.size());
        const sim::Setup setup{static_cast<uint8_t>(c.request == kSet ? 0x21 : 0xA1),
                               static_cast<uint8_t>(c.request), c.selector, c.unit,
                               static_cast<uint16_t>(data.size())};
        const int moved = c.is_refused ? -EPIPE : static_cast<int>(data.size());
        EXPECT_EQ(camera.control(setup, data), moved) << std::hex << c.request << ' ' << c.selector;
        if (!c.is_refused)
            EXPECT_EQ(data, c.data) << std::hex << c.request << ' ' << c.selector;
    }
}

TEST_F(UsbTest, AutomaticsHoldBackWhatTheyChoose)
{
    using Bytes = std::vector<uint8_t>;
    constexpr uint16_t kTerminal = 0x0100, kUnit = 0x0200;
    sim::CameraModel model = *sim::find_model("rowan-spi");
    model.controls[sim::kExposureMode] = {1, 8, 1 | 8, 8};
    model.controls[sim::kExposureTime] = {1, 5000, 1, 156};
    model.controls[sim::kFocus] = {0, 250, 5, 0};
    model.controls[sim::kFocusAuto] = {0, 1, 1, 1};
    model.controls[sim::kPan] = {-36000, 36000, 3600, 0};
    model.controls[sim::kTilt] = {-36000, 36000, 3600, 0};
    sim::PluggedCamera& camera = bed_.plug(model);
    const auto ask = [&](uint8_t request, uint16_t selector, uint16_t unit, Bytes data) {
        const bool is_set = request == kSetCur;
        const sim::Setup setup{static_cast<uint8_t>(is_set ? 0x21 : 0xA1), request,
                               static_cast<uint16_t>(selector << 8), unit,
                               static_cast<uint16_t>(data.size())};
        return camera.control(setup, data) < 0 ? Bytes() : data;
    };
    const struct {
        uint8_t request;
        uint16_t selector, unit;
        Bytes data, answer; ///< none: refused
    } cases[] = {
        {sim::kGetInfo, 4, kTerminal, {0}, {7}}, // an automatic has it
        {kSetCur, 4, kTerminal, {1, 0, 0, 0}, {}},
        {sim::kGetMin, 2, kTerminal, {0}, {}},
        {sim::kGetRes, 2, kTerminal, {0}, {9}},
        {kSetCur, 2, kTerminal, {2}, {}},
        {kSetCur, 2, kTerminal, {9}, {}},
        {kSetCur, 2, kTerminal, {1}, {1}},
        {sim::kGetInfo, 4, kTerminal, {0}, {3}},
        {kSetCur, 4, kTerminal, {0x88, 0x13, 0, 0}, {0x88, 0x13, 0, 0}},
        {kSetCur, 4, kTerminal, {0x89, 0x13, 0, 0}, {}},
        {kSetCur, 4, kTerminal, {1, 0, 0, 0x80}, {}},
        {sim::kGetLen, 4, kTerminal, {0, 0}, {4, 0}},
        {kSetCur, 6, kTerminal, {10, 0}, {}},
        {kSetCur, 8, kTerminal, {0}, {0}},
        {kSetCur, 6, kTerminal, {13, 0}, {13, 0}},
        {sim::kGetCur, 6, kTerminal, {0, 0}, {10, 0}},
        {sim::kGetLen, 13, kTerminal, {0, 0}, {8, 0}},
        {sim::kGetMin, 13, kTerminal, Bytes(8), {0x60, 0x73, 0xFF, 0xFF, 0x60, 0x73, 0xFF, 0xFF}},
        {kSetCur, 13, kTerminal, {0x10, 0x0E, 0, 0, 0, 0, 1, 0}, {}},
        {kSetCur, 13, kTerminal, Bytes(4), {}},
        {sim::kGetCur, 13, kTerminal, Bytes(8), Bytes(8)},
        {kSetCur,
         13,
         kTerminal,
         {0x10, 0x0E, 0, 0, 0xF0, 0xF1, 0xFF, 0xFF},
         {0x10, 0x0E, 0, 0, 0xF0, 0xF1, 0xFF, 0xFF}},
        {sim::kGetInfo, 13, kUnit, {0}, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ask(c.request, c.selector, c.unit, c.data), c.answer)
            << int{c.request} << ' ' << c.selector << ' ' << int{c.data[0]};
    }
    EXPECT_EQ(camera.usb()->video().value(sim::kPan), 3600);
    EXPECT_EQ(camera.usb()->video().value(sim::kTilt), -3600);
}

TEST_F(UsbTest, HostsNegotiateFormatSizeRateAndPayload)
{
    const struct {
        const char* model;
        uint8_t format, frame; ///< asked for
        uint32_t interval, payload;
        uint8_t agreed_format, agreed_frame;
        uint32_t agreed_interval, frame_bytes, agreed_payload;
    } cases[] = {
        {"rowan-spi", 0, 0, 0, 0, 1, 1, 333333, 153600, 153612},
        {"rowan-spi", 2, 9, 1, 512, 1, 3, 1000000, 1843200, 512},
        {"rowan-iso", 1, 1, 333333, 5, 1, 1, 333333, 153600, 1024},
        {"maple-mjpeg", 1, 1, 0, 0, 1, 1, 333333, 614400, 0x4000},
        {"maple-mjpeg", 2, 1, 700000, 99999999, 2, 1, 666666, 4147200, 0x4000},
        {"maple-mjpeg", 255, 255, 0, 1024, 2, 4, 166666, 153600, 1024},
        {"maple-iso", 1, 1, 0, 0, 1, 1, 333333, 4147200, 3072},
        {"maple-iso", 1, 3, 0, 0, 1, 3, 333333, 614400, 1024},
        {"birch-webcam", 1, 1, 0, 0, 1, 1, 333333, 4147200, 2048},
        {"birch-webcam", 1, 5, 2000000, 0, 1, 5, 2000000, 153600, 128},
        {"birch-webcam", 2, 1, 0, 0, 2, 1, 333333, 614400, 3072},
    };
    const auto put = [](std::vector<uint8_t>& record, size_t at, uint32_t value) {
        for (size_t i = 0; i < 4; ++i)
            record[at + i] = static_cast<uint8_t>(value >> 8 * i);
    };
    for (const auto& c : cases) {
        sim::PluggedCamera& camera = bed_.plug(*sim::find_model(c.model));
        std::vector<uint8_t> wanted(26);
        std::vector<uint8_t> agreed(26);
        wanted[2] = c.format;
        wanted[3] = c.frame;
        put(wanted, 4, c.interval);
        put(wanted, 22, c.payload);
        agreed[2] = c.agreed_format;
        agreed[3] = c.agreed_frame;
        put(agreed, 4, c.agreed_interval);
        put(agreed, 18, c.frame_bytes);
        put(agreed, 22, c.agreed_payload);
        EXPECT_EQ(camera.control({0x21, kSetCur, 0x0100, 1, 26}, wanted), 26);
        EXPECT_EQ(camera.control({0xA1, 0x81, 0x0100, 1, 26}, wanted), 26);
        EXPECT_EQ(wanted, agreed) << c.model << ' ' << int{c.format} << ' ' << int{c.frame};
    }
}

TEST_F(UsbTest, DescriptorsFollowTheDescription)
{
    sim::CameraModel model = *sim::find_model("rowan-iso");
    model.usb_vendor_id = 0x1234;
    model.usb_manufacturer = "Acme Inc.";
    model.usb_product = "Door camera";
    model.iso_packet_bytes = {512, 1024, 2048, 3072};
    model.formats = {{sim::PixelFormat::kH264, {{640, 360, {333333, 666666}}}}};
    const std::vector<uint8_t> device = sim::device_descriptor(model);
    EXPECT_EQ(device[8] | device[9] << 8, 0x1234);
    const std::vector<uint8_t> all = sim::configuration_descriptor(model);
    const auto follows = [&all](std::vector<uint8_t> bytes) {
        return std::search(all.begin(), all.end(), bytes.begin(), bytes.end()) != all.end();
    };
    // As the frame-based payload asks for: the GUID of the encoder, frames of any length.
    EXPECT_TRUE(follows({0x1c, 0x24, 0x10, 1, 1, 'H', '2', '6', '4', 0, 0, 0x10, 0}));
    EXPECT_TRUE(follows({0x22, 0x24, 0x11, 1, 0, 0x80, 0x02, 0x68, 0x01}));
    EXPECT_TRUE(follows({0x15, 0x16, 0x05, 0, 2, 0, 0, 0, 0, 0x15, 0x16, 0x05, 0}));
    for (const auto& [setting, packet] :
         {std::pair{1, 0x0200}, {2, 0x0400}, {3, 0x0C00}, {4, 0x1400}}) {
        EXPECT_TRUE(follows({9, 4, 1, static_cast<uint8_t>(setting), 1, 0x0e, 2, 0, 0, 7, 5, 0x81,
                             5, 0, static_cast<uint8_t>(packet >> 8), 1}))
            << setting;
    }
    sim::PluggedCamera& camera = bed_.plug(model);
    for (const auto& [index, text] :
         {std::pair{1, model.usb_manufacturer}, {2, model.usb_product}}) {
        std::vector<uint8_t> answer(64);
        const sim::Setup setup{0x80, 6, static_cast<uint16_t>(0x0300 | index), 0x0409, 64};
        answer.resize(static_cast<size_t>(std::max(camera.control(setup, answer), 0)));
        EXPECT_EQ(answer, sim::string_descriptor(text));
    }
}

// Hosts, captures and drivers have seen these bytes.
TEST_F(UsbTest, DescriptorsOfCamerasWithoutFormatsOfTheirOwnStay)
{
    for (const auto& [name, size, sum] :
         {std::tuple{"rowan-spi", 322U, 0xB4279364U}, {"rowan-iso", 347U, 0x61BE156EU}}) {
        std::vector<uint8_t> bytes = sim::configuration_descriptor(*sim::find_model(name));
        EXPECT_EQ(bytes.size(), size);
        uint32_t hash = 0x811C9DC5; // FNV-1a
        for (const uint8_t byte : bytes)
            hash = (hash ^ byte) * 0x01000193;
        EXPECT_EQ(hash, sum) << name;
    }
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
