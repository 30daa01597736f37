// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "capture.h"
#include "progress.h"

#include <mutex>

namespace tool {

/// Follows what the library prints while an operation runs. Called on the capture's thread.
class Watcher {
public:
    virtual ~Watcher() = default;
    virtual void on_mark() = 0;
    virtual void on_row_end() = 0;
    virtual void on_line(std::string_view line) = 0;
};

/// The program's side of the conversation: what the user sees, and what the libraries print.
class Console : private CaptureListener {
public:
    /// verbosity: 0 keeps the library's lines back, more passes them on.
    explicit Console(int verbosity);

    Display& display() { return display_; }
    /// Waits until everything that the libraries printed so far has been shown.
    void drain() { capture_.drain(); }

    /// Who follows the progress; nullptr for nobody. Use Watching.
    void set_watcher(Watcher* watcher);

private:
    void on_mark() override;
    void on_row_end() override;
    void on_line(std::string_view line) override;
    void on_tick() override;

    const int verbosity_;
    std::mutex watcher_mutex_;
    Watcher* watcher_ = nullptr;
    Display display_;
    Capture capture_; // last: its thread calls the members above
};

/// Lets a watcher follow the progress within a scope.
class Watching {
public:
    Watching(Console& console, Watcher& watcher) : console_(console)
    {
        console_.drain();
        console_.set_watcher(&watcher);
    }
    ~Watching()
    {
        console_.drain();
        console_.set_watcher(nullptr);
    }
    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;

private:
    Console& console_;
};

} // namespace tool
