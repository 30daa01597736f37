// SPDX-License-Identifier: Apache-2.0
// Standard controls: what the camera announces, its ranges, and what arrives there.
#include <gtest/gtest.h>

#include "support/camera.h"

namespace {

constexpr char kControlsCamera[] = "maple-mjpeg"; // has all that the simulator knows
constexpr uint8_t kBrightnessSelector = UVC_PU_BRIGHTNESS_CONTROL;

NyControl control(NyDevice* device, uint32_t id)
{
    NyControl read = {};
    EXPECT_EQ(nyxus_get_control(device, id, &read), 0) << nyxus_errmsg;
    return read;
}

} // namespace

TEST(StandardControls, ThoseThatTheCameraHasAreListedWithTheirRanges)
{
    const struct {
        uint32_t id;
        const char* name;
        int64_t minimum, maximum, step, standard;
    } expected[] = {
        {NYXUS_CONTROL_BRIGHTNESS, "brightness", -64, 64, 1, 0},
        {NYXUS_CONTROL_CONTRAST, "contrast", 0, 100, 1, 50},
        {NYXUS_CONTROL_HUE, "hue", -18000, 18000, 100, 0},
        {NYXUS_CONTROL_SATURATION, "saturation", 0, 100, 1, 50},
        {NYXUS_CONTROL_WHITE_BALANCE, "white_balance", 2800, 6500, 10, 4600},
        {NYXUS_CONTROL_GAIN, "gain", 0, 255, 1, 64},
        {NYXUS_CONTROL_ZOOM, "zoom", 100, 400, 10, 100},
    };
    Camera camera{kControlsCamera};
    NyControl listed[NYXUS_CONTROL_COUNT];
    const auto count = static_cast<int32_t>(std::size(expected));
    ASSERT_EQ(nyxus_list_controls(camera.device(), listed, NYXUS_CONTROL_COUNT), count);
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(listed[i].id, expected[i].id);
        EXPECT_STREQ(listed[i].name, expected[i].name);
        EXPECT_STREQ(nyxus_control_name(expected[i].id), expected[i].name);
        EXPECT_EQ(listed[i].minimum, expected[i].minimum) << expected[i].name;
        EXPECT_EQ(listed[i].maximum, expected[i].maximum) << expected[i].name;
        EXPECT_EQ(listed[i].step, expected[i].step) << expected[i].name;
        EXPECT_EQ(listed[i].default_value, expected[i].standard) << expected[i].name;
        EXPECT_EQ(listed[i].value, expected[i].standard) << expected[i].name;
    }
    NyControl first = {};
    EXPECT_EQ(nyxus_list_controls(camera.device(), &first, 1), count);
    EXPECT_STREQ(first.name, "brightness");
    EXPECT_EQ(nyxus_control_name(NYXUS_CONTROL_COUNT), nullptr);
}

TEST(StandardControls, WhatIsSetArrives)
{
    const struct {
        uint32_t id;
        int64_t value, taken;
        sim::PictureControl where;
    } cases[] = {
        {NYXUS_CONTROL_BRIGHTNESS, -20, -20, sim::kBrightness},
        {NYXUS_CONTROL_CONTRAST, 100, 100, sim::kContrast},
        {NYXUS_CONTROL_HUE, -18000, -18000, sim::kHue},
        {NYXUS_CONTROL_GAIN, 0, 0, sim::kGain},
        {NYXUS_CONTROL_WHITE_BALANCE, 5001, 5000, sim::kWhiteBalance}, // between two steps
        {NYXUS_CONTROL_ZOOM, 400, 400, sim::kZoom},
    };
    Camera camera{kControlsCamera};
    for (const auto& c : cases) {
        EXPECT_EQ(nyxus_set_control(camera.device(), c.id, c.value), 0) << nyxus_errmsg;
        EXPECT_EQ(camera.sim().usb()->video().value(c.where), c.taken) << c.id;
        EXPECT_EQ(control(camera.device(), c.id).value, c.taken) << c.id;
    }
}

TEST(StandardControls, WhatCannotBeIsRefusedAndChangesNothing)
{
    const struct {
        uint32_t id;
        int64_t value;
        const char* message;
    } cases[] = {
        {NYXUS_CONTROL_BRIGHTNESS, 65, "'brightness' ranges from -64 to 64"},
        {NYXUS_CONTROL_BRIGHTNESS, INT64_MIN, "'brightness' ranges from -64 to 64"},
        {NYXUS_CONTROL_GAIN, 0x10000, "'gain' ranges from 0 to 255"},
        {NYXUS_CONTROL_PAN, 0, "no control 'pan'"},
        {NYXUS_CONTROL_COUNT, 0, "unknown"},
        {UINT32_MAX, 0, "unknown"},
    };
    Camera camera{kControlsCamera};
    NyDevice* device = camera.device();
    for (const auto& [id, value, message] : cases) {
        EXPECT_EQ(nyxus_set_control(device, id, value), NYXUS_E_RANGE);
        EXPECT_NE(std::string(nyxus_errmsg).find(message), std::string::npos) << nyxus_errmsg;
    }
    EXPECT_EQ(control(device, NYXUS_CONTROL_BRIGHTNESS).value, 0);
    EXPECT_EQ(control(device, NYXUS_CONTROL_GAIN).value, 64);
}

TEST(StandardControls, AnnouncedControlsThatDoNotAnswerAreLeftOut)
{
    struct {
        uint8_t request;
        bool is_listed;
    } const cases[] = {
        {UVC_GET_CUR, false}, {UVC_GET_MIN, false}, {UVC_GET_MAX, false},
        {UVC_GET_RES, true},  {UVC_GET_DEF, true},
    };
    for (const auto& [request, is_listed] : cases) {
        Camera camera{models::kRowan}; // announces brightness alone
        NyDevice* device = camera.device();
        camera.fail(request, kBrightnessSelector, sim::Fault::stall());
        EXPECT_EQ(nyxus_list_controls(device, nullptr, 0), is_listed) << unsigned{request};
        camera.fail(request, kBrightnessSelector, sim::Fault::stall());
        NyControl read = {};
        EXPECT_EQ(nyxus_get_control(device, NYXUS_CONTROL_BRIGHTNESS, &read),
                  is_listed ? 0 : NYXUS_E_LIBUSB(LIBUSB_ERROR_PIPE));
    }
}

TEST(StandardControls, ACameraThatIsGoneOrClosedIsNotEntered)
{
    Camera camera{kControlsCamera};
    NyDevice* device = camera.device();
    constexpr int32_t kGone = NYXUS_E_LIBUSB(LIBUSB_ERROR_NO_DEVICE);
    NyControl read = {};
    camera.bed().unplug(camera.sim());
    EXPECT_EQ(nyxus_list_controls(device, nullptr, 0), kGone);
    EXPECT_EQ(nyxus_get_control(device, NYXUS_CONTROL_ZOOM, &read), kGone);
    EXPECT_EQ(nyxus_set_control(device, NYXUS_CONTROL_ZOOM, 100), kGone);
    EXPECT_EQ(device->device_gone, 1);
    close_libuvc(device);
    EXPECT_EQ(nyxus_list_controls(device, nullptr, 0), kGone);
    EXPECT_EQ(nyxus_set_control(device, NYXUS_CONTROL_ZOOM, 100), kGone);
}
