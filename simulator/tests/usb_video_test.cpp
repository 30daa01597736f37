// SPDX-License-Identifier: Apache-2.0
// Controls of the picture, negotiation and descriptors, as hosts ask for them.
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

} // namespace
