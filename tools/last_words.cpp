// SPDX-License-Identifier: Apache-2.0
#include "last_words.h"

#include "exit_codes.h"
#include "files/write_all.h"
#include "last_line.h"

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>

// Present when the program is built with a sanitizer: its report ends the process without a signal.
extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

namespace tool::last_words {

namespace {

// Everything here is read by signal handlers: plain memory and atomics, no locks.
constexpr size_t kCapacity = 2048;
char kept_lines[kCapacity];
std::atomic<size_t> kept_lines_size;
char unfinished[kCapacity];
std::atomic<size_t> unfinished_size;
std::atomic<int> pipe_fd{-1};
std::atomic<int> err_fd{-1};
std::atomic<const char*> current_consequence{""};
std::atomic<bool> line_open;
std::atomic<const char*> promise{nullptr};
std::atomic<bool> interrupted;
std::atomic<bool> ending;
std::atomic<bool> counting;
std::atomic<unsigned> counted;

/// Ctrl-C, kill, a terminal that goes away, and Ctrl-\.
constexpr int kInterrupts[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr int kFatalSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

void put(std::string_view text)
{
    (void)files::write_before_end(err_fd, text);
}

void spill()
{
    if (err_fd < 0)
        return;
    if (line_open)
        put("\n");
    put({kept_lines, kept_lines_size});
    put({unfinished, unfinished_size});
    char buffer[1024];
    fcntl(pipe_fd, F_SETFL, O_NONBLOCK);
    for (ssize_t count = 0; (count = read(pipe_fd, buffer, sizeof buffer)) > 0;)
        put({buffer, static_cast<size_t>(count)});
}

void on_fatal(int signal)
{
    spill();
    put("\nnyxus: the program has crashed; above is what the libraries said last\n");
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void on_interrupt(int)
{
    if (counting) {
        ++counted;
        return;
    }
    if (line_open)
        put("\n");
    const char* const text = promise;
    if (text != nullptr && !interrupted.exchange(true)) {
        put(text);
        return;
    }
    if (ending.exchange(true))
        _exit(kExitInterrupted); // the first one has been told of
}

void mask_interrupts(int how)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kInterrupts)
        sigaddset(&signals, signal);
    pthread_sigmask(how, &signals, nullptr);
}

void catch_unless_ignored(int signal)
{
    if (std::signal(signal, on_interrupt) == SIG_IGN)
        std::signal(signal, SIG_IGN);
}

} // namespace

void arm(int captured_pipe, int real_err)
{
    pipe_fd = captured_pipe;
    err_fd = real_err;
    mask_interrupts(SIG_BLOCK);
    for (const int signal : kInterrupts)
        catch_unless_ignored(signal);
    std::signal(SIGPIPE, SIG_IGN); // a reader that goes away ends no upgrade in the middle
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow is an error like a full disk
    if (__sanitizer_set_death_callback != nullptr) {
        __sanitizer_set_death_callback(spill);
        return;
    }
    for (const int signal : kFatalSignals)
        std::signal(signal, on_fatal);
}

void disarm()
{
    for (const int signal : kFatalSignals)
        std::signal(signal, SIG_DFL);
    for (const int signal : kInterrupts) {
        if (std::signal(signal, SIG_DFL) == SIG_IGN)
            std::signal(signal, SIG_IGN);
    }
    mask_interrupts(SIG_UNBLOCK);
    err_fd = -1;
    pipe_fd = -1;
}

void remember(std::string_view text)
{
    unfinished_size = 0;
    const size_t size = std::min(text.size(), kCapacity);
    std::copy_n(text.data(), size, unfinished);
    unfinished_size = size;
}

void remember_line(std::string_view line)
{
    size_t used = kept_lines_size;
    kept_lines_size = 0;
    const size_t wanted = std::min(line.size() + 1, kCapacity);
    if (used + wanted > kCapacity) {
        const size_t kept = std::min(used, kCapacity - wanted);
        std::memmove(kept_lines, kept_lines + (used - kept), kept);
        used = kept;
    }
    std::copy_n(line.data(), wanted - 1, kept_lines + used);
    kept_lines[used + wanted - 1] = '\n';
    kept_lines_size = used + wanted;
}

void set_consequence(const char* text, const char* rom)
{
    current_consequence = text;
    last_line::set_rom(rom);
}

const char* consequence()
{
    return current_consequence;
}

void postpone_interrupts(const char* text)
{
    interrupted = false;
    promise = text;
}

bool interrupt_came()
{
    return interrupted;
}

bool stop_postponing()
{
    promise = nullptr;
    return interrupted.exchange(false);
}

void count_interrupts()
{
    counting = true;
}

unsigned interrupt_count()
{
    return counted;
}

void receive_interrupts()
{
    mask_interrupts(SIG_UNBLOCK);
}

bool must_end()
{
    return ending;
}

void wait_for_end()
{
    while (ending)
        pause();
}

void tell_of_interrupt()
{
    const char* const meaning = current_consequence;
    if (*meaning != '\0') {
        put("nyxus: interrupted: ");
        put(meaning);
        put("\n");
    }
    last_line::put(kExitInterrupted, "interrupted",
                   *meaning != '\0' ? "interrupted: " : "interrupted", meaning);
}

void set_line_open(bool open)
{
    line_open = open;
}

} // namespace tool::last_words
