// SPDX-License-Identifier: Apache-2.0
#include "last_words.h"

#include "files/write_all.h"

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

constexpr int kFatalSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

void put(std::string_view text)
{
    (void)files::write_before_end(err_fd, text);
}

void spill()
{
    if (err_fd < 0)
        return;
    put("\n"); // behind what is being redrawn
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

} // namespace

void arm(int captured_pipe, int real_err)
{
    pipe_fd = captured_pipe;
    err_fd = real_err;
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

} // namespace tool::last_words
