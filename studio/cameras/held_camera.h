// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/cpp/video.hpp>
#include <nyxus/engine/camera.hpp>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace studio {

/// A camera at a port: open while somebody looks or works, and for a moment longer. What is done to
/// it is done in order, by a thread of its own.
class HeldCamera {
public:
    using Open = nyxus::engine::Result<nyxus::engine::Camera*>;
    using Work = std::function<void(const Open&)>;

    /// What its pictures become, and what it tells; called on threads of the camera.
    struct Listener {
        std::function<void(const nyxus::Frame&)> frame;
        std::function<void(const NyStreamStatus&)> streams; ///< once a second
        std::function<void(const nyxus::Status&)> stream_failed;
        std::function<void()> motion;
    };

    HeldCamera(nyxus::CameraInfo info, Listener listener);
    /// Ends what is being done, and lets go.
    ~HeldCamera();
    HeldCamera(const HeldCamera&) = delete;
    HeldCamera& operator=(const HeldCamera&) = delete;

    nyxus::CameraInfo info() const;
    /// It has come back, perhaps as another one.
    void set_info(nyxus::CameraInfo info);
    /// False where too much waits already.
    bool run(Work work);
    /// The same with the camera closed, so that somebody else may open it.
    bool run_alone(std::function<void()> work);
    /// What is to be streamed, or nothing.
    void watch(std::optional<nyxus::VideoFormat> format);
    bool is_held() const { return is_held_; }

    /// What the ROM holds, as far as the controller uses it; on the camera's thread.
    nyxus::engine::Result<const std::vector<uint8_t>*> rom(nyxus::engine::Camera& camera);
    void forget_rom() { rom_.clear(); }

private:
    struct Task {
        Work work;
        std::function<void()> alone;
    };
    bool add(Task task);
    void work_off(const std::stop_token& stop);
    void follow_watchers();
    void look();
    Open open();
    void close();

    Listener listener_;
    mutable std::mutex mutex_; ///< of the next five
    std::condition_variable_any changed_;
    nyxus::CameraInfo info_;
    std::deque<Task> tasks_;
    std::optional<nyxus::VideoFormat> wanted_;
    bool wants_change_ = false;

    // The thread's own.
    std::optional<nyxus::engine::Camera> camera_;
    std::optional<nyxus::Stream> stream_;
    std::vector<uint8_t> rom_;
    bool has_motion_ = true;
    unsigned glances_ = 0;

    std::atomic<bool> is_held_ = false;
    std::jthread thread_; ///< ends first
};

} // namespace studio
