// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A camera that is open: identity, memories, and the features that take a value or two.
 */
#ifndef NYXUS_CPP_CAMERA_HPP
#define NYXUS_CPP_CAMERA_HPP

#include <nyxus/config.h>
#include <nyxus/device.h>
#include <nyxus/extensions.h>
#include <nyxus/flash.h>
#include <nyxus/memory.h>
#include <nyxus/peripheral.h>
#include <nyxus/cpp/camera_list.hpp>

#include <array>
#include <iterator>
#include <optional>

namespace nyxus {

class H264;
class Osd;
class Rom;

/// What the probe has found in the external ROM.
enum class RomState {
    kFirmware, ///< firmware for this chip
    kBlank,    ///< none; the flash has told what it is
    kUnknown,  ///< none, and no flash answers: an EEPROM, or nothing
};

/// The SPI flash behind the controller.
struct Flash {
    std::string name;          ///< of the part; "" for one that is not in the catalogue
    std::array<uint8_t, 3> id; ///< maker, type, capacity
    uint32_t part_bytes;       ///< of the whole part; 0 for one that is not in the catalogue
};

/// A control of the vendor's extension unit.
struct XuControl {
    uint8_t selector;
    std::string name;
    uint32_t size; ///< bytes, as this camera has announced
};

/// A pin of the controller, as it is driven.
enum class PinState {
    kNotDriven,
    kLow,
    kHigh,
};

/**
 * An open, probed camera. It is closed when the object dies; one that is gone is abandoned, since
 * closing it would end the process (DEV_DeleteObject() knows). A stream ends before its camera.
 *
 * Move only. One thread at a time per camera. A camera that has been moved from can be destroyed
 * and assigned to, nothing else.
 */
class Camera {
public:
    /**
     * Opens and probes a camera; a kernel driver is detached as long as it is open.
     *
     * Fails with NYXUS_E_INVALID where the ROM holds no firmware: see open_blank(). EEPROMs lose
     * writes that follow each other too soon, so this raises the process-wide
     * nyxus_write_cycle_time to 5 ms if it is lower.
     *
     * Blocks for about 30 transfers. One thread at a time.
     */
    static Result<Camera> open(const CameraInfo& info)
    {
        raise_write_cycle_time();
        nyxus_errno = 0;
        nyxus_rv = 0;
        NyDevice* device = DEV_CreateObjectUsb(info.device.get());
        if (device != nullptr)
            return Camera(info, {device, DEV_DeleteObject}, RomState::kFirmware);
        if (nyxus_rv != 0)
            return probe_failure(nyxus_rv);
        if (nyxus_errno != 0)
            return Status::of(nyxus_errno);
        // libuvc could not open it, and says only on standard error why.
        Status claim = can_claim(info);
        return claim ? libuvc_failure() : std::move(claim);
    }

    /**
     * Opens a camera whose ROM holds no firmware, for instance after an upgrade that broke off: the
     * flash is asked directly what it is. Where none answers, rom_state() is kUnknown, and
     * assume_eeprom() tells what there is. kFirmware where the ROM holds firmware after all.
     *
     * Blocks for about 50 transfers, without a flash for seconds. One thread at a time.
     */
    static Result<Camera> open_blank(const CameraInfo& info)
    {
        raise_write_cycle_time();
        Handle device(new NyDevice{}, delete_own);
        device->state = 1;
        device->index = -1;
        device->usb_device = info.device.get();
        init_uvc_video(device.get());
        if (device->uvc_handle == nullptr)
            return libuvc_failure();
        device->usb_handle = uvc_get_libusb_handle(device->uvc_handle);
        libusb_set_auto_detach_kernel_driver(device->usb_handle, 1);
        auto state = ask_flash(*device);
        if (!state)
            return state.status();
        return Camera(info, std::move(device), *state);
    }

