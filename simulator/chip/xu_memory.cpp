// SPDX-License-Identifier: Apache-2.0
#include "memory_frame.h"
#include "prng.h"
#include "vendor_xu.h"

#include <algorithm>

namespace sim {

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
