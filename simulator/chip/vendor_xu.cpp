// SPDX-License-Identifier: Apache-2.0
#include "vendor_xu.h"

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

} // namespace sim
