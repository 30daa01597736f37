// SPDX-License-Identifier: Apache-2.0
#include "chip_state.h"

#include "firmware_image.h"

#include <algorithm>

namespace sim {
namespace {

constexpr uint16_t kClockReg = 0x0026;
constexpr uint8_t kRestartBit = 0x10;

constexpr uint16_t kGpioDataReg = 0x0020;   // one bit per pin, two bytes
constexpr uint16_t kGpioEnableReg = 0x0022; // likewise
constexpr uint16_t kGpio0SelectReg = 0x0029;
constexpr uint8_t kGpio0Selected = 0x80;

constexpr uint16_t kMjpegGainReg = 0x0060;
constexpr uint8_t kDefaultMjpegGain = 16;

// Encoder settings that have no control: the I-frame period and the period less one, big-endian,
// and two bytes whose bits 3 together choose format 0.
constexpr uint16_t kIFramePeriodReg = 0x0D00;
constexpr std::array<uint8_t, 4> kDefaultIFramePeriod = {0, 30, 0, 29};
constexpr uint16_t kH264FormatReg = 0x0D0A;
constexpr std::array<uint8_t, 2> kDefaultH264Format = {0x08, 0x08};

constexpr uint16_t kMotionAlarmReg = 0x0B87;
constexpr uint8_t kMotionAlarm = 0x01;

// Commands and state of the fingerprint board.
constexpr uint16_t kSensorCommandReg = 0x0B78;
constexpr uint8_t kSnapshotTrigger = 3;
constexpr uint8_t kSensorReset = 4;
constexpr uint16_t kSensorResetPinReg = 0x0B8D;
constexpr uint16_t kTouchReg = 0x0B8F;

constexpr uint16_t kSensorIdReg = 0x0000;
constexpr std::array<uint8_t, 2> kSensorId = {0x51, 0x20};

constexpr uint8_t kSpeedField = 0x20; // MCU data
constexpr uint8_t kHighSpeed = 0x01;
constexpr uint8_t kSystemModelField = 0x21;
constexpr uint8_t kModelSpi = 0x04;
constexpr uint8_t kModelExternalFirmware = 0x08;
constexpr uint8_t kModelSetfile = 0x10;

// Firmware locks the flash when it starts.
constexpr uint8_t kLockedByGpio0 = 0x9C;
constexpr uint8_t kLockedByControl = 0x8C;

uint8_t lock_status(const CameraModel& model)
{
    return model.gpio0_is_wp ? kLockedByGpio0 : kLockedByControl;
}

std::vector<uint8_t> rom_with(const CameraModel& model, std::span<const uint8_t> contents)
{
    std::vector<uint8_t> rom(rom_bytes(model), 0xFF);
    std::vector<uint8_t> factory;
    if (contents.empty()) {
        factory = make_firmware_image(factory_image_request(model));
        contents = factory;
    }
    std::copy_n(contents.begin(), std::min(contents.size(), rom.size()), rom.begin());
    return rom;
}

} // namespace

std::array<uint8_t, kFlashInfoBytes> flash_info(const CameraModel& model)
{
    if (model.rom_kind != RomKind::kSpiFlash)
        return {};
    const FlashPart& part = model.flash;
    return {part.info_param,
            part.chip_erase_command,
            part.block_erase_command,
            part.sector_erase_command,
            part.read_id_command,
            part.id[0],
            part.id[1],
            part.id[2],
            part.controller_params[0],
            part.controller_params[1],
            part.controller_params[2]};
}

ChipState::ChipState(const CameraModel& the_model, Clock& clock,
                     std::span<const uint8_t> rom_contents)
    : model(the_model),
      rom(rom_with(the_model, rom_contents)),
      flash(model.rom_kind == RomKind::kSpiFlash
                ? std::optional<SpiFlash>(std::in_place, model.flash, clock, rom)
                : std::nullopt),
      eeprom(model.rom_kind == RomKind::kEeprom
                 ? std::optional<Eeprom>(std::in_place, model.eeprom, clock, rom)
                 : std::nullopt),
      spi(xdata, flash ? &*flash : nullptr, clock),
      leds(xdata, clock),
      i2c(xdata, sensor)
{
    power_up();
}

void ChipState::power_up()
{
    if (flash)
        flash->power_up(lock_status(model));
    if (eeprom)
        eeprom->power_up();
    reset();
}

void ChipState::power_cut()
{
    if (flash)
        flash->power_cut();
    if (eeprom)
        eeprom->power_cut();
}

void ChipState::reset()
{
    xdata.fill(0);
    sensor.fill(0);
    mcu_data.fill(0);
    flash_block = 0;
    restart_pending = false;
    spi.power_up();
    firmware = boot(model, rom_is_busy() ? std::span<const uint8_t>() : rom);
    if (flash)
        flash->lock(lock_status(model));
    publish_firmware_state();
    set_write_protect(true);
}

void ChipState::publish_firmware_state()
{
    std::ranges::copy(flash_info(model), xdata.begin() + kFlashInfoReg);
    std::ranges::copy(kSensorId, sensor.begin() + kSensorIdReg);
    xdata[kTouchReg] = touch_;
    set_encoder_defaults();
    mcu_data[kSpeedField] = kHighSpeed;
    mcu_data[kSystemModelField] = static_cast<uint8_t>(
        (flash ? kModelSpi : 0) | (firmware.external ? kModelExternalFirmware : 0) |
        (firmware.has_setfile ? kModelSetfile : 0));
}

void ChipState::set_encoder_defaults()
{
    xdata[kMjpegGainReg] = kDefaultMjpegGain;
    std::ranges::copy(kDefaultIFramePeriod, xdata.begin() + kIFramePeriodReg);
    std::ranges::copy(kDefaultH264Format, xdata.begin() + kH264FormatReg);
}

uint8_t ChipState::reg(uint16_t address)
{
    settle();
    return xdata[address];
}

bool ChipState::drives_gpio(unsigned index) const
{
    if (index >= kGpioCount)
        return false;
    // GPIO 0 shares its pin with another function and needs to be selected first.
    if (index == 0 && (xdata[kGpio0SelectReg] & kGpio0Selected) == 0)
        return false;
    return (xdata[kGpioEnableReg + index / 8] & 1U << index % 8) != 0;
}

bool ChipState::gpio(unsigned index) const
{
    return drives_gpio(index) && (xdata[kGpioDataReg + index / 8] & 1U << index % 8) != 0;
}

void ChipState::let_go_of_rom()
{
    spi.let_go_of_flash();
    flash.reset();
    eeprom.reset();
    rom.clear();
    rom.shrink_to_fit();
}

void ChipState::set_rom_fault(const RomFaultHook& hook)
{
    if (flash)
        flash->set_fault(hook);
    if (eeprom)
        eeprom->set_fault(hook);
}

void ChipState::set_reg(uint16_t address, uint8_t value)
{
    xdata[address] = value;
    if (address == kClockReg && (value & kRestartBit) != 0)
        restart_pending = true;
    spi.written(address);
    leds.written(address);
    i2c.written(address);
    run_board_command(address, value);
    drive_wp_pins();
}

void ChipState::run_board_command(uint16_t address, uint8_t value)
{
    const bool reset_pin_pulsed = address == kSensorResetPinReg && value == 1;
    const bool is_command = address == kSensorCommandReg;
    if (reset_pin_pulsed || (is_command && value == kSensorReset)) {
        ++sensor_resets;
    } else if (is_command && value == kSnapshotTrigger) {
        ++snapshot_triggers;
    }
}

void ChipState::settle()
{
    spi.settle();
    leds.settle();
}

void ChipState::set_touch(uint8_t state)
{
    touch_ = state;
    xdata[kTouchReg] = state;
}

void ChipState::raise_motion_alarm()
{
    xdata[kMotionAlarmReg] |= kMotionAlarm;
}

bool ChipState::motion_alarm() const
{
    return (xdata[kMotionAlarmReg] & kMotionAlarm) != 0;
}

void ChipState::set_write_protect(bool on)
{
    write_protect = on;
    drive_wp_pins();
}

void ChipState::drive_wp_pins()
{
    if (flash)
        flash->set_wp_pin(model.gpio0_is_wp ? !gpio(0) : write_protect);
    if (eeprom)
        eeprom->set_protected(eeprom_protected());
}

bool ChipState::rom_is_busy()
{
    return (flash && flash->is_busy()) || (eeprom && eeprom->busy());
}

/// The fingerprint board pulls the EEPROM's protection pin up; only GPIO 0 can pull it down.
bool ChipState::eeprom_protected() const
{
    const bool released = drives_gpio(0) && !gpio(0);
    return write_protect || (model.gpio0_protects_eeprom && !released);
}

} // namespace sim
