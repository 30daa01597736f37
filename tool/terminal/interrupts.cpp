// SPDX-License-Identifier: Apache-2.0
#include "terminal/interrupts.h"

#include <unistd.h>
#include <nyxus/engine/kernel_driver.hpp>

namespace tool {

namespace {

/// Ctrl-C, kill, a terminal that goes away, and Ctrl-\.
constexpr int kInterrupts[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
/// Wakes the thread when it is over.
const int kOver = SIGRTMIN;

/// Of one that comes while the program ends.
void exit_now(int)
{
    _exit(kExitInterrupted);
}

} // namespace

Interrupts::Interrupts(Display& display) : display_(display)
{
    sigemptyset(&taken_);
    sigaddset(&taken_, kOver);
    for (const int signal : kInterrupts) {
        if (std::signal(signal, exit_now) == SIG_IGN) {
            std::signal(signal, SIG_IGN);
        } else {
            sigaddset(&taken_, signal);
        }
    }
    std::signal(SIGPIPE, SIG_IGN); // a reader that goes away ends no upgrade in the middle
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow is an error like a full disk
    pthread_sigmask(SIG_BLOCK, &taken_, nullptr);
    thread_ = std::thread(&Interrupts::take_them, this);
}

Interrupts::~Interrupts()
{
    over_ = true;
    pthread_kill(thread_.native_handle(), kOver);
    thread_.join();
    for (const int signal : kInterrupts) {
        if (sigismember(&taken_, signal) == 1)
            std::signal(signal, SIG_DFL);
    }
    pthread_sigmask(SIG_UNBLOCK, &taken_, nullptr);
}

void Interrupts::set_outlook(const std::string& meaning, RomContents rom)
{
    const std::lock_guard lock(mutex_);
    meaning_ = meaning;
    rom_ = rom;
}

void Interrupts::postpone(const std::string& promise, std::stop_source soon,
                          std::stop_source at_once)
{
    const std::lock_guard lock(mutex_);
    promise_ = promise;
    soon_ = std::move(soon);
    at_once_ = std::move(at_once);
}

void Interrupts::take_them()
{
    for (int signal = 0; sigwait(&taken_, &signal) == 0 && !over_;) {
        if (signal == kOver)
            continue; // from somebody else
        std::unique_lock lock(mutex_);
        if (soon_.request_stop()) {
            if (!promise_.empty())
                display_.warn(promise_);
        } else if (at_once_.stop_possible()) {
            at_once_.request_stop();
        } else {
            lock.unlock();
            end_program(kExitInterrupted, "interrupted");
        }
    }
}

void Interrupts::end_program(ExitCode code, const std::string& text)
{
    pthread_sigmask(SIG_UNBLOCK, &taken_, nullptr);
    const std::lock_guard lock(mutex_);
    const std::string separator = code == kExitInterrupted ? ": " : "; ";
    const std::string whole = text + (meaning_.empty() ? "" : separator + meaning_);
    const bool is_said = code != kExitInterrupted || !meaning_.empty();
    display_.say_last(is_said ? "nyxus: " + whole + "\n" : "", {code, whole}, rom_);
    engine::give_cameras_back();
    _exit(code);
}

} // namespace tool
