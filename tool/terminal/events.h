// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal/failure.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <nyxus/engine/events.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What commands that take their time tell programs: one JSON object a line, described in
// docs/json.md.
namespace tool {

/// A camera, as far as it is known without talking to it.
struct CameraLabel {
    std::string port; ///< "" when it is not known which camera is meant
    std::string serial;
    std::string product;
};

/// How far a phase has come.
struct Progress {
    using Clock = std::chrono::steady_clock;
    /// A rate that is taken from less time says little.
    static constexpr double kRateKnown_s = 0.3;

    std::string phase = {};
    uint64_t total = 0; ///< 0: nobody knows
    uint64_t bytes = 0;
    bool done = false;
    Clock::time_point begun = Clock::now();

    double seconds() const;
    unsigned percent() const;
    /// Bytes a second; 0 until it is known.
    double rate() const;
    /// Seconds that are left; nothing until that is known.
    std::optional<double> remaining_s() const;
};

enum class Outcome {
    kUpgraded,
    kUpToDate, ///< nothing had to be done
    kFailed,
    kInterrupted,
    kNotStarted, ///< interrupted before its turn
    kDone,       ///< anything but an upgrade
    kDifferent,  ///< ROM and file are
};
/// For programs: "up-to-date".
const char* to_text(Outcome outcome);
/// For people: "up to date".
std::string words_of(Outcome outcome);

using nyxus::engine::RomContents;

/// How such a command ended.
struct Result {
    CameraLabel camera;
    Outcome outcome = Outcome::kFailed;
    RomContents rom = RomContents::kUnchanged;
    int exit_code = kExitFailure;
    std::string message;
    std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
    double seconds = 0;                 ///< that it took
    uint64_t bytes = 0;                 ///< of firmware and MFi image that were written
    std::string sha256 = {};            ///< of the firmware's file; this and what follows may be ""
    std::string mfi_sha256 = {};        ///< of the MFi image's
    std::string version = {};           ///< that the image says it is
    std::string version_before = {};    ///< that the camera reported
    std::string version_after = {};     ///< after a restart
    std::vector<std::string> kept = {}; ///< parts of the ROM
    std::string backup = {};            ///< the file

    void take_time();
    /// It has failed, or was interrupted.
    void end(const Failure& failure);
};

/// How the upgrade of several cameras ended.
struct Summary {
    size_t cameras = 0;
    std::map<Outcome, size_t> ended = {}; ///< so many like this
    int exit_code = kExitOk;
    double seconds = 0;

    size_t count(Outcome outcome) const
    {
        const auto found = ended.find(outcome);
        return found == ended.end() ? 0 : found->second;
    }
};

std::string json_line(const Progress& progress);
/// A line for people.
std::string json_of_message(std::string_view line);
std::string json_line(const Result& result);
std::string json_line(const Summary& summary);

} // namespace tool
