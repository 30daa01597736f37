// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "canvas.h"
#include "chip_state.h"
#include "h264_unit.h"
#include "vendor_xu.h"

#include <cstdint>
#include <span>

namespace sim {

/// One camera controller with its memories and peripherals, running a firmware. Knows nothing of
/// USB beyond the request code and the data of a control. Not thread-safe; its owner locks.
class Controller : public ChipState {
public:
    /// Powers the chip up: applies the boot rule to `rom` (empty: the model's factory contents).
    Controller(const CameraModel& the_model, Clock& clock, std::span<const uint8_t> contents = {});

    /// One request to an extension unit. SET_*: `data` is what the host sent. GET_*: `data` is
    /// the room for the answer (wLength bytes). Returns the bytes moved, or kStall.
    int xu_request(uint8_t unit, uint8_t selector, uint8_t request, std::span<uint8_t> data);

    /// The controller's reset: its volatile state is lost, the boot rule runs. A ROM that is busy
    /// stays so, and the mask ROM's firmware starts.
    void restart();
    /// What the ROM is writing stays half done, as in a power cut; then it powers up.
    void power_cycle();

    /// Draws the picture that the sensor sees now, `scene` or the test pattern, with everything the
    /// firmware lays over it, as YUYV. The settings concern neither that nor the frame number.
    /// Thread: under the owner's lock.
    void picture(uint32_t width, uint32_t height, uint32_t frame_number, std::span<uint8_t> yuyv,
                 const PictureSettings& settings = {}, const View& scene = {}) const;
    /// Nothing is turned, laid over or numbered: a scene of the right size is the picture.
    bool leaves_scenes_alone() const;

    const H264Unit& h264() const { return h264_; }
    const Osd& osd() const { return vendor_xu_.osd(); }

private:
    Orientation orientation() const;

    VendorXu vendor_xu_;
    H264Unit h264_;
};

} // namespace sim
