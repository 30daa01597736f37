// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal/capture.h"
#include "terminal/display.h"

#include <nyxus/extensions.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <mutex>
#include <stop_token>
#include <thread>

namespace tool {

/**
 * The program's side of the conversation: what the user sees, what the libraries print, and how the
 * user interrupts.
 *
 * A thread of its own waits for interrupts and for the time to pass, so that no interrupt cuts a
 * sleep of the others short, and one ends the program also while the camera hangs. One object at a
 * time.
 */
class Console {
public:
    /// verbosity: 0 keeps the library's lines back, more passes them on. The program ends when
    /// `patience_s` pass without a sign of life from the camera; the library itself would wait for
    /// an answer for ever.
    Console(int verbosity, unsigned patience_s);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    Display& display() { return display_; }
    /// Shows everything that the libraries have printed so far.
    void drain() { show_prints(true); }

    /// Something has moved.
    void sign_of_life();
    /// Whether a silent camera ends the program. Use Unwatched.
    void set_patient(bool patient);

    /// What an end in the middle means for the camera and what to do then, "" for nothing; and what
    /// the ROM holds then.
    void set_outlook(const std::string& meaning, RomContents rom);
    /// From now on an interrupt says `promise` and asks for a stop; a second one stops at once, or
    /// ends the program where nobody does that.
    void postpone_interrupts(const std::string& promise, std::stop_source soon,
                             std::stop_source at_once = std::stop_source(std::nostopstate));
    /// Back to ending at once.
    void stop_postponing() { postpone_interrupts("", std::stop_source(std::nostopstate)); }

    /// An interrupt has come after a result, and has ended nothing.
    bool was_interrupted_late() const { return is_late_; }

private:
    static void take_line(NyDevice* device, uint32_t kind, const char* text, size_t length,
                          void* console);
    static void take_progress(NyDevice* device, uint64_t done, uint64_t total, void* console);
    void show_prints(bool all);
    void take_signals();
    void wait_for_events();
    void tick();
    void interrupt();
    void end_program(ExitCode code, const std::string& text);

    const int verbosity_;
    const std::chrono::seconds patience_;
    std::atomic<bool> patient_ = false;
    std::atomic<bool> is_late_ = false;
    std::atomic<std::chrono::steady_clock::time_point> latest_sign_ =
        std::chrono::steady_clock::now();
    Display display_;
    std::mutex capture_mutex_;
    Capture capture_;

    std::mutex outlook_mutex_;
    std::string meaning_;
    RomContents rom_ = RomContents::kUnchanged;
    std::string promise_;
    std::stop_source soon_{std::nostopstate};
    std::stop_source at_once_{std::nostopstate};

    sigset_t taken_{};
    files::Descriptor signals_; ///< that have come
    files::Descriptor over_;    ///< can be read when the object dies
    std::thread thread_;        ///< last: uses all of the above
};

/// The camera may be silent within a scope: nothing is asked of it, or it has a limit of its own.
class Unwatched {
public:
    explicit Unwatched(Console& console) : console_(console) { console_.set_patient(true); }
    ~Unwatched() { console_.set_patient(false); }
    Unwatched(const Unwatched&) = delete;
    Unwatched& operator=(const Unwatched&) = delete;

private:
    Console& console_;
};

} // namespace tool
