// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_engine.h"

#include "chip/spi_flash.h"
#include "chip/uvc_request.h"
#include "usb/standard_request.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace sim {

namespace {

bool contains(const std::optional<Range>& range, uint64_t value)
{
    return !range || range->contains(value);
}

bool equals(const std::optional<uint8_t>& wanted, uint8_t value)
{
    return !wanted || *wanted == value;
}

bool is_control_meant(const Trigger& when, const Setup& setup)
{
    if (!when.unit && !when.selector && !when.request)
        return true;
    return setup.type() == kClassType && setup.recipient() == kInterfaceRecipient &&
           equals(when.unit, setup.unit()) && equals(when.selector, setup.selector()) &&
           equals(when.request, setup.request);
}

bool touches(const std::optional<Range>& cells, const RomAccess& access)
{
    return !cells || (access.bytes > 0 && access.address <= cells->to &&
                      uint64_t{access.address} + access.bytes > cells->from);
}

bool concerns(Effect effect, const RomAccess& access)
{
    using Kind = RomAccess::Kind;
    const bool locks = (access.status & SpiFlash::kBlockProtect) != 0;
    switch (effect) {
        case Effect::kLyingWrite:
            return access.kind == Kind::kProgram;
        case Effect::kLyingErase:
            return access.kind == Kind::kErase;
        case Effect::kStuckBusy:
            return access.kind != Kind::kRead;
        case Effect::kIgnoredLock:
            return access.kind == Kind::kWriteStatus && locks;
        case Effect::kIgnoredUnlock:
            return access.kind == Kind::kWriteStatus && !locks;
        case Effect::kBitFlip:
            return access.kind == Kind::kRead && access.bytes > 0;
        default:
            return access.kind != Kind::kWriteStatus;
    }
}

/// The part of a read that lies in the range.
std::span<uint8_t> bytes_in(const std::optional<Range>& cells, const RomAccess& access)
{
    const Range range = cells.value_or(Range{});
    const uint64_t first = std::max<uint64_t>(range.from, access.address);
    const uint64_t end =
        std::min<uint64_t>(range.to, uint64_t{access.address} + access.bytes - 1) + 1;
    return access.answer.subspan(first - access.address, end - first);
}

void flip_bits(const PlannedFault& fault, const RomAccess& access, Prng& prng)
{
    const std::span<uint8_t> bytes = bytes_in(fault.when.rom_address, access);
    if (fault.mask) {
        for (uint8_t& byte : bytes)
            byte ^= *fault.mask;
    } else {
        const uint64_t bit = prng.next() % (bytes.size() * 8);
        bytes[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
    }
}

} // namespace

FaultEngine::FaultEngine(unsigned position, std::string serial, Clock& clock, Bench bench)
    : position_(position), serial_(std::move(serial)), clock_(clock), bench_(std::move(bench))
{
}

std::vector<uint64_t> FaultEngine::add(const FaultPlan& plan)
{
    std::vector<uint64_t> delays_us;
    for (const PlannedFault& fault : plan) {
        const Trigger& when = fault.when;
        const bool concerned = (when.position == 0 || when.position == position_) &&
                               (when.serial.empty() || when.serial == serial_);
        rules_.push_back({.fault = fault,
                          .concerned = concerned,
                          .prng = Prng(fault.seed),
                          .start_us = clock_.now_us(),
                          .transfers_before = transfer_,
                          .frames_before = frame_});
        if (concerned && fault.site == Site::kClock)
            delays_us.push_back(when.time_us.value_or(Range{}).from);
    }
    return delays_us;
}

Fault FaultEngine::on_transfer(const Setup& setup)
{
    ++transfer_;
    setup_ = setup;
    answer_fault_ = Fault::none();
    for (Rule& rule : rules_) {
        const Site site = rule.fault.site;
        if ((site == Site::kTransfer || site == Site::kClock) && strikes_now(rule)) {
            Fault fault = transfer_fault(rule.fault);
            fault.after = rule.fault.after;
            return fault;
        }
    }
    return Fault::none();
}

Fault FaultEngine::on_answer()
{
    return std::exchange(answer_fault_, Fault::none());
}

RomFault FaultEngine::on_rom_access(const RomAccess& access)
{
    RomFault result;
    for (Rule& rule : rules_) {
        if (rule.fault.site == Site::kRom && strikes_now(rule, &access)) {
            apply_to_access(rule, access, result);
            break;
        }
    }
    return result;
}

void FaultEngine::apply_to_access(Rule& rule, const RomAccess& access, RomFault& result)
{
    switch (rule.fault.effect) {
        case Effect::kLyingWrite:
        case Effect::kLyingErase:
        case Effect::kIgnoredLock:
        case Effect::kIgnoredUnlock:
            result.ignored = true;
            break;
        case Effect::kStuckBusy:
            result.stuck_us = rule.fault.duration_us.value_or(RomFault::kForever);
            break;
        case Effect::kBitFlip:
            flip_bits(rule.fault, access, rule.prng);
            break;
        case Effect::kPowerCut: // here it is the ROM itself that is caught in its work
            result.power_cut = true;
            answer_fault_ = departure(rule.fault);
            break;
        default:
            answer_fault_ = transfer_fault(rule.fault);
            break;
    }
}

FrameFault FaultEngine::on_frame()
{
    ++frame_;
    for (Rule& rule : rules_) {
        const PlannedFault& fault = rule.fault;
        if ((fault.site != Site::kFrame && fault.site != Site::kClock) || !strikes_now(rule))
            continue;
        switch (fault.effect) {
            case Effect::kTruncate:
                return FrameFault::truncated(fault.bytes);
            case Effect::kErrorBit:
                return FrameFault::error_bit();
            case Effect::kStalled:
                return FrameFault::stall();
            default:
                return transfer_fault(fault).kind == Fault::Kind::kUnplugSilent
                           ? FrameFault::unplug_silent()
                           : FrameFault::unplug_announced();
        }
    }
    return FrameFault::none();
}

Fault FaultEngine::on_clock()
{
    for (Rule& rule : rules_) {
        if (rule.fault.site == Site::kClock && strikes_now(rule))
            return transfer_fault(rule.fault);
    }
    return Fault::none();
}

bool FaultEngine::strikes_now(Rule& rule, const RomAccess* access)
{
    const Trigger& when = rule.fault.when;
    if (!rule.concerned || rule.strikes >= rule.fault.times || !holds(rule, access) ||
        (access != nullptr && !concerns(rule.fault.effect, *access)))
        return false;
    if (!contains(when.count, ++rule.matches))
        return false;
    constexpr double kSteps = 1ULL << 53; // as many as a double tells apart
    if (when.probability < 1 &&
        static_cast<double>(rule.prng.next() >> 11) >= when.probability * kSteps)
        return false;
    ++rule.strikes;
    if (bench_.tell)
        bench_.tell(rule.fault);
    return true;
}

bool FaultEngine::holds(const Rule& rule, const RomAccess* access) const
{
    const Trigger& when = rule.fault.when;
    return contains(when.time_us, clock_.now_us() - rule.start_us) &&
           contains(when.transfer, transfer_ - rule.transfers_before) &&
           contains(when.frame, frame_ - rule.frames_before) && is_control_meant(when, setup_) &&
           (access == nullptr || touches(when.rom_address, *access));
}

Fault FaultEngine::transfer_fault(const PlannedFault& fault)
{
    switch (fault.effect) {
        case Effect::kIoError:
            return Fault::io_error();
        case Effect::kTimeout:
            return Fault::timeout();
        case Effect::kNoAnswer:
            return Fault::no_answer();
        case Effect::kShort:
            return Fault::short_answer(fault.bytes);
        case Effect::kWrongLength:
            return is_control_meant({.request = kGetLen}, setup_)
                       ? Fault::answer({static_cast<uint8_t>(fault.bytes),
                                        static_cast<uint8_t>(fault.bytes >> 8)})
                       : Fault::wrong_length(fault.bytes);
        case Effect::kLate:
            return Fault::late(static_cast<uint32_t>(fault.duration_us.value_or(0) / 1000));
        case Effect::kPowerCut:
            bench_.cut_power();
            return departure(fault);
        case Effect::kUnplug:
            return departure(fault);
        default:
            return Fault::stall();
    }
}

Fault FaultEngine::departure(const PlannedFault& fault) const
{
    if (fault.replug_us)
        bench_.replug_after(*fault.replug_us);
    return fault.announced ? Fault::unplug_announced() : Fault::unplug_silent();
}

std::vector<uint64_t> FaultEngine::strikes() const
{
    std::vector<uint64_t> counts;
    std::ranges::transform(rules_, std::back_inserter(counts), &Rule::strikes);
    return counts;
}

} // namespace sim