    Camera(Camera&&) noexcept = default;
    Camera& operator=(Camera&& other) noexcept
    {
        // The old camera is closed while its libusb device is still held.
        device_ = std::move(other.device_);
        info_ = std::move(other.info_);
        rom_state_ = other.rom_state_;
        return *this;
    }

    /// For the functions of the C interface. The object owns it.
    NyDevice* device() { return device_.get(); }
    const NyDevice* device() const { return device_.get(); }
    const CameraInfo& info() const { return info_; }
    /// Closes the camera now; nothing but destruction and assignment may follow.
    void close() { device_.reset(); }

    // What the probe has learnt. Nothing here blocks.

    /// Name of the controller chip, such as "NY6410".
    std::string chip() const { return field_text(device_->oBackend.name); }
    /// Name of its family.
    std::string family() const
    {
        const uint32_t index = device_->oBackend.family;
        return index < std::size(IC_FAMILY_STR) ? IC_FAMILY_STR[index] : IC_FAMILY_STR[0];
    }
    /// Version text of the firmware inside the chip.
    std::string internal_version() const { return field_text(device_->szIntFwVer); }
    std::string setfile_version() const { return field_text(device_->szSetfileVer); }
    /// Version of the firmware in the external ROM.
    uint16_t firmware_version() const { return device_->wExtFwVer; }
    uint16_t sensor_application() const { return device_->wExtSensorApId; }
    /// Of the extension unit; nothing where older firmware has none.
    std::optional<uint16_t> xu_version() const
    {
        const uint16_t version = device_->oXuCtrlVer.wVersion;
        return device_->xFeatureXU != 0 ? std::optional<uint16_t>(version) : std::nullopt;
    }
    /// Whether addresses beyond 64 KiB and other memories can be reached.
    bool has_memory_extension() const { return device_->xFeatureEM != 0; }
    bool runs_external_firmware() const { return device_->oFwStatus.xExtFwExist != 0; }
    RomState rom_state() const { return rom_state_; }
    /// The external ROM is an SPI flash, otherwise an I2C EEPROM.
    bool has_spi_flash() const { return device_->xSpiMode != 0; }
    /// What the probe has found out of it; nothing for an EEPROM.
    std::optional<Flash> flash() const
    {
        if (device_->xSpiMode == 0)
            return std::nullopt;
        constexpr uint32_t kSmallest = 32 << 10;
        constexpr uint32_t kMostDoublings = 15; // beyond any part; the record comes from the camera
        const NyFlashInfo& found = device_->oFlashInfo;
        Flash flash = {field_text(found.szName), {}, 0};
        std::copy(std::begin(found.ID), std::end(found.ID), flash.id.begin());
        // The catalogue's last row stands for every part that it lacks.
        const NyFlashInfo& unlisted = spi_flash_table[spi_flash_table_count - 1];
        if (flash.name == field_text(unlisted.szName)) {
            flash.name.clear();
        } else {
            flash.part_bytes = kSmallest << std::min<uint32_t>(found.bSize, kMostDoublings);
        }
        return flash;
    }
    /// Bytes of the ROM that the controller uses.
    uint32_t rom_size() const { return device_->dwExtRomSize; }

    /// Takes an unknown ROM for an EEPROM of this size, at most 0x8000 bytes. Blocks for a
    /// transfer.
    Status assume_eeprom(uint32_t size_bytes)
    {
        constexpr uint32_t kTypeUnit = 128;
        constexpr uint32_t kLargestType = 0x80;
        device_->xSpiMode = 0;
        device_->dwExtRomSize = size_bytes;
        device_->bExtRomType = static_cast<uint8_t>(std::min(size_bytes / kTypeUnit, kLargestType));
        return Status::of(XuSetExtRomType(device(), device_->bExtRomType));
    }

    // Parts with a header of their own.

    Rom rom();
    Osd osd();
    H264 h264();

    // Memories; addresses and lengths count 16 bits, in the MCU 8.

