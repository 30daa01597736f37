// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "exit_codes.h"

#include <cstdint>
#include <nyxus/engine/events.hpp>
#include <optional>
#include <string>

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
    std::string phase;
    uint64_t bytes = 0;
    uint64_t total = 0; ///< 0: nobody knows
    double seconds = 0; ///< since the phase began
    bool done = false;

    /// Bytes a second; 0 until it is known.
    double rate() const;
    /// Seconds that are left; nothing until that is known.
    std::optional<double> remaining_s() const;
};

/// A line for people.
struct Message {
    std::string text;
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
const char* to_text(Outcome outcome);

using nyxus::engine::RomContents;

/// How such a command ended.
struct Result {
    CameraLabel camera;
    Outcome outcome = Outcome::kFailed;
    RomContents rom = RomContents::kUnchanged;
    int exit_code = kExitFailure;
    std::string message;
    double seconds = 0;
    uint64_t bytes = 0; ///< of firmware and MFi image that were written
};

/// How the upgrade of several cameras ended.
struct Summary {
    size_t cameras = 0;
    size_t upgraded = 0;
    size_t up_to_date = 0;
    size_t failed = 0;
    size_t interrupted = 0;
    size_t not_started = 0;
    int exit_code = kExitOk;
    double seconds = 0;
};

std::string json_line(const Progress& progress);
std::string json_line(const Message& message);
std::string json_line(const Result& result);
std::string json_line(const Summary& summary);

} // namespace tool
