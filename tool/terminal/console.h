// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal/capture.h"
#include "terminal/interrupts.h"

#include <nyxus/extensions.h>

#include <atomic>
#include <chrono>
#include <mutex>

namespace tool {

/// The program's side of the conversation: what the user sees, and what the libraries print.
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
    Interrupts& interrupts() { return interrupts_; }
    /// Shows everything that the libraries have printed so far.
    void drain() { show_prints(true); }

    /// Something has moved.
    void sign_of_life();
    /// Whether a silent camera ends the program. Use Unwatched.
    void set_patient(bool patient);

private:
    static void take_line(NyDevice* device, uint32_t kind, const char* text, size_t length,
                          void* console);
    static void take_progress(NyDevice* device, uint64_t done, uint64_t total, void* console);
    void show_prints(bool all);
    void keep_time(const std::stop_token& over);
    void tick();
    void give_up();

    const int verbosity_;
    const std::chrono::seconds patience_;
    std::atomic<bool> patient_ = false;
    std::atomic<std::chrono::steady_clock::time_point> latest_sign_ =
        std::chrono::steady_clock::now();
    Display display_;
    Interrupts interrupts_{display_};
    std::mutex tick_mutex_; ///< nothing but what a wait needs
    std::mutex capture_mutex_;
    Capture capture_;
    std::jthread ticker_; ///< last: its thread calls the members above
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
