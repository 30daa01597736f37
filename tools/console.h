// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "capture.h"
#include "progress.h"

#include <nyxus/extensions.h>

#include <atomic>
#include <chrono>
#include <mutex>

namespace tool {

/// Follows an operation of the library while it runs. Called on the operation's thread, but for
/// lines of other libraries.
class Watcher {
public:
    virtual ~Watcher() = default;
    virtual void on_progress(uint64_t done_bytes) = 0;
    virtual void on_line(std::string_view line) = 0;
};

/// The program's side of the conversation: what the user sees, and what the libraries print.
class Console : private CaptureListener {
public:
    /// verbosity: 0 keeps the library's lines back, more passes them on. The program ends when
    /// `patience_s` pass without a sign of life from the camera; the library itself would wait for
    /// an answer for ever.
    Console(int verbosity, unsigned patience_s);
    ~Console() override;
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    Display& display() { return display_; }
    /// Waits until everything that the libraries printed so far has been shown.
    void drain() { capture_.drain(); }

    /// Something has moved.
    void sign_of_life();
    /// Whether a silent camera ends the program. Use Unwatched.
    void set_patient(bool patient);

    /// Who follows the progress; nullptr for nobody. Use Watching.
    void set_watcher(Watcher* watcher);

private:
    static void take_line(NyDevice* device, uint32_t kind, const char* text, size_t length,
                          void* console);
    static void take_progress(NyDevice* device, uint64_t done, uint64_t total, void* console);
    void on_line(std::string_view line) override;
    void on_tick() override;
    void give_up();

    const int verbosity_;
    const std::chrono::seconds patience_;
    std::atomic<bool> patient_ = false;
    std::atomic<std::chrono::steady_clock::time_point> latest_sign_ =
        std::chrono::steady_clock::now();
    std::mutex line_mutex_; ///< lines come from the library and from the capture's thread
    Watcher* watcher_ = nullptr;
    Display display_;
    Capture capture_; // last: its thread calls the members above
};

/// The camera may be silent within a scope: nothing is asked of it, or it has a limit of its own.
class Unwatched {
public:
    explicit Unwatched(Console& console) : console_(console) { console_.set_patient(true); }
    ~Unwatched() { console_.set_patient(false); }
    Unwatched(const Unwatched&) = delete;
    Unwatched& operator=(const Unwatched&) = delete;

private:
    Console& console_;
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
