// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/controller.h"
#include "usb/descriptors.h"
#include "usb/jpeg.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace sim {

/// What host and camera have settled on.
struct StreamFormat {
    PixelFormat pixels;
    FrameSize size;
    uint32_t interval_100ns;
    uint32_t payload_bytes;                     ///< the largest one, with its header
    std::shared_ptr<const Film> film = nullptr; ///< what is sent, as H.264
};

enum class Pacing {
    kRealTime, ///< one frame per interval; dropped when the host has no room for it
    kFlatOut,  ///< as fast as the host takes them, the first one at once
};

/// What goes wrong with a frame.
struct FrameFault {
    enum class Kind {
        kNone,
        kTruncated, ///< ends in order after `bytes` bytes of picture
        kErrorBit,  ///< every payload says that it is broken
        kHalted,    ///< the endpoint halts instead, until the stream is stopped
        kUnplugSilent,
        kUnplugAnnounced,
    };
    Kind kind = Kind::kNone;
    uint32_t bytes = 0;

    static FrameFault none() { return {}; }
    static FrameFault truncated(uint32_t bytes) { return {Kind::kTruncated, bytes}; }
    static FrameFault error_bit() { return {Kind::kErrorBit, 0}; }
    static FrameFault stall() { return {Kind::kHalted, 0}; }
    static FrameFault unplug_silent() { return {Kind::kUnplugSilent, 0}; }
    static FrameFault unplug_announced() { return {Kind::kUnplugAnnounced, 0}; }
};

/// Asked before each frame that the host has room for; `ordinal` counts them from 0 since the hook
/// was set. It runs under the camera's lock and must not call the bed.
using FrameFaultHook = std::function<FrameFault(uint64_t ordinal)>;

/// Counts since the camera was made.
struct StreamState {
    bool streaming = false;
    uint64_t frames_sent = 0; ///< to their last byte, faulty ones included
    uint64_t frames_dropped = 0;
};

/// The video pipe: when which frame is taken, and its bytes as they cross the bus. Knows nothing
/// of who carries them. Guarded by the camera's mutex.
class VideoStream {
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit VideoStream(const Controller& sensor) : sensor_(sensor) {}

    void commit(const StreamFormat& format);
    /// Without a commit since the last stop, or while streaming, it has no effect.
    /// `packet_bytes`: of the isochronous endpoint.
    void start(uint32_t packet_bytes = 0);
    /// The first frame comes now. False when it has been, or the description says when it comes.
    bool hurry_first_frame();
    void stop();
    void set_pacing(Pacing pacing);
    /// From the next frame on.
    void set_picture(const PictureSettings& settings) { settings_ = settings; }
    void set_fault(FrameFaultHook hook);
    /// Called after the stream has begun, ended, sent or dropped a frame.
    void set_listener(std::function<void()> listener) { changed_ = std::move(listener); }

    bool is_halted() const { return halted_; }
    bool is_paced() const { return pacing_ == Pacing::kRealTime; }
    const StreamState& state() const { return state_; }
    /// Nothing before a commit, and after a stop.
    const std::optional<StreamFormat>& format() const { return format_; }
    /// When the sensor takes its next frame; nothing while the stream is stopped.
    std::optional<Time> due() const;

    /// The frame that is due, on its way now. Its fault has been applied as far as its bytes go.
    FrameFault::Kind take_frame();
    /// The frame that is due goes nowhere.
    void drop_frame();

    /// Whether bytes of a frame wait to be carried.
    bool has_data() const { return picture_left() > 0 || payload_left() > 0 || owes_empty_packet_; }
    /// Neither the next bulk transfer nor the next packet carries more, whatever its room.
    size_t most_in_transfer() const;
    size_t most_in_packet() const { return std::min(packet_bytes_, format_->payload_bytes); }
    /// A bulk transfer ends when its room is full or a short packet came. Bytes moved.
    size_t read_transfer(std::span<uint8_t> room);
    /// Whether the last transfer was full in the middle of a payload.
    bool is_inside_payload() const { return payload_left() > 0; }
    /// One isochronous packet; nothing when it does not fit into `room`, and is lost.
    std::optional<size_t> read_packet(std::span<uint8_t> room);

private:
    using Header = std::array<uint8_t, kPayloadHeaderBytes>;

    size_t picture_left() const { return picture_.size() - picture_at_; }
    size_t payload_left() const { return payload_bytes_ - payload_at_; }
    void draw(uint32_t number);
    View look_at_scene(uint32_t number);
    void send(const FrameFault& fault);
    void open_payload(size_t most);
    size_t read_payload(std::span<uint8_t> room);
    void finish_payload();
    void schedule_next();
    void abandon_frame();

    const Controller& sensor_;
    Pacing pacing_ = Pacing::kRealTime;
    FrameFaultHook fault_;
    std::function<void()> changed_ = [] {};
    uint64_t ordinal_ = 0;
    StreamState state_;

    std::optional<StreamFormat> format_; ///< committed and not stopped since
    uint32_t packet_bytes_ = 0;
    Time earliest_; ///< of the first frame
    Time due_;
    uint32_t frame_number_ = 0;
    uint32_t film_frame_ = 0; ///< a film begins with the stream
    bool halted_ = false;

    PictureSettings settings_;
    std::vector<uint8_t> yuyv_; ///< of the last picture, where it travels as MJPEG
    YuyvPicture scene_;         ///< of a film of JPEGs, the latest that was whole
    std::optional<size_t> scene_place_;
    std::vector<uint8_t> picture_; ///< as it travels
    size_t picture_at_ = 0;
    Header header_{};
    bool frame_id_ = false;
    bool has_error_ = false;
    uint32_t taken_at_us_ = 0;
    size_t payload_bytes_ = 0;
    size_t payload_at_ = 0;
    bool owes_empty_packet_ = false;
};

} // namespace sim
