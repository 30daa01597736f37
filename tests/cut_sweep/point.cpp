// SPDX-License-Identifier: Apache-2.0
#include "point.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <thread>

#include "chip/boot.h"
#include "shortcut.h"

namespace sweep {

namespace {

constexpr int32_t kGone = NYXUS_E_LIBUSB(LIBUSB_ERROR_NO_DEVICE);
constexpr CutKind kCutKinds[] = {
    {Cut::kStall, "stall", false, NYXUS_E_LIBUSB(LIBUSB_ERROR_PIPE), "Pipe error"},
    {Cut::kIoError, "io-error", false, NYXUS_E_LIBUSB(LIBUSB_ERROR_IO), "Input/Output Error"},
    {Cut::kNoDevice, "no-device", false, kGone, "No such device"},
    {Cut::kShort, "short", false, 0, ""},
    {Cut::kUnplug, "unplug", true, kGone, "No such device"},
    {Cut::kSilentUnplug, "silent-unplug", true, kGone, "No such device"},
    {Cut::kPowerCut, "power-cut", true, kGone, "No such device"},
    {Cut::kNoAnswer, "no-answer", true, kGone, "No such device"},
};

/// No failure makes an operation longer than this by the camera's clock.
constexpr uint64_t kLongestExtra_us = 20'000'000;
/// What a step may end with when an earlier failure was ignored.
constexpr int32_t kConsequences[] = {NYXUS_E_BUSY, NYXUS_E_TIMEOUT};

/// The reserved area begins with another look at what ROM there is. A header or a flash record that
/// is not the one asked for makes an EEPROM of the flash, or a part that cannot be asked for its
/// ID; nothing is written then, and the object needs another probe.
bool has_misjudged_rom(const Operation& operation, int32_t status)
{
    return operation.name == "reserved-area" &&
           (status == NYXUS_E_FAILED || status == NYXUS_E_INVALID);
}

sim::Fault fault_of(Cut cut)
{
    switch (cut) {
        case Cut::kStall:
            return sim::Fault::stall();
        case Cut::kIoError:
            return sim::Fault::io_error();
        case Cut::kNoDevice:
            return sim::Fault::submit_error(ENODEV);
        case Cut::kShort:
            return sim::Fault::short_answer(0);
        case Cut::kSilentUnplug:
            return sim::Fault::unplug_silent();
        case Cut::kNoAnswer:
            return sim::Fault::no_answer();
        case Cut::kUnplug:
        case Cut::kPowerCut:
            break;
    }
    return sim::Fault::unplug_announced();
}

uint32_t u32_at(const Bytes& bytes, size_t at)
{
    return bytes[at] | static_cast<uint32_t>(bytes[at + 1]) << 8 |
           static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

/// The header is whole and its own checksum holds, but not the one of the body that it names.
bool header_stands_over_bad_body(const Bytes& rom)
{
    using namespace sim::image_layout;
    const std::span<const uint8_t> all(rom);
    if (!std::ranges::equal(all.first(kMagicBytes.size()), kMagicBytes) ||
        sim::image_checksum(all.first(kHeaderChecksum)) != u32_at(rom, kHeaderChecksum))
        return false;
    const uint32_t length = u32_at(rom, kBodyLength);
    return length > rom.size() - kBody ||
           sim::image_checksum(all.subspan(kBody, length)) != u32_at(rom, kBodyChecksum);
}

bool starts_with(const Bytes& rom, const Bytes& image)
{
    return std::equal(image.begin(), image.end(), rom.begin());
}

size_t first_difference(const Bytes& a, const Bytes& b)
{
    return static_cast<size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

/// Waits until the transfer hangs, and pulls the plug.
class Rescuer {
public:
    explicit Rescuer(Bench& bench)
        : thread_([this, &bench] {
              state_.wait(kWaiting);
              if (state_ == kHanging)
                  bench.bed().unplug(bench.camera());
          })
    {
    }
    ~Rescuer()
    {
        int waiting = kWaiting;
        if (state_.compare_exchange_strong(waiting, kNotNeeded))
            state_.notify_one();
        thread_.join();
    }
    void call()
    {
        state_ = kHanging;
        state_.notify_one();
    }

private:
    enum { kWaiting, kHanging, kNotNeeded };
    std::atomic<int> state_{kWaiting};
    std::thread thread_;
};

double milliseconds_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

} // namespace

std::span<const CutKind> cut_kinds()
{
    return kCutKinds;
}

Sweep::Sweep(const sim::CameraModel& model, const Operation& operation, Path path)
    : bench_(model),
      operation_(operation),
      path_(path),
      before_(rom_before(model)),
      after_(operation.outcome(model, before_))
{
    session_ = Session::create(bench_.camera());
    if (session_->device() == nullptr)
        throw std::runtime_error(std::string("probe failed: ") + nyxus_errmsg);
    probed_ = *session_->device();
    bench_.restart_with(before_);
    bench_.camera().set_tracing(true);
    bench_.camera().clear_transfers();
    const uint64_t start_us = bench_.now_us();
    std::optional<Shortcut> shortcut;
    if (path == Path::kShortcut)
        shortcut.emplace(bench_.camera());
    const int32_t status = operation.run(session_->device());
    shortcut.reset();
    duration_us_ = bench_.now_us() - start_us;
    bench_.camera().set_tracing(false);
    if (status != 0) {
        throw std::runtime_error("without a fault it returns " + std::to_string(status) + ", " +
                                 nyxus_errmsg);
    }
    const Bytes rom = bench_.rom();
    if (rom != after_) {
        throw std::runtime_error("without a fault it leaves another ROM, from byte " +
                                 std::to_string(first_difference(rom, after_)));
    }
    const std::vector<sim::Transfer> transfers = bench_.camera().transfers();
    bench_.camera().clear_transfers();
    meanings_ = meanings(operation.name, probed_.xFeatureXU != 0, transfers);
}

Verdict Sweep::run(const CutKind& kind, size_t point, Path path)
{
    path_ = path;
    try {
        return kind.camera_goes ? run_gone(kind, point) : run_present(kind, point);
    } catch (const std::exception& error) {
        return {.ending = Ending::kWrong, .problem = error.what()};
    }
}

void Sweep::set_cut(const CutKind& kind, size_t point, Observed& observed,
                    const std::function<void()>& struck)
{
    if (kind.cut == Cut::kPowerCut) {
        bench_.bed().set_faults({{.when = {.transfer = sim::Range{point + 1, point + 1}},
                                  .effect = sim::Effect::kPowerCut,
                                  .announced = point % 2 == 0,
                                  .text = "cut"}});
        return;
    }
    bench_.camera().set_fault([&observed, point, struck, fault = fault_of(kind.cut)](
                                  const sim::Setup&, uint64_t ordinal) {
        observed.transfers = ordinal + 1;
        if (ordinal != point)
            return sim::Fault::none();
        struck();
        return fault;
    });
}

Sweep::Observed Sweep::operate(NyDevice* device, const CutKind& kind, size_t point)
{
    Observed observed;
    nyxus_errmsg[0] = '\0';
    XU_SetWriteCycleTime(0);
    std::optional<Rescuer> rescuer;
    if (kind.cut == Cut::kNoAnswer)
        rescuer.emplace(bench_);
    set_cut(kind, point, observed, [&rescuer] {
        if (rescuer)
            rescuer->call();
    });
    std::optional<Shortcut> shortcut;
    if (path_ == Path::kShortcut)
        shortcut.emplace(bench_.camera(), point, kind.camera_goes);
    const uint64_t start_us = bench_.now_us();
    observed.status = operation_.run(device);
    shortcut.reset();
    rescuer.reset();
    observed.elapsed_us = bench_.now_us() - start_us;
    observed.message = nyxus_errmsg;
    if (kind.camera_goes)
        bench_.bed().settle();
    observed.rom = bench_.rom();
    return observed;
}

Verdict Sweep::run_present(const CutKind& kind, size_t point)
{
    const auto start = std::chrono::steady_clock::now();
    bench_.restart_with(before_);
    const Observed observed = operate(session_->device(), kind, point);
    Verdict verdict = judge(kind, point, observed);
    verdict.milliseconds = milliseconds_since(start);
    bench_.camera().set_fault({});
    if (has_misjudged_rom(operation_, observed.status))
        *session_->device() = probed_; // as another probe would
    if (verdict.problem.empty())
        verdict.problem = upgrade_again(session_->device());
    if (!verdict.problem.empty())
        verdict.ending = Ending::kWrong;
    *session_->device() = probed_;
    return verdict;
}

Verdict Sweep::run_gone(const CutKind& kind, size_t point)
{
    session_.reset();
    bench_.replug_with(before_);
    std::unique_ptr<Session> session = path_ == Path::kWhole
                                           ? Session::create(bench_.camera())
                                           : Session::like(probed_, bench_.camera());
    if (session->device() == nullptr)
        throw std::runtime_error(std::string("probe failed: ") + nyxus_errmsg);
    const auto start = std::chrono::steady_clock::now();
    Observed observed = operate(session->device(), kind, point);
    session.reset();
    Verdict verdict = judge(kind, point, observed);
    verdict.milliseconds = milliseconds_since(start);
    if (verdict.problem.empty()) {
        const auto known = recoveries_.find(observed.rom);
        verdict.problem = known != recoveries_.end()
                              ? known->second
                              : recoveries_[observed.rom] = recover(observed.rom);
    }
    if (!verdict.problem.empty())
        verdict.ending = Ending::kWrong;
    return verdict;
}

Verdict Sweep::judge(const CutKind& kind, size_t point, const Observed& observed) const
{
    Verdict verdict;
    if (observed.status == 0)
        verdict.ending = observed.rom == after_ ? Ending::kDone : Ending::kUnnoticed;
    verdict.header_over_bad_body = header_stands_over_bad_body(observed.rom);
    verdict.problem = judge_rom(observed.rom, verdict);
    if (verdict.problem.empty())
        verdict.problem = judge_failure(kind, point, observed);
    if (observed.elapsed_us > duration_us_ + kLongestExtra_us)
        verdict.problem = "took too long by the camera's clock";
    if (!verdict.problem.empty())
        verdict.ending = Ending::kWrong;
    return verdict;
}

bool Sweep::somebody_decides(size_t point) const
{
    return std::any_of(meanings_.begin() + static_cast<ptrdiff_t>(point), meanings_.end(),
                       [](Meaning meaning) {
                           return meaning == Meaning::kDecides || meaning == Meaning::kRetried;
                       });
}

std::string Sweep::judge_failure(const CutKind& kind, size_t point, const Observed& observed) const
{
    const std::string got = "returned " + std::to_string(observed.status) + ", " + observed.message;
    const bool is_reported = observed.status == kind.status && kind.status != 0 &&
                             observed.message.find(kind.message) != std::string::npos;
    const bool is_success = observed.status == 0 && observed.rom == after_;
    if (kind.camera_goes)
        return (somebody_decides(point) ? is_reported : is_success) ? "" : got;
    switch (meanings_[point]) {
        case Meaning::kAfterTheEnd:
            return is_success ? "" : got;
        case Meaning::kDecides:
            if (kind.cut == Cut::kShort)
                break; // a short answer counts as success
            if (is_reported && observed.transfers != point + 1) {
                return "went on for " + std::to_string(observed.transfers - point - 1) +
                       " transfers after the failure";
            }
            return is_reported ? "" : got;
        case Meaning::kRetried:
            if (kind.cut != Cut::kShort)
                return is_success ? "" : got;
            break;
        case Meaning::kRefusedRequest:
        case Meaning::kIgnored:
            break;
    }
    const bool is_consequence =
        std::ranges::find(kConsequences, observed.status) != std::end(kConsequences) ||
        (has_misjudged_rom(operation_, observed.status) && observed.rom == before_);
    return observed.status == 0 || is_consequence ? "" : got;
}

std::string Sweep::judge_rom(const Bytes& rom, const Verdict& verdict) const
{
    // An EEPROM is not erased, so the old header stands until the new one replaces it; and a range
    // erase writes back in the order of the addresses, the header before the body.
    const bool may_stand = bench_.model().rom_kind == sim::RomKind::kEeprom ||
                           operation_.name == "range-erase" || verdict.ending == Ending::kUnnoticed;
    if (verdict.header_over_bad_body && !may_stand)
        return "a header in order stands over a body that is not";
    const bool boots = sim::boot(bench_.model(), rom).external;
    if (boots && !starts_with(rom, old_image(bench_.model())) &&
        !starts_with(rom, new_image(bench_.model())))
        return "the ROM boots a mixture of two firmwares";
    return "";
}

std::string Sweep::upgrade_again(NyDevice* device)
{
    const Bytes image = new_image(bench_.model());
    std::optional<Shortcut> shortcut;
    if (path_ == Path::kShortcut)
        shortcut.emplace(bench_.camera());
    nyxus_errmsg[0] = '\0';
    (void)XuSetFlashBlockIndex(device, 0); // a range erase leaves another one selected
    const int32_t status = upgrade(device);
    if (status != 0)
        return "the upgrade afterwards returned " + std::to_string(status) + ", " + nyxus_errmsg;
    const Bytes rom = bench_.rom();
    return starts_with(rom, image) ? ""
                                   : "the upgrade afterwards left another ROM, from byte " +
                                         std::to_string(first_difference(image, rom));
}

std::string Sweep::recover(const Bytes& rom)
{
    bench_.replug_with(rom);
    std::unique_ptr<Session> session = Session::create(bench_.camera());
    const bool boots = sim::boot(bench_.model(), rom).external;
    if ((session->device() != nullptr) != boots)
        return boots ? "the camera cannot be probed again" : "a camera without firmware was probed";
    if (!boots) {
        if (nyxus_errno != NYXUS_E_INVALID)
            return "the probe without firmware failed with " + std::to_string(nyxus_errno);
        session.reset();
        session = Session::probe_blank(bench_.camera());
    }
    return upgrade_again(session->device());
}

} // namespace sweep
