// SPDX-License-Identifier: Apache-2.0
#include "spi_flash.h"

#include <algorithm>

namespace sim {
namespace {

constexpr uint8_t kNoSuchCommand = 0xFF;

constexpr uint32_t kSectorBytes = 4096;
constexpr size_t kAddressedBytes = 4; // opcode and 24-bit address

uint32_t address_of(std::span<const uint8_t> command)
{
    return static_cast<uint32_t>(command[1] << 16 | command[2] << 8 | command[3]);
}

} // namespace

SpiFlash::SpiFlash(const FlashPart& part, Clock& clock, std::span<uint8_t> cells)
    : part_(part), clock_(clock), cells_(cells, kPageBytes, RomCells::Programming::kClearsBits)
{
}

void SpiFlash::power_up(uint8_t status)
{
    status_ = status & (kBlockProtect | kStatusLocked);
    write_enabled_ = false;
    status_write_enabled_ = false;
    busy_ = false;
    next_status_.reset();
    powered_ = true;
}

void SpiFlash::lock(uint8_t status)
{
    settle();
    if (busy_ || !powered_)
        return;
    status_ = status & (kBlockProtect | kStatusLocked);
    write_enabled_ = false;
}

void SpiFlash::power_cut()
{
    settle();
    if (busy_)
        cells_.cut_write(RomCells::steps_in(clock_.now_us() - busy_since_us_, step_us_));
    powered_ = false;
}

uint8_t SpiFlash::status()
{
    settle();
    return static_cast<uint8_t>(status_ | (write_enabled_ ? kWriteEnabled : 0) |
                                (busy_ ? kBusy : 0));
}

void SpiFlash::transfer(std::span<const uint8_t> command, std::span<uint8_t> answer)
{
    std::ranges::fill(answer, uint8_t{0xFF}); // nobody drives the data line
    settle();
    if (command.empty() || !powered_)
        return;
    if (command[0] == spi::kReadStatus) {
        std::ranges::fill(answer, status()); // repeats for as long as it is clocked
    } else if (!busy_) {
        execute(command, answer);
    }
}

void SpiFlash::program_pages(uint32_t address, std::span<const uint8_t> bytes)
{
    settle();
    if (busy_ || (status_ & kBlockProtect) != 0)
        return;
    const RomCells::Pages pages = cells_.program_pages(address, bytes);
    start_busy(part_.program_us, pages.worst, pages.count);
}

/// What was begun ends by itself: the latch falls, a written status takes effect.
void SpiFlash::settle()
{
    if (!busy_ || clock_.now_us() < busy_until_us_)
        return;
    busy_ = false;
    write_enabled_ = false;
    if (next_status_)
        status_ = *next_status_;
    next_status_.reset();
}

void SpiFlash::execute(std::span<const uint8_t> command, std::span<uint8_t> answer)
{
    const uint8_t opcode = command[0];
    if (opcode == part_.read_id_command)
        return read_id(command, answer);
    if (opcode == part_.chip_erase_command && opcode != kNoSuchCommand)
        return erase({}, static_cast<uint32_t>(cells_.size()), part_.chip_erase_us);
    if (opcode == part_.block_erase_command)
        return erase(command, part_.block_erase_bytes, part_.block_erase_us);
    if (opcode == part_.sector_erase_command)
        return erase(command, kSectorBytes, part_.sector_erase_us);

    switch (opcode) {
        case spi::kRead:
            return read(command, answer);
        case spi::kPageProgram:
            return page_program(command);
        case spi::kWriteStatus:
            return write_status(command);
        case spi::kWriteEnable:
            write_enabled_ = true;
            break;
        case spi::kWriteDisable:
            write_enabled_ = false;
            break;
        case spi::kEnableStatusWrite:
            status_write_enabled_ = true;
            break;
        default:
            break;
    }
}

void SpiFlash::read(std::span<const uint8_t> command, std::span<uint8_t> answer)
{
    if (command.size() < kAddressedBytes)
        return;
    const uint32_t first = address_of(command);
    size_t address = first;
    for (uint8_t& byte : answer)
        byte = cells_[address++];
    const RomFault fault = cells_.ask({.kind = RomAccess::Kind::kRead,
                                       .address = first,
                                       .bytes = static_cast<uint32_t>(answer.size()),
                                       .answer = answer});
    if (fault.power_cut)
        power_cut();
}

/// But for the JEDEC one, these commands have an address.
void SpiFlash::read_id(std::span<const uint8_t> command, std::span<uint8_t> answer) const
{
    if (command[0] != spi::kReadJedecId && command.size() < kAddressedBytes)
        return;
    const size_t length = std::min<size_t>({part_.id_length, part_.id.size(), answer.size()});
    std::copy_n(part_.id.begin(), length, answer.begin());
}

void SpiFlash::write_status(std::span<const uint8_t> command)
{
    const bool enabled = write_enabled_ || status_write_enabled_;
    const bool locked = (status_ & kStatusLocked) != 0 && wp_asserted_;
    status_write_enabled_ = false;
    if (command.size() < 2 || !enabled || locked)
        return;
    const uint8_t status = command[1] & (kBlockProtect | kStatusLocked);
    const RomFault fault = cells_.ask({.kind = RomAccess::Kind::kWriteStatus, .status = status});
    if (!fault.ignored)
        next_status_ = status;
    cells_.begin_write();
    start_busy(part_.status_write_us, fault);
}

void SpiFlash::page_program(std::span<const uint8_t> command)
{
    if (command.size() <= kAddressedBytes || !array_writable())
        return;
    cells_.begin_write();
    const RomFault fault = cells_.program(address_of(command), command.subspan(kAddressedBytes));
    start_busy(part_.program_us, fault);
}

/// An empty command erases the whole array.
void SpiFlash::erase(std::span<const uint8_t> command, uint32_t bytes, uint32_t duration_us)
{
    if (!array_writable() || (!command.empty() && command.size() < kAddressedBytes))
        return;
    const size_t length = std::min<size_t>(bytes, cells_.size());
    const size_t address = command.empty() ? 0 : address_of(command) % cells_.size();
    const size_t start = address - address % length;
    const size_t end = std::min(start + length, cells_.size());
    const RomFault fault = cells_.ask({.kind = RomAccess::Kind::kErase,
                                       .address = static_cast<uint32_t>(start),
                                       .bytes = static_cast<uint32_t>(end - start)});
    cells_.begin_write();
    if (!fault.ignored)
        cells_.erase(start, end);
    start_busy(duration_us, fault);
}

void SpiFlash::start_busy(uint32_t step_us, const RomFault& fault, uint32_t steps)
{
    busy_ = true;
    step_us_ = step_us;
    busy_since_us_ = clock_.now_us();
    busy_until_us_ = fault.ready_us(busy_since_us_ + uint64_t{steps} * step_us);
    if (fault.power_cut) {
        cells_.cut_write(steps); // in the last of them
        powered_ = false;
    }
}

bool SpiFlash::array_writable() const
{
    return write_enabled_ && (status_ & kBlockProtect) == 0;
}

} // namespace sim
