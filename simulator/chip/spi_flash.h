// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "clock.h"
#include "model.h"
#include "rom_cells.h"

#include <cstdint>
#include <optional>
#include <span>
#include <utility>

namespace sim {

namespace spi {
inline constexpr uint8_t kWriteStatus = 0x01;
inline constexpr uint8_t kPageProgram = 0x02;
inline constexpr uint8_t kRead = 0x03;
inline constexpr uint8_t kWriteDisable = 0x04;
inline constexpr uint8_t kReadStatus = 0x05;
inline constexpr uint8_t kWriteEnable = 0x06;
inline constexpr uint8_t kEnableStatusWrite = 0x50;
inline constexpr uint8_t kReadJedecId = 0x9F;
} // namespace spi

/// A serial NOR flash as it behaves on its bus. Commands that come while it is busy, that lack
/// the write-enable latch or that hit a protected array change nothing.
class SpiFlash {
public:
    static constexpr uint8_t kBusy = 0x01;
    static constexpr uint8_t kWriteEnabled = 0x02;
    static constexpr uint8_t kBlockProtect = 0x1C;
    static constexpr uint8_t kStatusLocked = 0x80;
    static constexpr uint32_t kPageBytes = 256;

    SpiFlash(const FlashPart& part, Clock& clock, std::span<uint8_t> cells);

    void power_up(uint8_t status);
    /// By the firmware that starts; a flash that is busy hears nothing.
    void lock(uint8_t status);
    /// The page or area that is being written stays half done; nothing answers until the next
    /// power-up.
    void power_cut();
    void set_fault(RomFaultHook hook) { cells_.set_fault(std::move(hook)); }
    /// Asserted (low): the status register cannot be changed once its lock bit is set.
    void set_wp_pin(bool asserted) { wp_asserted_ = asserted; }
    uint8_t status();
    bool is_busy() { return (status() & kBusy) != 0; }

    /// Chip select low, `command` out, `answer` in, chip select high.
    void transfer(std::span<const uint8_t> command, std::span<uint8_t> answer);
    /// Write enable and page program, page after page, as a firmware that waits in between does.
    void program_pages(uint32_t address, std::span<const uint8_t> bytes);

private:
    void settle();
    void execute(std::span<const uint8_t> command, std::span<uint8_t> answer);
    void read(std::span<const uint8_t> command, std::span<uint8_t> answer);
    void read_id(std::span<const uint8_t> command, std::span<uint8_t> answer) const;
    void write_status(std::span<const uint8_t> command);
    void page_program(std::span<const uint8_t> command);
    void erase(std::span<const uint8_t> command, uint32_t bytes, uint32_t duration_us);
    void start_busy(uint32_t step_us, const RomFault& fault, uint32_t steps = 1);
    bool array_writable() const;

    const FlashPart part_;
    Clock& clock_;
    RomCells cells_;
    uint8_t status_ = 0;
    bool write_enabled_ = false;
    bool status_write_enabled_ = false;
    bool wp_asserted_ = true;
    bool busy_ = false;
    uint32_t step_us_ = 0; ///< of what it is at
    uint64_t busy_since_us_ = 0;
    uint64_t busy_until_us_ = 0;
    std::optional<uint8_t> next_status_;
    bool powered_ = true;
};

} // namespace sim
