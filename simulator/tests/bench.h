// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cameras/shipped.h"
#include "chip/control_table.h"
#include "chip/controller.h"
#include "chip/firmware_image.h"
#include "chip/spi_flash.h"
#include "chip/uvc_request.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace sim {

using Bytes = std::vector<uint8_t>;

/// A camera on the bench, spoken to as a host does: one control transfer at a time.
class Bench {
public:
    explicit Bench(std::string_view model, std::span<const uint8_t> rom = {})
        : chip(*find_model(model), clock, rom)
    {
    }

    // cppcheck-suppress passedByValue ; the chip takes writable bytes
    int set(uint8_t selector, Bytes data)
    {
        clock.advance_us(chip.model.usb_latency_us);
        return chip.xu_request(6, selector, kSetCur, data);
    }

    Bytes get(uint8_t selector, size_t room = kLongestControl, uint8_t request = kGetCur)
    {
        clock.advance_us(chip.model.usb_latency_us);
        Bytes data(room);
        const int count = chip.xu_request(6, selector, request, data);
        data.resize(count < 0 ? 0 : static_cast<size_t>(count));
        return data;
    }

    size_t length(uint8_t selector)
    {
        const Bytes answer = get(selector, 2, kGetLen);
        return answer.empty() ? 0 : static_cast<size_t>(answer[0] | answer[1] << 8);
    }

    int write(uint8_t selector, uint16_t address, const Bytes& data, uint8_t flag = 0x80)
    {
        return set(selector,
                   frame(selector, static_cast<uint8_t>(flag | data.size()), address, data));
    }

    Bytes read(uint8_t selector, uint16_t address, uint8_t count)
    {
        set(selector, frame(selector, count, address, {}));
        const Bytes answer = get(selector);
        return {answer.begin() + 3, answer.begin() + 3 + count};
    }

    uint8_t status() { return read(kSpiStatus, 0, 1)[0]; }
    void set_status(uint8_t value) { set(kSpiStatus, frame(kSpiStatus, 0x80, 0, {value})); }

    /// Polls as hosts do; false when the flash stays busy for five seconds.
    bool wait_ready()
    {
        for (int poll = 0; poll < 2500; ++poll) {
            if ((status() & SpiFlash::kBusy) == 0)
                return true;
            clock.advance_us(2000);
        }
        return false;
    }

    /// One command on the SPI bus through the controller's registers.
    Bytes spi(const Bytes& command, uint8_t answer_length = 0)
    {
        write(kReg, 0x0100, command);
        write(kReg, 0x0049, {0x14, static_cast<uint8_t>(command.size()), 0x01});
        write(kReg, 0x0046, {answer_length});
        write(kReg, 0x0049, {static_cast<uint8_t>(answer_length != 0 ? 0x37 : 0x35)});
        clock.advance_us(200);
        EXPECT_EQ(read(kReg, 0x0049, 1)[0] & 1, 0);
        write(kReg, 0x0049, {0x00});
        return read(kReg, 0x0100, answer_length);
    }

    bool newer() const { return is_newer_firmware(chip.model); }
    bool has_flash() const { return chip.model.rom_kind == RomKind::kSpiFlash; }

    void unlock()
    {
        if (has_flash() && !newer()) {
            write(kReg, 0x0029, {0x80});
            write(kReg, 0x0022, {0x01});
            write(kReg, 0x0020, {0x01});
            spi({0x06});
            spi({0x50});
        } else {
            set(kWriteProtect, {0});
        }
        if (chip.model.gpio0_protects_eeprom) {
            write(kReg, 0x0029, {0x80});
            write(kReg, 0x0022, {0x01});
        }
        if (has_flash())
            set_status(0x00);
        clock.advance_us(10'000);
    }

    void erase()
    {
        set(kWriteProtect, {0});
        if (chip.model.flash.chip_erase_command == 0xFF) {
            spi({0x06});
            spi({chip.model.flash.block_erase_command, 0, 0, 0});
        } else {
            set(kExtRom, frame(kExtRom, 0x40, 0, {}));
        }
        set(kWriteProtect, {1});
        EXPECT_TRUE(wait_ready());
    }

    void program(uint16_t address, std::span<const uint8_t> data)
    {
        const size_t chunk = newer() ? 32 : 8;
        while (!data.empty()) {
            const auto part = data.first(std::min(chunk, data.size()));
            if (has_flash() && !newer())
                set(kWriteProtect, {0});
            if (has_flash()) {
                EXPECT_TRUE(wait_ready());
            } else {
                clock.advance_us(5000);
            }
            write(kExtRom, address, {part.begin(), part.end()}, newer() ? 0x80 : 0xA0);
            address = static_cast<uint16_t>(address + part.size());
            data = data.subspan(part.size());
        }
        clock.advance_us(5000);
    }

    VirtualClock clock;
    Controller chip;

private:
    Bytes frame(uint8_t selector, uint8_t flags, uint16_t address, const Bytes& data)
    {
        Bytes bytes(find_control(chip.model, selector)->length);
        bytes[0] = flags;
        bytes[1] = static_cast<uint8_t>(address >> 8);
        bytes[2] = static_cast<uint8_t>(address);
        std::ranges::copy(data, bytes.begin() + 3);
        return bytes;
    }
};

/// A later firmware than the factory's, version 0x0234.
inline Bytes new_image(const CameraModel& model)
{
    ImageRequest request = factory_image_request(model);
    request.version = 0x0234;
    request.sensor_application_id = 0x0077;
    request.setfile_version = "SF-02.34";
    request.seed = 42;
    return make_firmware_image(request);
}

} // namespace sim
