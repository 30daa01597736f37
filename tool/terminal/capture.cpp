// SPDX-License-Identifier: Apache-2.0
#include "terminal/capture.h"

#include "files/write_all.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <system_error>

// Present when the program is built with a sanitizer: its report ends the process without a signal.
extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

namespace tool {

namespace {

constexpr size_t kLongestLine = 4096;
constexpr off_t kKept = 2048;
constexpr int kFatalSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

// Read by the handler of these signals: no locks.
std::atomic<int> memory_fd{-1};
std::atomic<int> err_fd{-1};
std::atomic<off_t> taken; ///< up to here

void spill()
{
    (void)files::write_before_end(err_fd, "\n"); // behind what is being redrawn
    char buffer[1024];
    off_t at = taken;
    for (ssize_t count = 0; (count = pread(memory_fd, buffer, sizeof buffer, at)) > 0; at += count)
        (void)files::write_before_end(err_fd, {buffer, static_cast<size_t>(count)});
}

void on_fatal(int signal)
{
    spill();
    (void)files::write_before_end(
        err_fd, "\nnyxus: the program has crashed; above is what the libraries said last\n");
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void set_fatal_handlers(void (*handler)(int))
{
    if (__sanitizer_set_death_callback != nullptr)
        return __sanitizer_set_death_callback(spill);
    for (const int signal : kFatalSignals)
        std::signal(signal, handler);
}

int checked(int result, const char* what)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

/// A program may be started without standard output or error; what goes there goes nowhere then.
void open_missing_standard_fds()
{
    int fd = 0;
    while (fd <= STDERR_FILENO)
        fd = checked(open("/dev/null", O_RDWR | O_CLOEXEC), "/dev/null");
    close(fd);
}

/// What was printed, up to there, needs no memory any more.
void forget_until(off_t end)
{
    taken = end;
    (void)fallocate(memory_fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, end);
}

off_t printed()
{
    std::fflush(stdout);
    return lseek(memory_fd, 0, SEEK_CUR); // both share the offset
}

} // namespace

Capture::Capture()
{
    open_missing_standard_fds();
    std::fflush(nullptr);
    out_.reset(checked(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "dup"));
    err_.reset(checked(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "dup"));
    memory_.reset(checked(memfd_create("nyxus output", MFD_CLOEXEC), "memfd_create"));
    checked(dup2(memory_.get(), STDOUT_FILENO), "dup2");
    checked(dup2(memory_.get(), STDERR_FILENO), "dup2");
    memory_fd = memory_.get();
    err_fd = err_.get();
    set_fatal_handlers(on_fatal);
}

Capture::~Capture()
{
    std::fflush(nullptr);
    dup2(out_.get(), STDOUT_FILENO);
    dup2(err_.get(), STDERR_FILENO);
    set_fatal_handlers(SIG_DFL);
}

std::vector<std::string> Capture::take_lines(bool all)
{
    std::string text(static_cast<size_t>(printed() - taken), '\0');
    text.resize(static_cast<size_t>(
        std::max<ssize_t>(pread(memory_fd, text.data(), text.size(), taken), 0)));
    if (!all && text.size() < kLongestLine)
        text.resize(text.rfind('\n') + 1); // 0 without one
    forget_until(taken + static_cast<off_t>(text.size()));
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty())
            lines.push_back(line.substr(0, kLongestLine));
    }
    return lines;
}

void Capture::keep_the_last()
{
    forget_until(std::max<off_t>(taken, printed() - kKept));
}

} // namespace tool
