// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * YUYV video: frames by callback, or one at a time.
 */
#ifndef NYXUS_CPP_VIDEO_HPP
#define NYXUS_CPP_VIDEO_HPP

#include <nyxus/video.h>
#include <nyxus/cpp/camera.hpp>

#include <functional>

namespace nyxus {

struct VideoFormat {
    uint32_t width = 640;  ///< pixels
    uint32_t height = 480; ///< pixels
    uint32_t fps = 0;      ///< frames per second; 0: the first rate that the camera offers
};

/// A complete frame: two bytes a pixel, row after row.
struct Frame {
    uint32_t width;
    uint32_t height;
    uint32_t sequence; ///< a gap tells of lost frames
    Bytes yuyv;        ///< borrowed for the call
};

/// Called on libuvc's streaming thread. It must neither stop the stream nor throw.
using FrameCallback = std::function<void(const Frame&)>;

/// A frame that was kept.
struct Picture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> yuyv; ///< two bytes a pixel, row after row
};

/// A running video stream. It stops when the object dies, which has to be before its camera does.
/// Move only; one thread at a time per camera.
class Stream {
public:
    /// Starts a stream; a failure's origin is Origin::kVideo when libuvc or the camera refuses the
    /// format. Blocks for the negotiation's transfers.
    static Result<Stream> start(Camera& camera, const VideoFormat& format, FrameCallback callback)
    {
        Stream stream(camera.device(), format, std::move(callback));
        const int32_t rv =
            startVideoStream(stream.camera_, &Running::on_frame, stream.running_.get());
        if (rv < 0)
            return Status::of_video(rv);
        return stream;
    }

    Stream(Stream&&) noexcept = default;
    Stream& operator=(Stream&& other) noexcept
    {
        stop();
        camera_ = other.camera_;
        running_ = std::move(other.running_);
        return *this;
    }
    ~Stream() { stop(); }

    /// Ends the stream; no call of the callback is under way or follows. Waits for a call of the
    /// callback, and for libuvc's streaming thread.
    void stop()
    {
        if (!running_)
            return;
        stopVideoStream(camera_);
        running_.reset();
    }

private:
    /// The library hands its parameter record back to the callback: more travels with it.
    struct Running : VideoStreamParam {
        Running(const VideoFormat& format, FrameCallback wanted)
            : VideoStreamParam{0, format.width, format.height, format.fps, nullptr},
              callback(std::move(wanted))
        {
        }

        static void on_frame(uvc_frame_t* frame, VideoStreamParam* param) noexcept
        {
            auto& running = *static_cast<Running*>(param);
            if (running.callback) {
                running.callback({frame->width,
                                  frame->height,
                                  frame->sequence,
                                  {static_cast<const uint8_t*>(frame->data), frame->data_bytes}});
            }
        }

        FrameCallback callback;
    };

    Stream(NyDevice* camera, const VideoFormat& format, FrameCallback callback)
        : camera_(camera), running_(std::make_unique<Running>(format, std::move(callback)))
    {
    }

    NyDevice* camera_;
    std::unique_ptr<Running> running_;
};

/// Takes one complete frame. Tries again after bad ones, as long as the camera is connected: a
/// program that must not wait needs a limit of its own. Not while a stream runs.
inline Result<Picture> take_picture(Camera& camera, const VideoFormat& format = {})
{
    VideoStreamParam param = {0, format.width, format.height, format.fps, nullptr};
    Status status = Status::of_video(startVideoStream_snapshot(camera.device(), nullptr, &param));
    Picture picture;
    if (status) {
        const auto* data = static_cast<const uint8_t*>(param.frame->data);
        picture = {param.frame->width, param.frame->height, {data, data + param.frame->data_bytes}};
    }
    stopVideoStream(camera.device());
    if (!status)
        return status;
    return picture;
}

} // namespace nyxus

#endif
