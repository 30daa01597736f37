// SPDX-License-Identifier: Apache-2.0
#include "cameras/held_camera.h"

#include <nyxus/engine/plan.hpp>
#include <nyxus/engine/rom.hpp>

namespace studio {

namespace engine = nyxus::engine;

namespace {

constexpr size_t kMostTasks = 64;
constexpr auto kGlance = std::chrono::milliseconds(500);
constexpr unsigned kIdleGlances = 4; ///< after which nobody needs the camera any more

} // namespace

HeldCamera::HeldCamera(nyxus::CameraInfo info, Listener listener)
    : listener_(std::move(listener)),
      info_(std::move(info)),
      thread_([this](const std::stop_token& stop) { work_off(stop); })
{
}

HeldCamera::~HeldCamera()
{
    thread_.request_stop();
    thread_.join();
}

nyxus::CameraInfo HeldCamera::info() const
{
    const std::lock_guard lock(mutex_);
    return info_;
}

void HeldCamera::set_info(nyxus::CameraInfo info)
{
    const std::lock_guard lock(mutex_);
    info_ = std::move(info);
    wants_change_ = true;
    changed_.notify_all();
}

bool HeldCamera::add(Task task)
{
    const std::lock_guard lock(mutex_);
    if (tasks_.size() >= kMostTasks)
        return false;
    tasks_.push_back(std::move(task));
    changed_.notify_all();
    return true;
}

bool HeldCamera::run(Work work)
{
    return add({std::move(work), {}});
}

bool HeldCamera::run_alone(std::function<void()> work)
{
    return add({{}, std::move(work)});
}

void HeldCamera::watch(std::optional<nyxus::VideoFormat> format)
{
    const std::lock_guard lock(mutex_);
    const bool same =
        wanted_.has_value() == format.has_value() &&
        (!format || (wanted_->width == format->width && wanted_->height == format->height &&
                     wanted_->fps == format->fps && wanted_->fourcc == format->fourcc));
    if (same)
        return;
    wanted_ = format;
    wants_change_ = true;
    changed_.notify_all();
}

void HeldCamera::work_off(const std::stop_token& stop)
{
    while (!stop.stop_requested()) {
        Task task;
        bool follows = false;
        {
            std::unique_lock lock(mutex_);
            const bool woken = changed_.wait_for(lock, stop, kGlance,
                                                 [&] { return !tasks_.empty() || wants_change_; });
            if (woken && !tasks_.empty()) {
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            follows = std::exchange(wants_change_, false);
        }
        if (follows)
            follow_watchers();
        if (task.work) {
            glances_ = 0;
            task.work(open());
        } else if (task.alone) {
            close();
            task.alone();
            follow_watchers();
        } else if (!follows) {
            look();
        }
    }
    // Whoever waits for an answer gets one.
    std::deque<Task> rest;
    {
        const std::lock_guard lock(mutex_);
        rest.swap(tasks_);
    }
    for (const Task& task : rest) {
        if (task.work)
            task.work(engine::Status(engine::Reason::kCameraGone, "the camera has gone"));
        else
            task.alone();
    }
    close();
}

HeldCamera::Open HeldCamera::open()
{
    const nyxus::CameraInfo now = info();
    if (camera_ && camera_->info().address != now.address)
        close();
    if (!camera_) {
        auto opened = engine::Camera::open(now);
        if (!opened)
            return opened.status();
        camera_.emplace(std::move(*opened));
        is_held_ = true;
        has_motion_ = true;
    }
    return &*camera_;
}

void HeldCamera::close()
{
    stream_.reset();
    camera_.reset();
    rom_.clear();
    is_held_ = false;
    glances_ = 0;
}

void HeldCamera::follow_watchers()
{
    std::optional<nyxus::VideoFormat> wanted;
    {
        const std::lock_guard lock(mutex_);
        wanted = wanted_;
    }
    stream_.reset();
    if (!wanted)
        return;
    const Open opened = open();
    if (!opened)
        return listener_.stream_failed(opened.status());
    auto started = nyxus::Stream::start(**opened, *wanted, listener_.frame);
    if (!started)
        return listener_.stream_failed(started.status());
    stream_.emplace(std::move(*started));
}

/// Every half second without work.
void HeldCamera::look()
{
    if (!camera_)
        return;
    ++glances_;
    if (!stream_) {
        if (glances_ >= kIdleGlances)
            close();
        return;
    }
    if (glances_ % 2 == 0)
        listener_.streams(stream_->status());
    if (!has_motion_)
        return;
    // Reading an alarm clears it, so that this reader serves all.
    const auto moved = camera_->poll_motion();
    has_motion_ = moved.ok();
    if (moved && *moved)
        listener_.motion();
}

engine::Result<const std::vector<uint8_t>*> HeldCamera::rom(engine::Camera& camera)
{
    if (rom_.empty()) {
        auto read = engine::read_rom(camera, 0, engine::replaced_bytes(camera), {});
        if (!read)
            return read.status();
        rom_ = std::move(*read);
    }
    return &rom_;
}

} // namespace studio
