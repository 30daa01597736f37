// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/bed.h"
#include "usb/observer.h"
#include "usb/video_stream.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

namespace sim {

/// What has happened to a camera since this was made, for a test that waits for it.
class CameraEvents : public UsbObserver {
public:
    struct Seen {
        unsigned arrivals = 0; ///< one at once when the camera is plugged in
        unsigned departures = 0;
        int transfers_under_way = 0; ///< of those that have begun since
        unsigned strikes = 0;        ///< of planned faults
        StreamState video;
    };

    explicit CameraEvents(PluggedCamera& camera) : camera_(camera) { camera_.add_observer(*this); }
    ~CameraEvents() override { camera_.usb()->observers().remove(*this); }
    CameraEvents(const CameraEvents&) = delete;
    CameraEvents& operator=(const CameraEvents&) = delete;

    /// Until `has_happened`, asked about what was seen; false when it does not in a long time.
    template <typename Condition>
    bool wait_for(Condition has_happened)
    {
        constexpr std::chrono::seconds kPatience(60);
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return has_happened(seen_); });
    }

private:
    void plugged(const UsbCamera&, unsigned, unsigned) override
    {
        note([](Seen& seen) { ++seen.arrivals; });
    }
    void left(Departure) override
    {
        note([](Seen& seen) { ++seen.departures; });
    }
    void submitted(const BusTransfer&) override
    {
        note([](Seen& seen) { ++seen.transfers_under_way; });
    }
    void finished(const BusTransfer&) override
    {
        note([](Seen& seen) { --seen.transfers_under_way; });
    }
    void refused(const BusTransfer&) override {}
    void video_changed(const VideoStream& stream) override
    {
        note([&](Seen& seen) { seen.video = stream.state(); });
    }
    void fault_strikes(const std::string&) override
    {
        note([](Seen& seen) { ++seen.strikes; });
    }

    template <typename Change>
    void note(Change change)
    {
        const std::lock_guard lock(mutex_);
        change(seen_);
        changed_.notify_all();
    }

    PluggedCamera& camera_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Seen seen_;
};

} // namespace sim
