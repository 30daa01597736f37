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

/// The same camera after its restart: it sits at the same port.
std::optional<CameraInfo> find_again(const CameraInfo& before)
{
    const auto cameras = list_cameras();
    if (!cameras)
        return std::nullopt;
    const auto found = std::find_if(cameras->begin(), cameras->end(), [&](const CameraInfo& now) {
        return now.port_path == before.port_path;
    });
    return found == cameras->end() ? std::nullopt : std::optional(*found);
}

Status return_failure(const CameraInfo& before, const std::optional<CameraInfo>& now, bool left,
                      unsigned wait_s)
{
    const std::string camera = "the camera at port " + before.port_path;
    const std::string after = " after " + std::to_string(wait_s) + " s; ";
    if (!left) {
        return {Reason::kTimedOut,
                camera + " has not restarted" + after + "unplug it and plug it in again"};
    }
    if (now)
        return usb_failure(camera + " came back", can_claim(*now).usb_code(), *now);
    return {Reason::kNotBack, camera + " has not come back" + after + "plug it in again"};
}

} // namespace

Result<CameraInfo> wait_for_return(const CameraInfo& before, unsigned wait_s, const Caller& caller)
{
    bool left = false;
    std::optional<CameraInfo> now;
    const bool is_back = wait_until(wait_s, caller, [&] {
        now = find_again(before);
        left = left || !now || now->address != before.address;
        // The udev daemon needs a moment to give the new node its permissions.
        return left && now && can_claim(*now);
    });
    if (is_back)
        return *now;
    return caller.stop.stop_requested() ? stopped() : return_failure(before, now, left, wait_s);
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
