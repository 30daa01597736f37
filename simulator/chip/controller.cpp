// SPDX-License-Identifier: Apache-2.0
#include "controller.h"

#include "chip_state.h"
#include "gpio.h"
#include "h264_unit.h"
#include "picture.h"
#include "uvc_request.h"
#include "vendor_xu.h"

namespace sim {
namespace {

constexpr uint8_t kFlipped = 0x02;
constexpr uint8_t kMirrored = 0x01;

} // namespace

struct Controller::State {
    State(const CameraModel& model, Clock& clock, std::span<const uint8_t> rom)
        : chip(model, clock, rom), vendor_xu(chip, clock), h264(model.tolerates_swapped_h264)
    {
    }

    Orientation orientation() const
    {
        return {.flipped = (vendor_xu.setting(kFlip) & kFlipped) != 0,
                .mirrored = (vendor_xu.setting(kMirror) & kMirrored) != 0};
    }

    ChipState chip;
    VendorXu vendor_xu;
    H264Unit h264;
};

Controller::Controller(const CameraModel& model, Clock& clock, std::span<const uint8_t> rom)
    : state_(std::make_unique<State>(model, clock, rom))
{
}

Controller::~Controller() = default;

int Controller::xu_request(uint8_t unit, uint8_t selector, uint8_t request, std::span<uint8_t> data)
{
    switch (unit) {
        case kVendorUnit:
            return state_->vendor_xu.request(selector, request, data);
        case kH264Unit:
            return state_->h264.request(selector, request, data);
        default:
            return kStall;
    }
}

bool Controller::restart_pending() const
{
    return state_->chip.restart_pending;
}

void Controller::restart()
{
    state_->chip.reset();
    state_->vendor_xu.power_up();
    state_->h264.power_up();
}

void Controller::power_cut()
{
    state_->chip.power_cut();
}

void Controller::power_cycle()
{
    state_->chip.power_cut();
    state_->chip.power_up();
    state_->vendor_xu.power_up();
    state_->h264.power_up();
}

void Controller::set_rom_fault(const RomFaultHook& hook)
{
    ChipState& chip = state_->chip;
    if (chip.flash)
        chip.flash->set_fault(hook);
    if (chip.eeprom)
        chip.eeprom->set_fault(hook);
}

void Controller::picture(uint32_t width, uint32_t height, uint32_t frame_number,
                         std::span<uint8_t> yuyv, const PictureSettings& settings,
                         const View& scene) const
{
    const VendorXu& unit = state_->vendor_xu;
    const Orientation orientation = state_->orientation();
    Canvas sensor(width, height, yuyv, orientation, settings);
    if (scene.yuyv.empty()) {
        draw_test_pattern(sensor);
    } else {
        sensor.show(scene);
    }
    Canvas upright(width, height, yuyv);
    unit.osd().draw(upright, state_->chip.xdata[Osd::kControlReg]);
    Canvas number(width, height, yuyv, orientation);
    if (model().numbers_frames)
        draw_frame_number(number, frame_number);
}

bool Controller::leaves_scenes_alone() const
{
    const uint8_t control = state_->chip.xdata[Osd::kControlReg];
    return !model().numbers_frames && state_->orientation() == Orientation{} &&
           !state_->vendor_xu.osd().is_enabled() && (control & Osd::kShowDatetime) == 0;
}

const CameraModel& Controller::model() const
{
    return state_->chip.model;
}

bool Controller::runs_external_firmware() const
{
    return state_->chip.firmware.external;
}

const RunningFirmware& Controller::firmware() const
{
    return state_->chip.firmware;
}

const H264Unit& Controller::h264() const
{
    return state_->h264;
}

const Osd& Controller::osd() const
{
    return state_->vendor_xu.osd();
}

std::span<uint8_t> Controller::rom()
{
    return state_->chip.rom;
}

uint8_t Controller::reg(uint16_t address) const
{
    state_->chip.settle();
    return state_->chip.xdata[address];
}

void Controller::set_reg(uint16_t address, uint8_t value)
{
    state_->chip.write_register(address, value);
}

bool Controller::gpio(unsigned index) const
{
    return gpio_level(state_->chip.xdata, index);
}

bool Controller::drives_gpio(unsigned index) const
{
    return gpio_driven(state_->chip.xdata, index);
}

uint8_t Controller::flash_status() const
{
    return state_->chip.flash ? state_->chip.flash->status() : uint8_t{0};
}

bool Controller::write_protect() const
{
    return state_->chip.write_protect;
}

uint8_t Controller::sensor_reg(uint16_t address) const
{
    return state_->chip.sensor[address];
}

void Controller::raise_motion_alarm()
{
    state_->chip.raise_motion_alarm();
}

bool Controller::motion_alarm() const
{
    return state_->chip.motion_alarm();
}

void Controller::set_touch(uint8_t state)
{
    state_->chip.set_touch(state);
}

uint8_t Controller::touch() const
{
    return state_->chip.touch();
}

uint32_t Controller::sensor_resets() const
{
    return state_->chip.sensor_resets;
}

uint32_t Controller::snapshot_triggers() const
{
    return state_->chip.snapshot_triggers;
}

} // namespace sim
