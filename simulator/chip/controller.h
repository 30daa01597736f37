// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "boot.h"
#include "canvas.h"
#include "clock.h"
#include "h264_unit.h"
#include "model.h"
#include "rom_fault.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace sim {

class Osd;

/// Answer of an extension-unit request that the firmware does not know.
inline constexpr int kStall = -1;

/// One camera controller with its memories and peripherals, running a firmware. Knows nothing of
/// USB beyond the request code and the data of a control. Not thread-safe; its owner locks.
class Controller {
public:
    /// Powers the chip up: applies the boot rule to `rom` (empty: the model's factory contents).
    Controller(const CameraModel& model, Clock& clock, std::span<const uint8_t> rom = {});
    ~Controller();

    /// One request to an extension unit. SET_*: `data` is what the host sent. GET_*: `data` is
    /// the room for the answer (wLength bytes). Returns the bytes moved, or kStall.
    int xu_request(uint8_t unit, uint8_t selector, uint8_t request, std::span<uint8_t> data);

    /// The firmware has asked for a restart (register 0x26); the bus takes the camera away, calls
    /// restart() and brings it back with a new address.
    bool restart_pending() const;
    /// The controller's reset: its volatile state is lost, the boot rule runs. A ROM that is busy
    /// stays so, and the mask ROM's firmware starts.
    void restart();
    /// The power goes: what the ROM is writing stays half done. The next power_cycle() powers up.
    void power_cut();
    void power_cycle();
    /// From now on something may go wrong with the external ROM; an empty hook ends it.
    void set_rom_fault(const RomFaultHook& hook);

    /// Draws the picture that the sensor sees now, `scene` or the test pattern, with everything the
    /// firmware lays over it, as YUYV. The settings concern neither that nor the frame number.
    /// Thread: under the owner's lock.
    void picture(uint32_t width, uint32_t height, uint32_t frame_number, std::span<uint8_t> yuyv,
                 const PictureSettings& settings = {}, const View& scene = {}) const;
    /// Nothing is turned, laid over or numbered: a scene of the right size is the picture.
    bool leaves_scenes_alone() const;

    // What a bench engineer would see with probes on the board.
    const CameraModel& model() const;
    bool runs_external_firmware() const;
    const RunningFirmware& firmware() const;
    const H264Unit& h264() const;
    const Osd& osd() const;
    std::span<uint8_t> rom();            ///< whole external ROM, live
    uint8_t reg(uint16_t address) const; ///< controller register (XDATA)
    void set_reg(uint16_t address, uint8_t value);
    bool gpio(unsigned index) const;            ///< pin level, 0 to 15
    bool drives_gpio(unsigned index) const;     ///< the pin is an output
    uint8_t flash_status() const;               ///< status register of the SPI flash, 0 for EEPROM
    bool write_protect() const;                 ///< the controller's write-protect control
    uint8_t sensor_reg(uint16_t address) const; ///< image sensor, also at 0x60 on the I2C bus
    void raise_motion_alarm();
    bool motion_alarm() const;     ///< raised and not cleared by the host
    void set_touch(uint8_t state); ///< what the fingerprint board's detector feels
    uint8_t touch() const;
    uint32_t sensor_resets() const; ///< commanded so far, by register or pin
    uint32_t snapshot_triggers() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace sim
