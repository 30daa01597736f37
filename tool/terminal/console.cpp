// SPDX-License-Identifier: Apache-2.0
#include "terminal/console.h"

#include "files/write_all.h"
#include "terminal/text.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <cerrno>
#include <nyxus/engine/kernel_driver.hpp>
#include <string>

namespace tool {

namespace {

/// Ctrl-C, kill, a terminal that goes away, and Ctrl-\.
constexpr int kInterrupts[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

/// Of one that comes while the program ends.
void exit_now(int)
{
    _exit(kExitInterrupted);
}

/// The library pads its lines.
std::string tidy(std::string_view line)
{
    return printable(std::string(line.substr(0, line.find_last_not_of(" \r") + 1)));
}

} // namespace

Console::Console(int verbosity, unsigned patience_s) : verbosity_(verbosity), patience_(patience_s)
{
    take_signals();
    over_.reset(eventfd(0, EFD_CLOEXEC));
    thread_ = std::thread(&Console::wait_for_events, this);
    nyxus_set_line_callback(nullptr, take_line, this);
    nyxus_set_progress_callback(nullptr, take_progress, this);
}

Console::~Console()
{
    nyxus_set_progress_callback(nullptr, nullptr, nullptr);
    nyxus_set_line_callback(nullptr, nullptr, nullptr);
    (void)eventfd_write(over_.get(), 1);
    thread_.join();
    const bool is_over = display_.has_put_result(); // its exit code holds
    for (const int signal : kInterrupts) {
        if (sigismember(&taken_, signal) == 1)
            std::signal(signal, is_over ? SIG_IGN : SIG_DFL);
    }
    pthread_sigmask(SIG_UNBLOCK, &taken_, nullptr);
    drain();
}

/// All but those that whoever has started the program has had ignored.
void Console::take_signals()
{
    sigemptyset(&taken_);
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
    signals_.reset(signalfd(-1, &taken_, SFD_CLOEXEC | SFD_NONBLOCK));
}

void Console::sign_of_life()
{
    latest_sign_ = std::chrono::steady_clock::now();
}

void Console::set_patient(bool patient)
{
    sign_of_life();
    patient_ = patient;
}

/// The line goes the way of those that are printed, for the sake of their order.
void Console::take_line(NyDevice*, uint32_t kind, const char* text, size_t length, void* console)
{
    const std::string_view line(text, length);
    if (kind == NYXUS_LINE_MARKS)
        return;
    (void)files::write_all(STDERR_FILENO, std::string(line) + (line.ends_with('\n') ? "" : "\n"));
    static_cast<Console*>(console)->show_prints(false);
}

void Console::take_progress(NyDevice*, uint64_t /*done*/, uint64_t /*total*/, void* user)
{
    static_cast<Console*>(user)->sign_of_life();
}

void Console::show_prints(bool all)
{
    const std::lock_guard lock(capture_mutex_);
    if (verbosity_ == 0)
        return capture_.keep_the_last();
    for (const std::string& line : capture_.take_lines(all))
        display_.warn("  | " + tidy(line));
}

void Console::wait_for_events()
{
    constexpr int kTick_ms = 100;
    pollfd waits[] = {{signals_.get(), POLLIN, 0}, {over_.get(), POLLIN, 0}};
    while (poll(waits, std::size(waits), kTick_ms) >= 0 || errno == EINTR) {
        if (waits[1].revents != 0)
            return;
        signalfd_siginfo signal{};
        if (read(signals_.get(), &signal, sizeof signal) > 0)
            interrupt();
        tick();
    }
}

void Console::tick()
{
    if (display_.is_listened_to()) {
        show_prints(false);
        display_.tick();
    }
    // The camera's thread is stuck in the library, so there is nothing to return to.
    if (!patient_ && std::chrono::steady_clock::now() - latest_sign_.load() > patience_) {
        end_program(kExitTimeout,
                    format("the camera has been silent for %lld s; unplug it and plug it in again",
                           static_cast<long long>(patience_.count())));
    }
}

void Console::set_outlook(const std::string& meaning, RomContents rom)
{
    const std::lock_guard lock(outlook_mutex_);
    meaning_ = meaning;
    rom_ = rom;
}

void Console::postpone_interrupts(const std::string& promise, std::stop_source soon,
                                  std::stop_source at_once)
{
    const std::lock_guard lock(outlook_mutex_);
    promise_ = promise;
    soon_ = std::move(soon);
    at_once_ = std::move(at_once);
}

void Console::interrupt()
{
    std::unique_lock lock(outlook_mutex_);
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

/// Says so, with what that means, and gives the cameras back. After the result the program ends by
/// itself, with the exit code that stands in it.
void Console::end_program(ExitCode code, const std::string& text)
{
    is_late_ = display_.has_put_result();
    if (is_late_)
        return;
    pthread_sigmask(SIG_UNBLOCK, &taken_, nullptr);
    const std::lock_guard lock(outlook_mutex_);
    const std::string separator = code == kExitInterrupted ? ": " : "; ";
    const std::string whole = text + (meaning_.empty() ? "" : separator + meaning_);
    const bool is_said = code != kExitInterrupted || !meaning_.empty();
    is_late_ = !display_.say_last(is_said ? "nyxus: " + whole + "\n" : "", {code, whole}, rom_);
    if (is_late_)
        return;
    engine::give_cameras_back();
    _exit(code);
}

} // namespace tool
