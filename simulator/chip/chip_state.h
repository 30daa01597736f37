// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "boot.h"
#include "control_table.h"
#include "eeprom.h"
#include "model.h"
#include "peripherals.h"
#include "spi_controller.h"
#include "spi_flash.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace sim {

inline constexpr unsigned kGpioCount = 16;

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
    /// A controller register (XDATA), after what the firmware has done in the meantime.
    uint8_t reg(uint16_t address);
    /// Writes one with everything that hangs on it.
    void set_reg(uint16_t address, uint8_t value);
    /// The pin is an output; otherwise what hangs on it decides its level.
    bool drives_gpio(unsigned index) const;
    /// Level of a pin, 0 to 15, as the registers drive it. One that is not driven is pulled low.
    bool gpio(unsigned index) const;
    /// Status register of the SPI flash, 0 for EEPROM.
    uint8_t flash_status() { return flash ? flash->status() : uint8_t{0}; }
    /// Nobody will power it up again, nor ask it anything.
    void let_go_of_rom();
    /// From now on something may go wrong with the external ROM; an empty hook ends it.
    void set_rom_fault(const RomFaultHook& hook);
    void set_write_protect(bool on);
    void settle();
    /// A finger on the fingerprint board's detector; it stays there over a restart.
    void set_touch(uint8_t state);
    uint8_t touch() const { return touch_; }
    /// The picture has moved; the alarm stays until the host clears it.
    void raise_motion_alarm();
    bool motion_alarm() const;

    const CameraModel model;
    std::vector<uint8_t> rom;      ///< the whole external one, live
    std::optional<SpiFlash> flash; ///< one of these two is fitted
    std::optional<Eeprom> eeprom;
    std::array<uint8_t, 0x10000> xdata{};
    std::array<uint8_t, 0x10000> sensor{}; ///< image sensor, also at 0x60 on the I2C bus
    std::array<uint8_t, 0x100> mcu_data{};
    SpiController spi;
    Leds leds;
    I2cMaster i2c;
    RunningFirmware firmware;
    bool write_protect = true;
    uint16_t flash_block = 0;
    bool restart_pending = false; ///< asked for by register 0x26
    uint32_t sensor_resets = 0;   ///< by command or by the reset pin
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