    Status read_registers(uint16_t address, Span<uint8_t> bytes)
    {
        return transfer(XuRegRead, address, bytes, 0xFFFF);
    }
    Status write_registers(uint16_t address, Bytes bytes)
    {
        return transfer(XuRegWrite, address, bytes, 0xFFFF);
    }
    Status read_sensor(uint16_t address, Span<uint8_t> bytes)
    {
        return transfer(XuSensorRead, address, bytes, 0xFFFF);
    }
    Status write_sensor(uint16_t address, Bytes bytes)
    {
        return transfer(XuSensorWrite, address, bytes, 0xFFFF);
    }
    Status read_mcu(uint8_t address, Span<uint8_t> bytes)
    {
        return transfer(XuMcuDataRead, address, bytes, 0xFF);
    }
    Status write_mcu(uint8_t address, Bytes bytes)
    {
        return transfer(XuMcuDataWrite, address, bytes, 0xFF);
    }

    // Picture. Each blocks for up to two transfers.

    /// The picture is upside down.
    Result<bool> flip() { return get_flag(XuGetFlip); }
    Status set_flip(bool on) { return Status::of(XuSetFlip(device(), on)); }
    /// Left and right are swapped.
    Result<bool> mirror() { return get_flag(XuGetMirror); }
    Status set_mirror(bool on) { return Status::of(XuSetMirror(device(), on)); }
    /// Quantisation gain of MJPEG: 1 to 63, but not 32.
    Result<uint8_t> mjpeg_gain() { return get_byte(XU_MjpgQGainGet); }
    Status set_mjpeg_gain(uint8_t gain) { return Status::of(XU_MjpgQGainSet(device(), gain)); }

    // Peripherals; nyxus/peripheral.h has the ranges.

    /// All pins, 0 to 15. Blocks for two transfers.
    Result<std::array<PinState, 16>> gpio()
    {
        constexpr uint16_t kPinRegisters = 0x20; // levels of pins 0 to 7, 8 to 15; which are driven
        uint8_t registers[4] = {};
        std::array<PinState, 16> pins{};
        Status status = read_registers(kPinRegisters, registers);
        if (!status)
            return status;
        for (size_t pin = 0; pin < pins.size(); ++pin) {
            const bool high = (registers[pin / 8] >> pin % 8 & 1) != 0;
            if ((registers[2 + pin / 8] >> pin % 8 & 1) != 0)
                pins[pin] = high ? PinState::kHigh : PinState::kLow;
        }
        return pins;
    }
    /// Drives pin 0 to 15. Writes that fail are not noticed. Blocks for up to 9 transfers.
    Status set_gpio(uint8_t pin, bool high)
    {
        return Status::of(XU_GpioSet(device(), pin, high ? GPIO_HIGH : GPIO_LOW));
    }
    /// State bits of an LED (mask 0x58); Reason::kBusy while an update is pending.
    Result<uint8_t> led(uint8_t index)
    {
        uint8_t state = 0;
        const int32_t status = XU_LedStatusGet(device(), index, &state);
        return status == NYXUS_E_BUSY ? led_is_busy() : Result<uint8_t>::of(status, state);
    }
    Status set_led(uint8_t index, uint8_t state)
    {
        const int32_t status = XU_LedStatusSet(device(), index, state);
        return status == NYXUS_E_BUSY ? led_is_busy() : Status::of(status);
    }
    /// Address of the I2C device in 8-bit form; bit 0 is the addressing mode.
    Result<uint8_t> i2c_config() { return get_byte(XU_I2cConfigGet); }
    Status set_i2c_config(uint8_t config) { return Status::of(XU_I2cConfigSet(device(), &config)); }
    /// Reads 1 to 8 bytes of the I2C device; the register address has 9 bits.
    Status read_i2c(uint16_t address, Span<uint8_t> bytes)
    {
        return i2c_transfer(XU_I2cGet, address, bytes);
    }
    Status write_i2c(uint16_t address, Bytes bytes)
    {
        return i2c_transfer(XU_I2cSet, address, bytes);
    }

