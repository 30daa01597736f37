// SPDX-License-Identifier: Apache-2.0
#include "external_rom.h"

#include <algorithm>
#include <array>

namespace sim {
namespace {

constexpr size_t kLongestWrite = 32;
constexpr uint16_t kChipEraseCommandReg = kFlashInfoReg + 1;

std::array<uint8_t, 4> addressed(uint8_t opcode, uint32_t address)
{
    return {opcode, static_cast<uint8_t>(address >> 16), static_cast<uint8_t>(address >> 8),
            static_cast<uint8_t>(address)};
}

} // namespace

void ExternalRom::read(uint32_t address, std::span<uint8_t> out)
{
    if (chip_.flash) {
        chip_.flash->transfer(addressed(spi::kRead, address), out);
    } else {
        chip_.eeprom->read(address, out);
    }
}

void ExternalRom::write(uint32_t address, std::span<const uint8_t> bytes)
{
    bytes = bytes.first(std::min(bytes.size(), kLongestWrite));
    if (!chip_.flash)
        return chip_.eeprom->write(address, bytes);
    if (!gate_open())
        return;
    std::array<uint8_t, 4 + kLongestWrite> command{};
    std::ranges::copy(addressed(spi::kPageProgram, address), command.begin());
    std::ranges::copy(bytes, command.begin() + 4);
    send(std::array{spi::kWriteEnable});
    send(std::span(command).first(4 + bytes.size()));
    close_gate();
}

void ExternalRom::write_long(uint32_t address, std::span<const uint8_t> bytes)
{
    // A request for data looks like a write here, so only an unlocked ROM is written.
    if (chip_.write_protect)
        return;
    if (!chip_.flash)
        return chip_.eeprom->write_pages(address, bytes);
    chip_.flash->program_pages(address, bytes);
    close_gate();
}

void ExternalRom::erase()
{
    if (!chip_.flash || !gate_open())
        return;
    send(std::array{spi::kWriteEnable});
    send(std::array{chip_.xdata[kChipEraseCommandReg]});
    close_gate();
}

uint8_t ExternalRom::status()
{
    std::array<uint8_t, 1> answer = {0xFF};
    if (chip_.flash)
        chip_.flash->transfer(std::array{spi::kReadStatus}, answer);
    return answer[0];
}

void ExternalRom::set_status(uint8_t status)
{
    // Older firmware leaves the write enable to the host.
    if (is_newer_firmware(chip_.model))
        send(std::array{spi::kWriteEnable});
    send(std::array{spi::kWriteStatus, status});
}

void ExternalRom::read_id(uint8_t opcode, size_t command_bytes, std::span<uint8_t> out)
{
    std::ranges::fill(out, uint8_t{0xFF});
    const std::array<uint8_t, 4> command = {opcode};
    if (chip_.flash) {
        chip_.flash->transfer(
            std::span(command).first(std::clamp<size_t>(command_bytes, 1, command.size())), out);
    }
}

uint16_t ExternalRom::checksum() const
{
    const auto firmware_area = std::span(chip_.rom).first(
        std::min<size_t>(chip_.rom.size(), image_layout::kMaxImageBytes));
    uint16_t sum = 0;
    for (const uint8_t byte : firmware_area)
        sum = static_cast<uint16_t>(sum + byte);
    return sum;
}

/// Older firmware writes to its SPI flash only after the host has released the write protection,
/// and takes it back after every single write.
bool ExternalRom::gate_open() const
{
    return is_newer_firmware(chip_.model) || !chip_.write_protect;
}

void ExternalRom::close_gate()
{
    if (!is_newer_firmware(chip_.model))
        chip_.set_write_protect(true);
}

void ExternalRom::send(std::span<const uint8_t> command)
{
    if (chip_.flash)
        chip_.flash->transfer(command, {});
}

} // namespace sim
