// SPDX-License-Identifier: Apache-2.0
#include "watch/output_file.h"

#include "files/write_all.h"
#include "text/printable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace sim {

namespace {

[[noreturn]] void fail(const std::string& path, int error)
{
    throw std::runtime_error("cannot write " + text::in_quotes(path) + ": " + std::strerror(error));
}

bool is_fifo(const std::string& path)
{
    struct stat entry {};
    return stat(path.c_str(), &entry) == 0 && S_ISFIFO(entry.st_mode);
}

// The signals that end a run may be blocked, so that opening must not block.
bool is_interrupted()
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGINT) != 0 || sigismember(&pending, SIGTERM) != 0 ||
           sigismember(&pending, SIGHUP) != 0;
}

files::Descriptor open_fifo(const std::string& path)
{
    bool told = false;
    for (;;) {
        files::Descriptor fifo(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        if (fifo)
            fcntl(fifo.get(), F_SETFL, O_WRONLY);
        if (fifo || errno != ENXIO)
            return fifo;
        if (is_interrupted()) {
            errno = EINTR;
            return {};
        }
        if (!std::exchange(told, true)) {
            std::fprintf(stderr, "nyxus-sim: waiting for a reader of %s\n",
                         text::in_quotes(path).c_str());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

files::Descriptor take_standard_output()
{
    files::Descriptor output(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (output)
        dup2(STDERR_FILENO, STDOUT_FILENO);
    return output;
}

files::Descriptor open_output(const std::string& path)
{
    if (path == "-")
        return take_standard_output();
    if (is_fifo(path))
        return open_fifo(path);
    return files::Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
}

} // namespace

OutputFile::OutputFile(const std::string& path)
    : name_(path == "-" ? "standard output" : path), file_(open_output(path))
{
    if (!file_)
        fail(name_, errno);
    // A reader that goes is an error like others. Programs that we start have the default again.
    std::signal(SIGPIPE, [](int) {});
}

void OutputFile::write(std::string_view text)
{
    if (error_ == 0)
        error_ = files::write_all(file_.get(), text);
}

bool OutputFile::report(const char* what) const
{
    if (has_failed()) {
        std::fprintf(stderr, "nyxus-sim: the %s in %s is incomplete: %s\n", what,
                     text::in_quotes(name_).c_str(), std::strerror(error_));
    }
    return !has_failed();
}

} // namespace sim
