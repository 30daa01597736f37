// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Cameras come and go.
 */
#ifndef NYXUS_CPP_CAMERA_WATCH_HPP
#define NYXUS_CPP_CAMERA_WATCH_HPP

#include <nyxus/cpp/camera_list.hpp>
#include <nyxus/cpp/coming.hpp>

#include <atomic>
#include <deque>
#include <functional>

namespace nyxus {

/// A camera has come or gone.
struct CameraEvent {
    bool here;
    CameraInfo camera; ///< each start gives one an address of its own
};

/**
 * Tells which cameras come and go, first of those that are there.
 *
 *     nyxus::CameraWatch watch;
 *     for (const nyxus::CameraEvent& event : watch)  // until another thread calls stop()
 *         std::printf("%s %s\n", event.here ? "here" : "gone", event.camera.serial.c_str());
 *
 * It looks each 100 ms, with or without a udev daemon, and asks no camera anything. One that goes
 * and comes back within that time has gone and come all the same, since its address changes. One
 * thread at a time, but for stop().
 */
class CameraWatch {
public:
    using Iterator = detail::ComingIterator<CameraWatch, CameraEvent>;

    CameraWatch() = default;
    CameraWatch(const CameraWatch&) = delete;
    CameraWatch& operator=(const CameraWatch&) = delete;

    /// What happens next. Reason::kTimedOut when that is nothing for so long, kStopped after
    /// stop(), at once; else why libusb cannot look.
    Result<CameraEvent> next(uint32_t timeout_ms)
    {
        for (uint32_t waited_ms = 0;; waited_ms += kPause_ms) {
            if (stopped_)
                return Status(Reason::kStopped, "stopped");
            if (Status looked = coming_.empty() ? look() : Status(); !looked)
                return looked;
            if (!coming_.empty()) {
                CameraEvent event = std::move(coming_.front());
                coming_.pop_front();
                return event;
            }
            if (waited_ms >= timeout_ms)
                return Status(Reason::kTimedOut, "no camera has come or gone");
            usleep(kPause_ms * 1000);
        }
    }

    /// Calls for each event until stop(), which the callback may call; why it has ended otherwise.
    Status run(const std::function<void(const CameraEvent&)>& callback)
    {
        for (const CameraEvent& event : *this)
            callback(event);
        return failure_;
    }

    /// The events as they come, each valid until the next, until stop() or a failure.
    Iterator begin() { return Iterator(*this); }
    Iterator end() { return {}; }
    /// Why the loop has ended: success after stop().
    const Status& failure() const { return failure_; }

    /// Ends next() and the loop within 100 ms, and all later ones. Thread-safe; allowed in a signal
    /// handler.
    void stop() { stopped_ = true; }

private:
    friend Iterator;
    static constexpr uint32_t kPause_ms = 100;

    static bool has(const std::vector<CameraInfo>& cameras, const CameraInfo& wanted)
    {
        return std::any_of(cameras.begin(), cameras.end(), [&](const CameraInfo& info) {
            return info.port_path == wanted.port_path && info.address == wanted.address;
        });
    }

    Status look()
    {
        Result<std::vector<CameraInfo>> now = list_cameras();
        if (!now)
            return now.status();
        for (const CameraInfo& camera : known_) {
            if (!has(*now, camera))
                coming_.push_back({false, camera});
        }
        for (const CameraInfo& camera : *now) {
            if (!has(known_, camera))
                coming_.push_back({true, camera});
        }
        known_ = std::move(*now);
        return {};
    }

    const CameraEvent* wait_for_next()
    {
        for (;;) {
            Result<CameraEvent> came = next(kPause_ms);
            if (came) {
                event_ = std::move(*came);
                return &*event_;
            }
            if (came.status().reason() == Reason::kTimedOut)
                continue;
            failure_ = came.status().reason() == Reason::kStopped ? Status() : came.status();
            return nullptr;
        }
    }

    std::atomic<bool> stopped_{false};
    std::vector<CameraInfo> known_;
    std::deque<CameraEvent> coming_;
    std::optional<CameraEvent> event_; ///< of the loop
    Status failure_;
};

} // namespace nyxus

#endif
