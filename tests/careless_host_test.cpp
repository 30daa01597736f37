// SPDX-License-Identifier: Apache-2.0
// Callers that pass NULL, absurd numbers, or a camera that is gone: an error comes back, at once.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "support/all_functions.h"
#include "support/camera.h"

namespace {

/// Succeed whatever the camera says, or ask it nothing.
const std::set<std::string> answer_without_the_camera = {
    "MP_QueryXuVersion",     "MP_FwCompare",           "MP_FwRevision",      "XU_GpioSet",
    "SG_SnapshotModeEnable", "SG_SnapshotModeTrigger", "SG_StreamModeEnable"};

TEST(CarelessHost, NullIsRefusedWhereverItStands)
{
    Camera camera{models::kRowan};
    constexpr uint64_t kInEepromWindow = 0x2401;
    for (const uint64_t number : {uint64_t{1}, kInEepromWindow}) {
        Host host{camera.device(), -1, number};
        for (const Function& function : all_functions) {
            for (const int position : function.pointers) {
                host.null_at = position;
                const std::string name = function.name;
                const bool has_no_data = position == 2 && (name == "xioctl_usb" || // 0 bytes, and
                                                           name == "HexStr2Buf");  // an empty text
                EXPECT_EQ(function.call(host) == 0, has_no_data)
                    << function.name << ", argument " << position;
            }
        }
    }
}

TEST(CarelessHost, ACameraThatIsGoneIsAnError)
{
    Camera camera{models::kRowan};
    const Host host{camera.device()};
    camera.bed().unplug(camera.sim());
    nyxus_fw_bin_size = 0;
    for (const Function& function : all_functions) {
        if (!function.uses_camera)
            continue;
        EXPECT_EQ(function.call(host) == 0, answer_without_the_camera.contains(function.name))
            << function.name;
    }
}

TEST(CarelessHost, AbsurdNumbersDoNoHarm)
{
    for (const uint64_t number : {uint64_t{0}, uint64_t{0xFFFFFFFF}}) {
        Camera camera{models::kRowan};
        const Host host{camera.device(), -1, number};
        camera.sim().set_fault([](const sim::Setup&, uint64_t) { return sim::Fault::stall(); });
        for (const Function& function : all_functions) {
            if (function.has_numbers && function.uses_camera)
                (void)function.call(host);
        }
        camera.heal();
        EXPECT_EQ(DEV_Init(camera.device()), 0) << "the camera is none the worse for it";
    }
}

} // namespace
