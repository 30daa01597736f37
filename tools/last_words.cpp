// SPDX-License-Identifier: Apache-2.0
#include "last_words.h"

#include "exit_codes.h"

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
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
std::atomic<const char*> current_rom{"unchanged"};
std::atomic<LastLine> last_line{LastLine::kNone};
int last_line_fd = -1;
char last_line_head[kCapacity];
size_t last_line_head_size;
std::chrono::steady_clock::time_point last_line_begun;
std::atomic<bool> line_open;
std::atomic<const char*> promise{nullptr};
std::atomic<bool> interrupted;

/// Ctrl-C, kill, a terminal that goes away, and Ctrl-\.
constexpr int kInterrupts[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr int kFatalSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

void put(int fd, const char* text, size_t size)
{
    while (size > 0) {
        const ssize_t count = write(fd, text, size);
        if (count <= 0)
            return;
        text += count;
        size -= static_cast<size_t>(count);
    }
}

void put(const char* text)
{
    put(err_fd, text, std::strlen(text));
}

/// A line that is put together without memory of its own; what does not fit is left out.
class Line {
public:
    Line& operator<<(std::string_view text)
    {
        const size_t count = std::min(text.size(), sizeof text_ - size_);
        std::copy_n(text.data(), count, text_ + size_);
        size_ += count;
        return *this;
    }
    Line& operator<<(int64_t number)
    {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        return *this << std::string_view(digits, static_cast<size_t>(end - digits));
    }
    void write_to(int fd) const { put(fd, text_, size_); }

private:
    char text_[2 * kCapacity];
    size_t size_ = 0;
};

Line& put_seconds(Line& line)
{
    constexpr int64_t kTenth_ms = 100;
    const auto passed = std::chrono::steady_clock::now() - last_line_begun;
    const int64_t tenths =
        std::chrono::duration_cast<std::chrono::milliseconds>(passed).count() / kTenth_ms;
    return line << tenths / 10 << "." << tenths % 10;
}

void spill()
{
    if (err_fd < 0)
        return;
    if (line_open)
        put("\n");
    put(err_fd, kept_lines, kept_lines_size);
    put(err_fd, unfinished, unfinished_size);
    char buffer[1024];
    fcntl(pipe_fd, F_SETFL, O_NONBLOCK);
    for (ssize_t count = 0; (count = read(pipe_fd, buffer, sizeof buffer)) > 0;)
        put(err_fd, buffer, static_cast<size_t>(count));
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
    if (line_open)
        put("\n");
    const char* const text = promise;
    if (text != nullptr && !interrupted.exchange(true)) {
        put(text);
        return;
    }
    const char* const meaning = current_consequence;
    if (*meaning != '\0') {
        put("nyxus: interrupted: ");
        put(meaning);
        put("\n");
    }
    put_last_line(kExitInterrupted, "interrupted",
                  *meaning != '\0' ? "interrupted: " : "interrupted", meaning);
    _exit(kExitInterrupted);
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
    for (const int signal : kInterrupts)
        if (std::signal(signal, SIG_DFL) == SIG_IGN)
            std::signal(signal, SIG_IGN);
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
    current_rom = rom;
}

void set_last_line(int fd, LastLine kind, std::string_view head)
{
    const LastLine before = last_line.exchange(LastLine::kNone);
    if (head.size() > kCapacity)
        return;
    if (before == LastLine::kNone)
        last_line_begun = std::chrono::steady_clock::now();
    last_line_fd = fd;
    std::copy_n(head.data(), head.size(), last_line_head);
    last_line_head_size = head.size();
    last_line = kind;
}

void put_last_line(int exit_code, const char* outcome, const char* message, const char* more)
{
    const LastLine kind = last_line.exchange(LastLine::kNone);
    if (kind == LastLine::kNone)
        return;
    const bool is_result = kind == LastLine::kResult;
    Line line;
    line << (is_result ? std::string_view(last_line_head, last_line_head_size) : "{\"error\":{")
         << "\"exit_code\":" << exit_code << ",\"message\":\"" << message << more << "\"";
    if (is_result) {
        line << ",\"outcome\":\"" << outcome << "\",\"rom\":\"" << current_rom.load()
             << "\",\"bytes\":0,\"seconds\":";
        put_seconds(line);
    }
    line << (is_result ? "}\n" : "}}\n");
    line.write_to(last_line_fd);
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

void receive_interrupts()
{
    mask_interrupts(SIG_UNBLOCK);
}

void set_line_open(bool open)
{
    line_open = open;
}

} // namespace tool::last_words
