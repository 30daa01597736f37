// SPDX-License-Identifier: Apache-2.0
#include "standard_controls.h"

#include <libuvc/libuvc.h>
#include <nyxus/streaming.h>

#include <iterator>

namespace {

using nyxus::StandardControl;
constexpr auto kCamera = nyxus::ControlUnit::kCameraTerminal;
constexpr auto kPicture = nyxus::ControlUnit::kProcessingUnit;
constexpr auto kAsked = nyxus::ControlRange::kAsked;
constexpr auto kFixed = nyxus::ControlRange::kFixed;
constexpr auto kChoice = nyxus::ControlRange::kChoice;

// clang-format off
constexpr StandardControl kControls[] = {
//   id                                    name                      unit     bit selector                                    len off size signed range   min max
    {NYXUS_CONTROL_BRIGHTNESS,             "brightness",             kPicture, 0, UVC_PU_BRIGHTNESS_CONTROL,                     2, 0, 2, true,  kAsked,  0, 0},
    {NYXUS_CONTROL_CONTRAST,               "contrast",               kPicture, 1, UVC_PU_CONTRAST_CONTROL,                       2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_CONTRAST_AUTO,          "contrast_auto",          kPicture, 18, UVC_PU_CONTRAST_AUTO_CONTROL,                 1, 0, 1, false, kFixed,  0, 1},
    {NYXUS_CONTROL_HUE,                    "hue",                    kPicture, 2, UVC_PU_HUE_CONTROL,                            2, 0, 2, true,  kAsked,  0, 0},
    {NYXUS_CONTROL_HUE_AUTO,               "hue_auto",               kPicture, 11, UVC_PU_HUE_AUTO_CONTROL,                      1, 0, 1, false, kFixed,  0, 1},
    {NYXUS_CONTROL_SATURATION,             "saturation",             kPicture, 3, UVC_PU_SATURATION_CONTROL,                     2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_SHARPNESS,              "sharpness",              kPicture, 4, UVC_PU_SHARPNESS_CONTROL,                      2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_GAMMA,                  "gamma",                  kPicture, 5, UVC_PU_GAMMA_CONTROL,                          2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_WHITE_BALANCE,          "white_balance",          kPicture, 6, UVC_PU_WHITE_BALANCE_TEMPERATURE_CONTROL,      2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_WHITE_BALANCE_AUTO,     "white_balance_auto",     kPicture, 12, UVC_PU_WHITE_BALANCE_TEMPERATURE_AUTO_CONTROL, 1, 0, 1, false, kFixed, 0, 1},
    {NYXUS_CONTROL_WHITE_BALANCE_BLUE,     "white_balance_blue",     kPicture, 7, UVC_PU_WHITE_BALANCE_COMPONENT_CONTROL,        4, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_WHITE_BALANCE_RED,      "white_balance_red",      kPicture, 7, UVC_PU_WHITE_BALANCE_COMPONENT_CONTROL,        4, 2, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_WHITE_BALANCE_PARTS_AUTO, "white_balance_parts_auto", kPicture, 13, UVC_PU_WHITE_BALANCE_COMPONENT_AUTO_CONTROL, 1, 0, 1, false, kFixed, 0, 1},
    {NYXUS_CONTROL_BACKLIGHT_COMPENSATION, "backlight_compensation", kPicture, 8, UVC_PU_BACKLIGHT_COMPENSATION_CONTROL,         2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_GAIN,                   "gain",                   kPicture, 9, UVC_PU_GAIN_CONTROL,                           2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_POWER_LINE_FREQUENCY,   "power_line_frequency",   kPicture, 10, UVC_PU_POWER_LINE_FREQUENCY_CONTROL,          1, 0, 1, false, kFixed,  0, 3},
    {NYXUS_CONTROL_DIGITAL_ZOOM,           "digital_zoom",           kPicture, 14, UVC_PU_DIGITAL_MULTIPLIER_CONTROL,            2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_DIGITAL_ZOOM_LIMIT,     "digital_zoom_limit",     kPicture, 15, UVC_PU_DIGITAL_MULTIPLIER_LIMIT_CONTROL,      2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_EXPOSURE_MODE,          "exposure_mode",          kCamera,  1, UVC_CT_AE_MODE_CONTROL,                        1, 0, 1, false, kChoice, 1, 8},
    {NYXUS_CONTROL_EXPOSURE_PRIORITY,      "exposure_priority",      kCamera,  2, UVC_CT_AE_PRIORITY_CONTROL,                    1, 0, 1, false, kFixed,  0, 1},
    {NYXUS_CONTROL_EXPOSURE_TIME,          "exposure_time",          kCamera,  3, UVC_CT_EXPOSURE_TIME_ABSOLUTE_CONTROL,         4, 0, 4, false, kAsked,  0, 0},
    {NYXUS_CONTROL_FOCUS,                  "focus",                  kCamera,  5, UVC_CT_FOCUS_ABSOLUTE_CONTROL,                 2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_FOCUS_AUTO,             "focus_auto",             kCamera, 17, UVC_CT_FOCUS_AUTO_CONTROL,                     1, 0, 1, false, kFixed,  0, 1},
    {NYXUS_CONTROL_IRIS,                   "iris",                   kCamera,  7, UVC_CT_IRIS_ABSOLUTE_CONTROL,                  2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_ZOOM,                   "zoom",                   kCamera,  9, UVC_CT_ZOOM_ABSOLUTE_CONTROL,                  2, 0, 2, false, kAsked,  0, 0},
    {NYXUS_CONTROL_PAN,                    "pan",                    kCamera, 11, UVC_CT_PANTILT_ABSOLUTE_CONTROL,               8, 0, 4, true,  kAsked,  0, 0},
    {NYXUS_CONTROL_TILT,                   "tilt",                   kCamera, 11, UVC_CT_PANTILT_ABSOLUTE_CONTROL,               8, 4, 4, true,  kAsked,  0, 0},
    {NYXUS_CONTROL_ROLL,                   "roll",                   kCamera, 13, UVC_CT_ROLL_ABSOLUTE_CONTROL,                  2, 0, 2, true,  kAsked,  0, 0},
    {NYXUS_CONTROL_PRIVACY,                "privacy",                kCamera, 18, UVC_CT_PRIVACY_CONTROL,                        1, 0, 1, false, kFixed,  0, 1},
};
// clang-format on

constexpr bool is_consistent()
{
    for (uint32_t id = 0; id < std::size(kControls); ++id) {
        const StandardControl& control = kControls[id];
        if (control.id != id || control.length_bytes > nyxus::kMostControlBytes ||
            control.offset + control.size_bytes > control.length_bytes)
            return false;
    }
    return std::size(kControls) == NYXUS_CONTROL_COUNT;
}
static_assert(is_consistent(), "the numbers are places in the table");

} // namespace

const nyxus::StandardControl* nyxus::find_standard_control(uint32_t id)
{
    return id < std::size(kControls) ? &kControls[id] : nullptr;
}
