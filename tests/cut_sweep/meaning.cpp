// SPDX-License-Identifier: Apache-2.0
#include "meaning.h"

#include <nyxus/access.h>
#include <nyxus/xu.h>

#include <algorithm>

namespace sweep {

namespace {

constexpr size_t kNone = SIZE_MAX;
constexpr uint16_t kGpioRegisters[] = {0x0020, 0x0022, 0x0029};
constexpr uint16_t kFlashInfo = 0x0A27;
constexpr uint16_t kFlashInfoEnd = kFlashInfo + 11;

/// One transfer as the library means it.
struct Step {
    uint8_t selector;
    bool is_set;
    bool is_request; ///< it only names what is to be read
    bool is_write;   ///< it carries data to the memory
    uint16_t address;
};

bool is_memory(uint8_t selector)
{
    return selector == ZRV_XU_EXT_ROM || selector == ZRV_XU_REG || selector == ZRV_XU_SENSOR ||
           selector == ZRV_XU_MCU || selector == ZRV_XU_SPI_STATUS;
}

/// A read answers for the address that was set last.
std::vector<Step> steps_of(std::span<const sim::Transfer> transfers)
{
    std::vector<Step> steps;
    uint16_t address = 0;
    for (const sim::Transfer& transfer : transfers) {
        const sim::Setup setup = sim::Setup::from_wire(transfer.setup);
        Step step{setup.selector(), setup.request == UVC_SET_CUR, false, false, 0};
        if (is_memory(step.selector) && step.is_set && transfer.data.size() >= 3) {
            const uint8_t flags = transfer.data[0];
            step.is_write = (flags & (XU_FLAG_WRITE | XU_FLAG_ERASE)) != 0;
            step.is_request = !step.is_write;
            address = static_cast<uint16_t>(transfer.data[1] << 8 | transfer.data[2]);
        }
        step.address = address;
        steps.push_back(step);
    }
    return steps;
}

bool is_rom_write(const Step& step)
{
    return step.selector == ZRV_XU_EXT_ROM && step.is_write;
}

size_t find_last(std::span<const Step> steps, size_t end, bool (*meant)(const Step&))
{
    for (size_t i = end; i-- > 0;) {
        if (meant(steps[i]))
            return i;
    }
    return kNone;
}

size_t find_first(std::span<const Step> steps, size_t begin, bool (*meant)(const Step&))
{
    const auto found = std::ranges::find_if(steps.subspan(begin), meant);
    return static_cast<size_t>(found - steps.begin());
}

bool is_register(const Step& step)
{
    return step.selector == ZRV_XU_REG;
}

bool is_status_write(const Step& step)
{
    return step.selector == ZRV_XU_SPI_STATUS && step.is_write;
}

bool sets_gpio(const Step& step)
{
    return is_register(step) &&
           std::ranges::find(kGpioRegisters, step.address) != std::end(kGpioRegisters);
}

bool reads_flash_info(const Step& step)
{
    return !step.is_set &&
           ((is_register(step) && step.address >= kFlashInfo && step.address < kFlashInfoEnd) ||
            step.selector == ZRV_XU_FLASH_INFO);
}

bool is_not_looked_at(std::string_view operation, const Step& step, bool is_last_write)
{
    if (sets_gpio(step) || step.selector == ZRV_XU_FLASH_BLOCK)
        return true;
    if (operation == "reserved-area") // the header in the ROM has told enough
        return reads_flash_info(step);
    return operation == "eeprom-window" && is_rom_write(step) && !is_last_write;
}

/// The status reads by which older firmware confirms a block protection.
void mark_confirmations(std::span<const Step> steps, std::vector<Meaning>& result)
{
    bool confirming = false;
    for (size_t i = 0; i < steps.size(); ++i) {
        if (is_status_write(steps[i])) {
            confirming = true;
        } else if (steps[i].selector != ZRV_XU_SPI_STATUS) {
            confirming = false;
        } else if (confirming && !steps[i].is_set) {
            result[i] = Meaning::kRetried;
        }
    }
}

/// A range erase does not look at the result of its erase commands, which follow the unlocking and
/// end with the register access before the write-back.
void mark_erase_of_range(std::span<const Step> steps, std::vector<Meaning>& result)
{
    const size_t write_back = find_first(steps, 0, is_rom_write);
    const size_t unlocked = find_last(steps, write_back, is_status_write);
    const size_t first = find_first(steps, unlocked, is_register);
    const size_t last = find_last(steps, write_back, is_register);
    for (size_t i = first; i <= last; ++i) {
        if (!steps[i].is_request)
            result[i] = Meaning::kIgnored;
    }
}

} // namespace

std::vector<Meaning> meanings(std::string_view operation, bool has_xu_version,
                              std::span<const sim::Transfer> transfers)
{
    const std::vector<Step> steps = steps_of(transfers);
    const size_t last_write = find_last(steps, steps.size(), is_rom_write);
    const bool is_upgrade = operation.ends_with("upgrade");
    std::vector<Meaning> result(steps.size(), Meaning::kDecides);
    if (!has_xu_version)
        mark_confirmations(steps, result);
    if (operation == "range-erase")
        mark_erase_of_range(steps, result);
    for (size_t i = 0; i < steps.size(); ++i) {
        const Step& step = steps[i];
        if (is_upgrade && i > last_write) {
            result[i] = Meaning::kAfterTheEnd;
        } else if (is_not_looked_at(operation, step, i == last_write)) {
            result[i] = Meaning::kIgnored;
        } else if (step.is_request) {
            result[i] = Meaning::kRefusedRequest;
        }
    }
    return result;
}

} // namespace sweep
