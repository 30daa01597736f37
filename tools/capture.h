// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace tool {

/// What the capture hears. Called on its reader thread, one call at a time.
class CaptureListener {
public:
    virtual ~CaptureListener() = default;
    /// A line without its line end.
    virtual void on_line(std::string_view line) = 0;
    /// About ten times a second.
    virtual void on_tick() = 0;
};

/**
 * Takes standard output and standard error of the process away from libuvc, libusb and the C++
 * runtime, which know no callbacks: what they print goes through a pipe to the listener. The
 * program itself prints through a Display that was made before.
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
    void take(char c);
    void end_line();

    CaptureListener& listener_;
    std::string line_; ///< one that has not ended yet
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