    /// The four bytes of the motion detection, which the firmware defines.
    Result<std::array<uint8_t, 4>> motion_setting()
    {
        std::array<uint8_t, 4> setting{};
        const int32_t status = XU_MotionDetectGet(device(), setting.data());
        return Result<std::array<uint8_t, 4>>::of(status, setting);
    }
    Status set_motion_setting(const std::array<uint8_t, 4>& setting)
    {
        return Status::of(XU_MotionDetectSet(device(), setting.data()));
    }
    /// Whether there was motion since the last poll; acknowledges it.
    Result<bool> poll_motion() { return get_flag(XU_MotionDetectPoll); }

    // Raw requests to the vendor's extension unit, with the lengths that this camera has announced.
    // Each blocks for a transfer.

    /// Asks the camera nothing.
    std::vector<XuControl> xu_controls()
    {
        std::vector<XuControl> controls;
        for (int32_t row = 0; row < device_->xu_table_count; ++row) {
            const uvc_xu_ctrl& control = device_->xu_table[row];
            const int32_t size = nyxus_control_length(device(), control.selector);
            controls.push_back({control.selector, field_text(control.name),
                                static_cast<uint32_t>(std::max(size, 0))});
        }
        return controls;
    }
    /// NYXUS_E_INVALID (kNotSupported) when the camera's table lacks the control.
    Result<std::vector<uint8_t>> get_xu(uint8_t selector)
    {
        const int32_t size = nyxus_control_length(device(), selector);
        if (size < 0)
            return Status::of(size);
        std::vector<uint8_t> bytes(static_cast<size_t>(size));
        const int32_t status = UvcXuCtrlQueryNYXU(device(), selector, UVC_GET_CUR, bytes.data());
        return Result<std::vector<uint8_t>>::of(status, std::move(bytes));
    }
    /// kOutOfRange unless there are as many bytes as the control has.
    Status set_xu(uint8_t selector, Bytes bytes)
    {
        const int32_t size = nyxus_control_length(device(), selector);
        if (size < 0)
            return Status::of(size);
        if (bytes.size() != static_cast<size_t>(size)) {
            return {NYXUS_E_RANGE, "this control has " + std::to_string(size) + " bytes, not " +
                                       std::to_string(bytes.size())};
        }
        std::vector<uint8_t> copy(bytes.begin(), bytes.end());
        return Status::of(UvcXuCtrlQueryNYXU(device(), selector, UVC_SET_CUR, copy.data()));
    }

    /// Restarts the camera, which leaves the bus and comes back with a new address. Then close()
    /// it, or wait_for_restart(). A failure is to be expected when the chip was quick.
    Status restart() { return Status::of(XU_ChipReset(device())); }

    /**
     * After a restart(): closes this object, waits until the camera has left its port and is back,
     * and opens it again, also when its ROM holds no firmware (rom_state() tells). As
     * nyxus::wait_for_restart() otherwise, and as open().
     */
    Result<Camera> wait_for_restart(uint32_t timeout_ms)
    {
        const CameraInfo before = info_;
        close();
        const Result<CameraInfo> now = nyxus::wait_for_restart(before, timeout_ms);
        if (!now)
            return now.status();
        Result<Camera> camera = open(*now);
        if (!camera && camera.status().code() == NYXUS_E_INVALID)
            return open_blank(*now);
        return camera;
    }

private:
    using Handle = std::unique_ptr<NyDevice, void (*)(NyDevice*)>;

    Camera(CameraInfo info, Handle device, RomState rom_state)
        : info_(std::move(info)), device_(std::move(device)), rom_state_(rom_state)
    {
    }

    static void raise_write_cycle_time()
    {
        constexpr uint8_t kEepromWriteCycle_ms = 5;
        if (nyxus_write_cycle_time < kEepromWriteCycle_ms)
            nyxus_write_cycle_time = kEepromWriteCycle_ms;
    }

