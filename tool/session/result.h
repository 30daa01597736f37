// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/arguments.h"
#include "session/camera.h"
#include "terminal/value.h"

#include <functional>
#include <nyxus/engine/upgrade.hpp>

namespace tool {

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

/// How a command that takes its time ended with a camera.
struct Result {
    CameraEntry camera; ///< without a port when it is not known which one is meant
    Outcome outcome = Outcome::kFailed;
    int exit_code = kExitFailure;
    std::string message;
    std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
    double seconds = 0;      ///< that it took
    engine::Report report;   ///< of what was done to the ROM
    std::string sha256 = {}; ///< of the firmware's file
    std::string mfi_sha256 = {};
    std::string version = {}; ///< that the image says it is

    void take_time();
    /// It has failed, or was interrupted.
    void end(const Failure& failure);
};
std::string json_line(const Result& result);

/// Does a command's work, which takes its time. With --json it tells how far it is and, at any end,
/// how it ended: what the work has filled in, and why it failed.
ExitCode run_with_result(Console& console, const Arguments& arguments,
                         const std::function<ExitCode(Result&)>& work);
/// With --json: an end in the middle tells of this camera, too, as far as that is known now.
void promise_result(Console& console, const Result& result);
/// It is about this camera.
Camera introduce(Console& console, Result& result, Camera camera);

/// Says how the work has ended.
ExitCode finish(Console& console, Result& result, const std::string& message,
                Outcome outcome = Outcome::kDone);

} // namespace tool
