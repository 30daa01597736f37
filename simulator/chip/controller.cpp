// SPDX-License-Identifier: Apache-2.0
#include "controller.h"

#include "picture.h"
#include "uvc_request.h"

namespace sim {
namespace {

constexpr uint8_t kFlipped = 0x02;
constexpr uint8_t kMirrored = 0x01;

} // namespace

Controller::Controller(const CameraModel& the_model, Clock& clock,
                       std::span<const uint8_t> contents)
    : ChipState(the_model, clock, contents),
      vendor_xu_(*this, clock),
      h264_(model.tolerates_swapped_h264)
{
}

int Controller::xu_request(uint8_t unit, uint8_t selector, uint8_t request, std::span<uint8_t> data)
{
    switch (unit) {
        case kVendorUnit:
            return vendor_xu_.request(selector, request, data);
        case kH264Unit:
            return h264_.request(selector, request, data);
        default:
            return kStall;
    }
}

void Controller::restart()
{
    reset();
    vendor_xu_.power_up();
    h264_.power_up();
}

void Controller::power_cycle()
{
    power_cut();
    power_up();
    vendor_xu_.power_up();
    h264_.power_up();
}

void Controller::picture(uint32_t width, uint32_t height, uint32_t frame_number,
                         std::span<uint8_t> yuyv, const PictureSettings& settings,
                         const View& scene) const
{
    Canvas view(width, height, yuyv, orientation(), settings);
    if (scene.yuyv.empty()) {
        draw_test_pattern(view);
    } else {
        view.show(scene);
    }
    Canvas upright(width, height, yuyv);
    osd().draw(upright, xdata[Osd::kControlReg]);
    Canvas number(width, height, yuyv, orientation());
    if (model.numbers_frames)
        draw_frame_number(number, frame_number);
}

bool Controller::leaves_scenes_alone() const
{
    const bool shows_time = (xdata[Osd::kControlReg] & Osd::kShowDatetime) != 0;
    return !model.numbers_frames && orientation() == Orientation{} && !osd().is_enabled() &&
           !shows_time;
}

Orientation Controller::orientation() const
{
    return {.flipped = (vendor_xu_.setting(kFlip) & kFlipped) != 0,
            .mirrored = (vendor_xu_.setting(kMirror) & kMirrored) != 0};
}

} // namespace sim
