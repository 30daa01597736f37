// SPDX-License-Identifier: Apache-2.0
#include "vendor_xu.h"

#include "memory_frame.h"
#include "prng.h"
#include "uvc_request.h"

#include <algorithm>

namespace sim {

namespace {

constexpr uint8_t kHardwareVersion = 0x01;
constexpr uint8_t kRomTypeSpi = 0xFF;
constexpr uint32_t kRomTypeUnit = 128;
constexpr uint32_t kLargestRomType = 0x80;

uint8_t rom_type(const CameraModel& model)
{
    if (model.rom_kind == RomKind::kSpiFlash)
        return kRomTypeSpi;
    return static_cast<uint8_t>(std::min(model.eeprom.size_bytes / kRomTypeUnit, kLargestRomType));
}

uint8_t largest_value(uint8_t selector)
{
    switch (selector) {
        case kFlip:
            return 0x02;
        case kMirror:
        case kWriteProtect:
            return 0x01;
        default:
            return 0xFF;
    }
}

void put_text(std::span<uint8_t> out, std::string_view text)
{
    std::copy_n(text.begin(), std::min(text.size(), out.size()), out.begin());
}

void put_xu_version(const CameraModel& model, std::span<uint8_t> out)
{
    put_text(out, model.selects_every_block ? "FF" : "XU");
    out[2] = static_cast<uint8_t>(model.xu_version);
    out[3] = static_cast<uint8_t>(model.xu_version >> 8);
    if (model.has_memory_extension) {
        out[4] = 'E';
        out[5] = 'M';
    }
    out[6] = 0x01; // version of the memory extension
}

} // namespace

VendorXu::VendorXu(ChipState& chip, Clock& clock)
    : chip_(chip), rom_(chip), osd_(clock, chip.model.internal_version)
{
    power_up();
}

void VendorXu::power_up()
{
    for (auto& setting : settings_)
        setting.fill(0);
    frame_512_.fill(0);
    osd_.power_up();
    settings_[kExtRomType][0] = rom_type(chip_.model);
}

int VendorXu::request(uint8_t selector, uint8_t code, std::span<uint8_t> data)
{
    const std::optional<Control> control = find_control(chip_.model, selector);
    if (!control)
        return kStall;
    if (code == kSetCur)
        return set_current(*control, data);

    std::array<uint8_t, kLongestControl> buffer{};
    auto out = std::span(buffer).first(control->length);
    switch (code) {
        case kGetCur:
            get_current(*control, out);
            break;
        case kGetMin:
        case kGetMax:
        case kGetRes:
        case kGetDef:
            get_limit(*control, code, out);
            break;
        case kGetLen:
            out = std::span(buffer).first(2);
            out[0] = static_cast<uint8_t>(control->length);
            out[1] = static_cast<uint8_t>(control->length >> 8);
            break;
        case kGetInfo:
            out = std::span(buffer).first(1);
            out[0] = control->is_read_only ? kInfoGet : kInfoGetAndSet;
            break;
        default:
            return kStall;
    }
    return put_answer(out, data);
}

int VendorXu::set_current(const Control& control, std::span<const uint8_t> data)
{
    if (data.size() != control.length || control.is_read_only)
        return kStall;
    if (control.selector == kExtRom512) {
        set_rom_512(data);
        return static_cast<int>(data.size());
    }
    if (control.is_memory && !set_memory(control, data))
        return kStall;

    auto& setting = settings_[control.selector];
    std::ranges::copy(data, setting.begin());
    if (control.selector == kFlashBlock) {
        chip_.flash_block = static_cast<uint16_t>(data[0] | data[1] << 8);
    } else if (control.selector == kWriteProtect) {
        chip_.set_write_protect(data[0] != 0);
    } else if (control.selector == kFlashReadId) {
        rom_.read_id(data[0], data[1], std::span(setting).first(3));
    } else if (control.selector == kOsd) {
        osd_.command(std::span(setting).first<Osd::kCommandBytes>());
    }
    return static_cast<int>(data.size());
}

void VendorXu::get_current(const Control& control, std::span<uint8_t> out)
{
    switch (control.selector) {
        case kHwVersion:
            out[0] = kHardwareVersion;
            break;
        case kWriteProtect:
            out[0] = chip_.write_protect ? 1 : 0;
            break;
        case kExtRom512:
            get_rom_512(out);
            break;
        case kSetfileVersion:
        case kIntFwVersion:
        case kXuVersion:
        case kDevStatus:
        case kFlashInfo:
            get_status_record(control.selector, out);
            break;
        default:
            std::copy_n(settings_[control.selector].begin(), out.size(), out.begin());
            if (control.is_memory)
                get_memory(control, out);
            break;
    }
}

void VendorXu::get_status_record(uint8_t selector, std::span<uint8_t> out)
{
    switch (selector) {
        case kSetfileVersion:
            std::ranges::copy(chip_.firmware.setfile_version, out.begin());
            break;
        case kIntFwVersion:
            put_text(out, chip_.model.internal_version);
            break;
        case kXuVersion:
            put_xu_version(chip_.model, out);
            break;
        case kDevStatus:
            out[1] = chip_.firmware.has_setfile ? 1 : 0;
            out[2] = chip_.firmware.external ? 1 : 0;
            out[3] = chip_.flash ? 1 : 0;
            out[7] = chip_.model.bond;
            break;
        default:
            std::ranges::copy(flash_info(chip_.model), out.begin());
            break;
    }
}

void VendorXu::get_limit(const Control& control, uint8_t code, std::span<uint8_t> out) const
{
    const uint8_t largest = largest_value(control.selector);
    switch (code) {
        case kGetMax:
            std::ranges::fill(out, largest);
            break;
        case kGetRes:
            out[0] = control.selector == kFlip ? largest : 1;
            break;
        case kGetDef:
            if (control.selector == kWriteProtect) {
                out[0] = 1;
            } else if (control.selector == kExtRomType) {
                out[0] = rom_type(chip_.model);
            }
            break;
        default: // the smallest value is zero everywhere
            break;
    }
}

using namespace memory_frame;

namespace {

/// The mask ROM's code: always the same bytes.
uint8_t mask_rom_byte(uint16_t address)
{
    return Prng(address).next_byte();
}

} // namespace

/// False for a frame that the firmware does not understand.
bool VendorXu::set_memory(const Control& control, std::span<const uint8_t> frame)
{
    if (control.selector == kExtRom)
        return set_rom(frame);
    const size_t count = frame[0] & kLengthBits;
    if (count > frame.size() - kHeaderBytes)
        return false;
    if ((frame[0] & kWrite) == 0)
        return true; // a request; the data is fetched next
    if (control.selector == kSpiStatus) {
        rom_.set_status(frame[kHeaderBytes]);
    } else {
        write_space(control.selector, be16(frame.subspan(1)), frame.subspan(kHeaderBytes, count));
    }
    return true;
}

bool VendorXu::set_rom(std::span<const uint8_t> frame)
{
    const bool newer = is_newer_firmware(chip_.model);
    const size_t count = frame[0] & (newer ? kLengthBits : kOlderLengthBits);
    if (count > frame.size() - kHeaderBytes)
        return false;
    const uint8_t flags = frame[0] & static_cast<uint8_t>(newer ? ~kLengthBits : ~kOlderLengthBits);
    if (flags == kErase) {
        rom_.erase();
    } else if (flags == (newer ? kWrite : kOlderRomWrite)) {
        rom_.write(rom_address(be16(frame.subspan(1))), frame.subspan(kHeaderBytes, count));
    }
    return true;
}

/// Turns the request that the frame holds into its answer.
void VendorXu::get_memory(const Control& control, std::span<uint8_t> frame)
{
    auto data = frame.subspan(kHeaderBytes);
    if (control.selector == kSpiStatus) {
        data[0] = rom_.status();
        return;
    }
    if ((frame[0] & (kWrite | kErase)) != 0)
        return; // the echo of a write
    if (control.selector == kSensor && is_version_request(frame)) {
        data[0] = static_cast<uint8_t>(chip_.firmware.sensor_application_id);
        data[1] = static_cast<uint8_t>(chip_.firmware.sensor_application_id >> 8);
        data[2] = static_cast<uint8_t>(chip_.firmware.version);
        data[3] = static_cast<uint8_t>(chip_.firmware.version >> 8);
        return;
    }
    if (control.selector == kExtRomChecksum) {
        const uint16_t sum = rom_.checksum();
        data[0] = static_cast<uint8_t>(sum);
        data[1] = static_cast<uint8_t>(sum >> 8);
        return;
    }
    const size_t count = std::min<size_t>(frame[0] & kLengthBits, data.size());
    read_space(control.selector, be16(frame.subspan(1)), data.first(count));
}

void VendorXu::read_space(uint8_t selector, uint16_t address, std::span<uint8_t> out)
{
    if (selector == kExtRom)
        return rom_.read(rom_address(address), out);
    if (selector == kReg)
        chip_.settle();
    for (uint8_t& byte : out) {
        switch (selector) {
            case kReg:
                byte = chip_.xdata[address];
                break;
            case kSensor:
                byte = chip_.sensor[address];
                break;
            case kMcu:
                byte = chip_.mcu_data[address & 0xFF];
                break;
            default:
                byte = mask_rom_byte(address);
                break;
        }
        ++address;
    }
}

void VendorXu::write_space(uint8_t selector, uint16_t address, std::span<const uint8_t> bytes)
{
    if (selector == kReg)
        chip_.settle();
    for (const uint8_t byte : bytes) {
        if (selector == kReg) {
            chip_.set_reg(address, byte);
        } else if (selector == kSensor) {
            chip_.sensor[address] = byte;
        } else if (selector == kMcu) {
            chip_.mcu_data[address & 0xFF] = byte;
        }
        ++address;
    }
}

void VendorXu::set_rom_512(std::span<const uint8_t> frame)
{
    std::ranges::copy(frame, frame_512_.begin());
    const uint32_t address = rom_address(be16(frame.subspan(2)));
    rom_.write_long(address, frame.subspan(kHeaderBytes512, length_512(frame)));
}

void VendorXu::get_rom_512(std::span<uint8_t> frame)
{
    std::ranges::copy(frame_512_, frame.begin());
    const uint32_t address = rom_address(be16(frame.subspan(2)));
    rom_.read(address, frame.subspan(kHeaderBytes512, length_512(frame)));
}

uint32_t VendorXu::rom_address(uint16_t address) const
{
    return static_cast<uint32_t>(chip_.flash_block) << 16 | address;
}

} // namespace sim
