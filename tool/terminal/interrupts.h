// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal/display.h"

#include <csignal>
#include <stop_token>
#include <thread>

namespace tool {

/// Takes interrupts in a thread of its own: none cuts a sleep of the others short, and one ends the
/// program also while the camera hangs. One object at a time.
class Interrupts {
public:
    explicit Interrupts(Display& display);
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// What an end in the middle means for the camera and what to do then, "" for nothing; and what
    /// the ROM holds then.
    void set_outlook(const std::string& meaning, RomContents rom);

    /// From now on an interrupt says `promise` and asks for a stop; a second one stops at once, or
    /// ends the program where nobody does that.
    void postpone(const std::string& promise, std::stop_source soon,
                  std::stop_source at_once = std::stop_source(std::nostopstate));
    /// Back to ending at once.
    void stop_postponing() { postpone("", std::stop_source(std::nostopstate)); }

    /// Ends the process: it says so, with what that means, and gives the cameras back.
    [[noreturn]] void end_program(ExitCode code, const std::string& text);

private:
    void take_them();

    Display& display_;
    sigset_t taken_{};
    std::atomic<bool> over_ = false;
    std::mutex mutex_;
    std::string meaning_;
    RomContents rom_ = RomContents::kUnchanged;
    std::string promise_;
    std::stop_source soon_{std::nostopstate};
    std::stop_source at_once_{std::nostopstate};
    std::thread thread_; ///< last: uses all of the above
};

} // namespace tool
