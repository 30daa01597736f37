// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "bench.h"
#include "meaning.h"
#include "operation.h"

namespace sweep {

/// What happens to one control transfer.
enum class Cut {
    kStall,
    kIoError,
    kNoDevice,
    kShort,
    kUnplug,
    kSilentUnplug,
    kPowerCut,
    kNoAnswer
};

struct CutKind {
    Cut cut;
    std::string_view name;
    bool camera_goes; ///< and answers nothing from then on
    int32_t status;   ///< with which the library reports it
    std::string_view message;
};

std::span<const CutKind> cut_kinds();

/// How transfers reach the camera.
enum class Path : uint8_t {
    kShortcut, ///< through libusb around the cut only
    kWhole,    ///< all through libusb; where the camera goes, the library opens it, by libuvc
};

enum class Ending : uint8_t {
    kReported,  ///< the library said that it failed
    kDone,      ///< it succeeded all the same, and the ROM holds what it shall
    kUnnoticed, ///< it said so, but the ROM does not: a failure that it is known to ignore
    kWrong,     ///< a check has failed
};

struct Verdict {
    Ending ending = Ending::kReported;
    /// A header in order stands over a body that is not: a boot rule that looked at the header
    /// alone would start it.
    bool header_over_bad_body = false;
    double milliseconds = 0; ///< of the operation and the deletion of its object
    std::string problem;
};

/// The points of one operation on one camera model.
class Sweep {
public:
    /// Runs the operation without a fault first.
    Sweep(const sim::CameraModel& model, const Operation& operation, Path path);

    /// Transfers that a run without faults makes.
    size_t size() const { return meanings_.size(); }
    Meaning meaning(size_t point) const { return meanings_[point]; }
    /// The next point wants a fresh process.
    bool is_worn_out() const { return bench_.is_worn_out(); }
    /// Points of cuts after which the camera is still there have to come first.
    Verdict run(const CutKind& kind, size_t point, Path path);

private:
    struct Observed {
        int32_t status = 0;
        std::string message;
        size_t transfers = 0;
        uint64_t elapsed_us = 0;
        Bytes rom;
    };

    Observed operate(NyDevice* device, const CutKind& kind, size_t point);
    void set_cut(const CutKind& kind, size_t point, Observed& observed,
                 const std::function<void()>& struck);
    Verdict judge(const CutKind& kind, size_t point, const Observed& observed) const;
    std::string judge_failure(const CutKind& kind, size_t point, const Observed& observed) const;
    bool somebody_decides(size_t point) const;
    std::string judge_rom(const Bytes& rom, const Verdict& verdict) const;
    Verdict run_present(const CutKind& kind, size_t point);
    Verdict run_gone(const CutKind& kind, size_t point);
    /// The camera comes back and is upgraded; the empty text when all is well.
    std::string recover(const Bytes& rom);
    std::string upgrade_again(NyDevice* device);

    Bench bench_;
    const Operation& operation_;
    Path path_; ///< of the point under way
    Bytes before_;
    Bytes after_;
    NyDevice probed_{};
    std::unique_ptr<Session> session_;
    std::vector<Meaning> meanings_;
    uint64_t duration_us_ = 0;
    /// How the recovery went: it depends on nothing but what the ROM holds.
    std::map<Bytes, std::string> recoveries_;
};

} // namespace sweep
