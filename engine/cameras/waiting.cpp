// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>
#include <nyxus/engine/camera.hpp>

#include "report/clock.h"
#include "report/phase_scope.h"

namespace nyxus::engine {

namespace {

/// Asks again and again: true as soon as the answer is yes, false when the time is over.
bool wait_until(unsigned wait_s, const Caller& caller, const std::function<bool()>& is_so)
{
    constexpr useconds_t kPollInterval_us = 50'000;
    const int64_t deadline_us = now_us() + int64_t{wait_s} * 1'000'000;
    for (;;) {
        if (is_so())
            return true;
        if (caller.stop.stop_requested() || now_us() >= deadline_us)
            return false;
        usleep(kPollInterval_us);
    }
}

} // namespace

Result<CameraInfo> wait_for_return(const CameraInfo& before, unsigned wait_s, const Caller& caller)
{
    const auto is_stopped = [&] { return caller.stop.stop_requested(); };
    const nyxus::Result<CameraInfo> now = wait_for_restart(before, wait_s * 1000, is_stopped);
    if (now)
        return *now;
    const nyxus::Status& failure = now.status();
    const std::string after = failure.message() + " after " + std::to_string(wait_s) + " s; ";
    switch (failure.reason()) {
        case Reason::kStopped:
            return stopped();
        case Reason::kTimedOut:
            return Status(Reason::kTimedOut, after + "unplug it and plug it in again");
        case Reason::kNotBack:
            return Status(Reason::kNotBack, after + "plug it in again");
        default:
            return usb_failure("the camera at port " + before.port_path + " came back",
                               failure.usb_code(), find_camera(before.port_path).value_or(before));
    }
}

Result<std::vector<CameraInfo>> wait_for_cameras(const std::string& name, unsigned wait_s,
                                                 const Caller& caller)
{
    nyxus::Result<std::vector<CameraInfo>> cameras = list_cameras();
    const auto look = [&] {
        if (cameras) {
            std::erase_if(*cameras, [&](const CameraInfo& camera) {
                return !name.empty() && !camera.matches(name);
            });
        }
        return cameras && !cameras->empty() && can_open(cameras->front());
    };
    if (!look() && wait_s > 0) {
        PhaseScope scope(caller, Phase::kWaiting, 0, name);
        const bool is_there = wait_until(wait_s, caller, [&] {
            cameras = list_cameras();
            return look();
        });
        if (is_there)
            scope.end();
    }
    if (caller.stop.stop_requested())
        return stopped();
    if (!cameras)
        return usb_failure("cannot use USB", cameras.status().usb_code());
    return *std::move(cameras);
}

} // namespace nyxus::engine
