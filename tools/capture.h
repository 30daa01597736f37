// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace tool {

/// What the capture hears. Called on its reader thread, one call at a time.
class CaptureListener {
public:
    virtual ~CaptureListener() = default;
    /// A '#' of the library's progress row: one exchange.
    virtual void on_mark() = 0;
    /// The percentage that closes a row of 512 bytes, or the last row.
    virtual void on_row_end() = 0;
    /// Any other line, without its line end.
    virtual void on_line(std::string_view line) = 0;
    /// About ten times a second.
    virtual void on_tick() = 0;
};

/// Tells progress marks from text in what the library prints.
class MarkParser {
public:
    explicit MarkParser(CaptureListener& listener) : listener_(listener) {}
    void feed(std::string_view bytes);
    /// The text of a line that has not ended yet.
    const std::string& unfinished() const { return line_; }
    void finish();

private:
    void end_line();

    CaptureListener& listener_;
    std::string line_;
};

/**
 * Takes standard output and standard error of the process away from the libraries: what they
 * print goes through a pipe to the listener. The program itself prints through a Display that was
 * made before.
 *
 * When the process dies by a signal, text that nobody has seen yet still reaches the real standard
 * error. One at a time.
 */
class Capture {
public:
    explicit Capture(CaptureListener& listener);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    /// Waits until the listener has heard everything that was printed before the call.
    void drain();

private:
    void read_loop();
    void handle(std::string_view bytes);

    MarkParser parser_;
    CaptureListener& listener_;
    files::Descriptor out_;
    files::Descriptor err_;
    files::Descriptor read_end_;
    std::mutex mutex_;
    std::condition_variable drained_;
    unsigned drain_requests_ = 0;
    unsigned drains_seen_ = 0;
    std::thread reader_;
};

} // namespace tool
