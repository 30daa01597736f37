// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "boot.h"
#include "control_table.h"
#include "eeprom.h"
#include "i2c_master.h"
#include "leds.h"
#include "model.h"
#include "spi_controller.h"
#include "spi_flash.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace sim {

/// Everything that a probe on the board or a debugger in the controller would see.
struct ChipState {
    ChipState(const CameraModel& the_model, Clock& clock, std::span<const uint8_t> rom_contents);
    ChipState(const ChipState&) = delete;
    ChipState& operator=(const ChipState&) = delete;

    /// The ROM has power again; then as reset().
    void power_up();
    /// The controller's volatile state is lost; the boot rule chooses the firmware. The ROM goes on
    /// with what it is at, and is not there to boot from meanwhile.
    void reset();
    void power_cut();
    /// Writes one controller register with everything that hangs on it.
    void write_register(uint16_t address, uint8_t value);
    void set_write_protect(bool on);
    /// To be called before registers are read: what the firmware has done in the meantime.
    void settle();
    /// A finger on the fingerprint board's detector; it stays there over a restart.
    void set_touch(uint8_t state);
    uint8_t touch() const { return touch_; }
    /// The picture has moved; the alarm stays until the host clears it.
    void raise_motion_alarm();
    bool motion_alarm() const;

    const CameraModel model;
    std::vector<uint8_t> rom;
    std::optional<SpiFlash> flash; ///< one of these two is fitted
    std::optional<Eeprom> eeprom;
    std::array<uint8_t, 0x10000> xdata{};
    std::array<uint8_t, 0x10000> sensor{};
    std::array<uint8_t, 0x100> mcu_data{};
    SpiController spi;
    Leds leds;
    I2cMaster i2c;
    RunningFirmware firmware;
    bool write_protect = true;
    uint16_t flash_block = 0;
    bool restart_pending = false;
    uint32_t sensor_resets = 0; ///< by command or by the reset pin
    uint32_t snapshot_triggers = 0;

private:
    void publish_firmware_state();
    void set_encoder_defaults();
    void run_board_command(uint16_t address, uint8_t value);
    void drive_wp_pins();
    bool rom_is_busy();
    bool eeprom_protected() const;

    uint8_t touch_ = 0;
};

/// The 11 bytes that describe the flash part to the host and to the controller's own driver.
inline constexpr uint16_t kFlashInfoReg = 0x0A27;
inline constexpr size_t kFlashInfoBytes = 11;
std::array<uint8_t, kFlashInfoBytes> flash_info(const CameraModel& model);

} // namespace sim
