// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Video: what a camera streams, and frames by callback or one at a time.
 */
#ifndef NYXUS_CPP_VIDEO_HPP
#define NYXUS_CPP_VIDEO_HPP

#include <nyxus/streaming.h>
#include <nyxus/video.h>
#include <nyxus/cpp/camera.hpp>
#include <nyxus/cpp/coming.hpp>

#include <functional>

namespace nyxus {

struct VideoFormat {
    uint32_t width = 640;  ///< pixels
    uint32_t height = 480; ///< pixels
    uint32_t fps = 0;      ///< frames per second; 0: the first rate that the camera offers
    uint32_t fourcc = NYXUS_FOURCC_YUYV; ///< of a NyStreamFormat
};

/// A frame: YUYV has two bytes a pixel, row after row, and is complete; MJPEG is a JPEG file.
struct Frame {
    uint32_t width;
    uint32_t height;
    uint32_t sequence; ///< a gap tells of lost frames
    Bytes data;        ///< borrowed for the call, or as Stream::next() says
    uint32_t fourcc;
    uint64_t time_us; ///< CLOCK_MONOTONIC when it had come as a whole
};

/// Called on libuvc's streaming thread. It must neither stop the stream nor throw.
using FrameCallback = std::function<void(const Frame&)>;

/// A frame that is kept beyond its turn: a copy, which holds nothing up.
struct Picture {
    Picture() = default;
    explicit Picture(const Frame& frame)
        : width(frame.width),
          height(frame.height),
          sequence(frame.sequence),
          data(frame.data.begin(), frame.data.end()),
          fourcc(frame.fourcc),
          time_us(frame.time_us)
    {
    }

    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t sequence = 0;
    std::vector<uint8_t> data;
    uint32_t fourcc = 0;
    uint64_t time_us = 0;
};

/// What the camera streams, in its order. Asks the camera nothing.
inline Result<std::vector<NyStreamFormat>> list_formats(Camera& camera)
{
    const int32_t count = nyxus_list_formats(camera.device(), nullptr, 0);
    if (count < 0)
        return Status::of_video(count);
    std::vector<NyStreamFormat> formats(static_cast<size_t>(count));
    (void)nyxus_list_formats(camera.device(), formats.data(), static_cast<uint32_t>(count));
    return formats;
}

/// The four characters of a format: "YUYV".
inline std::string fourcc_text(uint32_t fourcc)
{
    std::string text;
    for (int shift = 0; shift < 32; shift += 8)
        text += static_cast<char>(fourcc >> shift & 0xFF);
    return text;
}

/**
 * A running video stream. It stops when the object dies, or its camera is closed.
 *
 *     for (const nyxus::Frame& frame : *stream)      // started without a callback
 *         show(frame);
 *     if (nyxus::Status failure = stream->failure(); !failure)
 *         ...                                        // the camera went, or was silent
 *
 * Move only; one thread at a time per camera, but for next() and the loop.
 */
class Stream {
public:
    using Iterator = detail::ComingIterator<Stream, Frame>;

    /// How long the loop waits for each frame.
    uint32_t patience_ms = 5000;

    /// Starts a stream, with a callback or to be asked for frames with next(). A failure's origin
    /// is Origin::kVideo when libuvc or the camera refuses the format, or the kernel lends too
    /// little memory: its message says what to do. Blocks for the negotiation's transfers.
    static Result<Stream> start(Camera& camera, const VideoFormat& format,
                                FrameCallback callback = {})
    {
        Stream stream(std::move(callback));
        const NyStreamRequest request = {format.fourcc, format.width, format.height,
                                         interval_of(format.fps)};
        NyStream* started = nullptr;
        const int32_t rv =
            nyxus_stream_start(camera.device(), &request, *stream.callback_ ? on_frame : nullptr,
                               stream.callback_.get(), &started);
        if (rv < 0)
            return Status::of_video(rv);
        stream.stream_.reset(started);
        return stream;
    }

    Stream(Stream&&) noexcept = default;
    Stream& operator=(Stream&& other) noexcept
    {
        stream_ = std::move(other.stream_); // ends the old one, which calls the old callback
        callback_ = std::move(other.callback_);
        patience_ms = other.patience_ms;
        failure_ = std::move(other.failure_);
        return *this;
    }

    /// The next frame of a stream without a callback, whose data is valid until the next call.
    /// Fails with UVC_ERROR_TIMEOUT when none comes in time, UVC_ERROR_NO_DEVICE when the camera is
    /// gone, UVC_ERROR_INTERRUPTED when the stream has been stopped. One thread may wait here while
    /// another one uses the camera, or stops the stream.
    Result<Frame> next(uint32_t timeout_ms)
    {
        NyStreamFrame frame = {};
        const int32_t rv = nyxus_stream_next(stream_.get(), timeout_ms, &frame);
        if (rv < 0)
            return Status::of_video(rv);
        return frame_of(frame);
    }

    /// The frames as they come, each valid until the next; until the stream is stopped, by any
    /// thread, or fails: the camera goes, or sends none for `patience_ms`.
    Iterator begin() { return Iterator(*this); }
    Iterator end() { return {}; }
    /// Why the loop has ended: success when the stream was stopped.
    const Status& failure() const { return failure_; }

    /// What the stream has settled on, and what became of its frames.
    NyStreamStatus status() const
    {
        NyStreamStatus status = {};
        (void)nyxus_stream_status(stream_.get(), &status);
        return status;
    }

    /// Ends the stream; no call of the callback is under way or follows. Waits for a call of the
    /// callback, and for libuvc's streaming thread.
    void stop() { nyxus_stream_stop(stream_.get()); }

private:
    friend Iterator;
    struct Free {
        void operator()(NyStream* stream) const { nyxus_stream_free(stream); }
    };

    explicit Stream(FrameCallback callback)
        : callback_(std::make_unique<FrameCallback>(std::move(callback)))
    {
    }

    const Frame* wait_for_next()
    {
        Result<Frame> came = next(patience_ms);
        if (came) {
            frame_ = *came;
            return &frame_;
        }
        failure_ = came.status().reason() == Reason::kStopped ? Status() : came.status();
        return nullptr;
    }

    static uint32_t interval_of(uint32_t fps)
    {
        constexpr uint32_t kSecond_100ns = 10'000'000;
        return fps == 0 ? 0 : std::max(kSecond_100ns / fps, 1U);
    }

    static Frame frame_of(const NyStreamFrame& frame)
    {
        return {frame.width,  frame.height, frame.sequence, {frame.data, frame.size},
                frame.fourcc, frame.time_us};
    }

    static void on_frame(const NyStreamFrame* frame, void* callback) noexcept
    {
        (*static_cast<FrameCallback*>(callback))(frame_of(*frame));
    }

    std::unique_ptr<FrameCallback> callback_;
    std::unique_ptr<NyStream, Free> stream_; // goes first
    Frame frame_ = {};                       // of the loop
    Status failure_;
};

/// The first complete frame of a stream; not while another one runs. UVC_ERROR_TIMEOUT when none
/// comes in time.
inline Result<Picture> take_picture(Camera& camera, const VideoFormat& format = {},
                                    uint32_t timeout_ms = 5000)
{
    Result<Stream> stream = Stream::start(camera, format);
    if (!stream)
        return stream.status();
    const Result<Frame> frame = stream->next(timeout_ms);
    if (!frame)
        return frame.status();
    return Picture(*frame);
}

} // namespace nyxus

#endif