    /// The library frees no objects.
    static void delete_own(NyDevice* device)
    {
        DEV_DeleteObject(device);
        delete device;
    }

    static Status libuvc_failure()
    {
        return {NYXUS_E_NO_SUPPORT, "libuvc does not understand its descriptors"};
    }

    static Status probe_failure(int32_t returned, const std::string& version = {})
    {
        constexpr int32_t kUnknownChip = 3;
        if (returned != kUnknownChip)
            return Status::of(returned);
        return {returned,
                "unknown controller" +
                    (version.empty() ? "" : ", its internal firmware is '" + version + "'")};
    }

    static bool flash_is_unknown(int32_t returned)
    {
        return returned == NYXUS_E_INVALID || returned == NYXUS_E_UNSUPPORTED ||
               returned == NYXUS_E_SPI_COMMAND;
    }

    /// Probes a camera whose ROM tells nothing: a flash says what it is when it is asked with the
    /// right command.
    static Result<RomState> ask_flash(NyDevice& device)
    {
        constexpr uint8_t kReadIdCommands[] = {0x9F, 0x90, 0xAB, 0x15}; // most common first
        // A request for the status that failed in passing hides firmware, too: look again.
        int32_t rv = DEV_Init(&device);
        if (rv == 0)
            return RomState::kFirmware;
        if (!flash_is_unknown(rv))
            return probe_failure(rv, field_text(device.szIntFwVer));
        for (const uint8_t command : kReadIdCommands) {
            device.oFlashInfo = {};
            device.oFlashInfo.bCmdRDID = command;
            rv = MP_QueryExtRom(&device);
            if (rv != 0 && rv != NYXUS_E_SPI_COMMAND)
                return probe_failure(rv);
            const uint8_t(&id)[3] = device.oFlashInfo.ID;
            const bool silent = id[0] == id[1] && (id[0] == 0x00 || id[0] == 0xFF);
            if (rv == 0 && !silent)
                return RomState::kBlank;
        }
        device.oFlashInfo = {};
        device.xSpiMode = 0;
        device.dwExtRomSize = 0;
        return RomState::kUnknown;
    }

    static Status led_is_busy()
    {
        return {Reason::kBusy, "an update of the LED is pending", NYXUS_E_BUSY};
    }

    static Status out_of_range(const char* what)
    {
        return {NYXUS_E_RANGE, std::string(what) + " out of range"};
    }

    template <typename Function, typename Byte>
    Status transfer(Function function, uint32_t address, Span<Byte> bytes, uint32_t most)
    {
        if (bytes.size() > most)
            return out_of_range("length");
        return Status::of(
            function(device(), address, static_cast<uint32_t>(bytes.size()), bytes.data()));
    }

    template <typename Function, typename Byte>
    Status i2c_transfer(Function function, uint16_t address, Span<Byte> bytes)
    {
        if (address > 0x1FF)
            return out_of_range("register address");
        if (bytes.empty() || bytes.size() > 8)
            return out_of_range("length");
        return Status::of(
            function(device(), address, static_cast<uint8_t>(bytes.size()), bytes.data()));
    }

    Result<uint8_t> get_byte(int32_t (*function)(NyDevice*, uint8_t*))
    {
        uint8_t value = 0;
        const int32_t status = function(device(), &value);
        return Result<uint8_t>::of(status, value);
    }

    Result<bool> get_flag(int32_t (*function)(NyDevice*, uint8_t*))
    {
        uint8_t value = 0;
        const int32_t status = function(device(), &value);
        return Result<bool>::of(status, value != 0);
    }

    CameraInfo info_; // outlives the device that it holds
    Handle device_;
    RomState rom_state_;
};

/// The library's version, such as "2.0.11". Thread-safe.
inline std::string version()
{
    char text[8] = "";
    LIB_NyxusGetVersion(text);
    const std::string line = field_text(text);
    return line.substr(0, line.find('\n'));
}

} // namespace nyxus

#endif
