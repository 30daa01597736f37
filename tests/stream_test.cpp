// SPDX-License-Identifier: Apache-2.0
// Streams of every format: by callback, one frame at a time, within the kernel's memory, and of
// cameras that go.
#include <gtest/gtest.h>

#include <unistd.h>
#include <atomic>
#include <functional>
#include <thread>
#include <utility>

#include "cameras/shipped.h"
#include "chip/picture.h"
#include "support/camera.h"
#include "support/run_bounded.h"

namespace {

constexpr uint32_t kPatience_ms = 60000;
constexpr char kMjpegCamera[] = "maple-mjpeg"; // bulk, 16 KiB at a time
constexpr char kMjpegIso[] = "maple-iso";

NyStreamRequest yuyv(uint32_t width, uint32_t height)
{
    return {NYXUS_FOURCC_YUYV, width, height, 0};
}

NyStream* start(NyDevice* device, const NyStreamRequest& request)
{
    NyStream* stream = nullptr;
    EXPECT_EQ(nyxus_stream_start(device, &request, nullptr, nullptr, &stream), 0) << nyxus_errmsg;
    return stream;
}

bool is_jpeg(const NyStreamFrame& frame)
{
    return frame.size > 4 && frame.data[0] == 0xFF && frame.data[1] == 0xD8 &&
           frame.data[frame.size - 2] == 0xFF && frame.data[frame.size - 1] == 0xD9;
}

bool is_picture(const NyStreamFrame& frame)
{
    if (frame.fourcc == NYXUS_FOURCC_MJPEG)
        return is_jpeg(frame);
    return frame.size == size_t{frame.width} * frame.height * 2 &&
           sim::read_frame_number(frame.width, frame.height, {frame.data, frame.size}, false, false)
               .has_value();
}

/// Takes frames, each of which has to be whole; false when one does not come.
bool take_frames(NyStream* stream, int count)
{
    NyStreamFrame frame = {};
    for (int i = 0; i < count; ++i) {
        if (nyxus_stream_next(stream, kPatience_ms, &frame) != 0 || !is_picture(frame))
            return false;
    }
    return true;
}

/// A camera on a machine whose kernel lends so much, that sends its first frame at once.
class TightCamera : public Camera {
public:
    TightCamera(std::string_view model, unsigned limit_MiB) : Camera(early(model), Time::kReal)
    {
        bed().set_usbfs_memory(limit_MiB);
        bed().replug(sim());
    }

    static sim::CameraModel early(std::string_view model)
    {
        sim::CameraModel copy = *sim::find_model(model);
        copy.first_frame_ms = 0;
        return copy;
    }
};

} // namespace

TEST(Stream, FormatsAreThoseOfTheDescriptors)
{
    const struct {
        const char* model;
        int32_t count, place;
        uint32_t fourcc, width, height;
        std::vector<uint32_t> intervals;
    } cases[] = {
        {"rowan-spi", 3, 2, NYXUS_FOURCC_YUYV, 1280, 720, {1000000, 2000000, 5000000}},
        {"rowan-iso", 3, 0, NYXUS_FOURCC_YUYV, 320, 240, {333333, 666666, 1000000}},
        {kMjpegCamera, 7, 0, NYXUS_FOURCC_YUYV, 640, 480, {333333, 666666}},
        {kMjpegCamera, 7, 3, NYXUS_FOURCC_MJPEG, 1920, 1080, {333333, 666666}},
    };
    for (const auto& c : cases) {
        Camera camera{c.model};
        NyStreamFormat formats[8];
        ASSERT_EQ(nyxus_list_formats(camera.device(), nullptr, 0), c.count) << c.model;
        ASSERT_EQ(nyxus_list_formats(camera.device(), formats, 8), c.count) << c.model;
        const NyStreamFormat& format = formats[c.place];
        EXPECT_EQ(format.fourcc, c.fourcc) << c.model;
        EXPECT_EQ(format.width, c.width) << c.model;
        EXPECT_EQ(format.height, c.height) << c.model;
        EXPECT_EQ(std::vector(format.intervals, format.intervals + format.interval_count),
                  c.intervals);
        EXPECT_EQ(format.interval_min, c.intervals.front());
        EXPECT_EQ(format.interval_max, c.intervals.back());
        camera.remove();
    }
}

TEST(Stream, EveryFormatComesWholeAndInOrder)
{
    const struct {
        const char* model;
        NyStreamRequest request;
        uint32_t interval;
    } cases[] = {
        {"rowan-spi", yuyv(640, 480), 333333},
        {"rowan-iso", yuyv(320, 240), 333333},
        {kMjpegCamera, yuyv(320, 240), 333333},
        {kMjpegCamera, {NYXUS_FOURCC_MJPEG, 640, 480, 0}, 333333},
        {kMjpegCamera, {NYXUS_FOURCC_MJPEG, 1280, 720, 667000}, 666666}, // the nearest one
        {kMjpegIso, {NYXUS_FOURCC_MJPEG, 320, 240, 333333}, 333333},
    };
    for (const auto& c : cases) {
        Camera camera{c.model, Time::kReal};
        NyStream* stream = start(camera.device(), c.request);
        ASSERT_NE(stream, nullptr) << c.model;
        NyStreamFrame before = {};
        for (int i = 0; i < 3; ++i) {
            NyStreamFrame frame = {};
            ASSERT_EQ(nyxus_stream_next(stream, kPatience_ms, &frame), 0) << c.model;
            EXPECT_TRUE(is_picture(frame)) << c.model << " " << c.request.width;
            EXPECT_EQ(frame.fourcc, c.request.fourcc);
            EXPECT_EQ(frame.width, c.request.width);
            EXPECT_GT(frame.sequence, before.sequence);
            EXPECT_GE(frame.time_us, before.time_us);
            before = frame;
        }
        NyStreamStatus status = {};
        EXPECT_EQ(nyxus_stream_status(stream, &status), 0);
        EXPECT_EQ(status.interval, c.interval) << c.model;
        EXPECT_GE(status.frames, 3u);
        EXPECT_EQ(status.incomplete, 0u) << c.model;
        nyxus_stream_free(stream);
    }
}

TEST(Stream, ACallbackReceivesTheFrames)
{
    Camera camera{kMjpegCamera, Time::kReal};
    struct {
        std::atomic<int> frames = 0, bad = 0;
    } seen;
    const auto count = [](const NyStreamFrame* frame, void* user) {
        auto& counts = *static_cast<decltype(seen)*>(user);
        counts.bad += !is_picture(*frame);
        ++counts.frames;
        counts.frames.notify_one();
    };
    const NyStreamRequest request = {NYXUS_FOURCC_MJPEG, 320, 240, 0};
    NyStream* stream = nullptr;
    ASSERT_EQ(nyxus_stream_start(camera.device(), &request, count, &seen, &stream), 0);
    for (int frames = 0; frames < 3; frames = seen.frames)
        seen.frames.wait(frames);
    NyStreamFrame frame;
    EXPECT_EQ(nyxus_stream_next(stream, 0, &frame), NYXUS_E_RANGE);
    nyxus_stream_stop(stream);
    const int stopped = seen.frames;
    EXPECT_EQ(seen.bad, 0);
    NyStream* second = start(camera.device(), request);
    EXPECT_TRUE(take_frames(second, 1));
    EXPECT_EQ(seen.frames, stopped) << "the first one is silent";
    nyxus_stream_free(second);
    nyxus_stream_free(stream);
}

TEST(Stream, WhatTheCameraDoesNotOfferIsRefused)
{
    const struct {
        NyStreamRequest request;
        const char* message;
    } cases[] = {
        {yuyv(123, 45), "no YUYV of 123x45"},
        {{NYXUS_FOURCC('H', '2', '6', '4'), 640, 480, 0}, "no H264 of 640x480"},
        {{NYXUS_FOURCC_YUYV, 640, 480, 400000}, "no YUYV of 640x480 at this rate"},
        {{0x01020304, 640, 480, 0}, "no ???? of"},
    };
    Camera camera{kMjpegCamera, Time::kReal};
    NyDevice* device = camera.device();
    camera.listen();
    for (const auto& [request, message] : cases) {
        NyStream* stream = nullptr;
        EXPECT_EQ(nyxus_stream_start(device, &request, nullptr, nullptr, &stream),
                  UVC_ERROR_INVALID_MODE);
        EXPECT_EQ(stream, nullptr);
        EXPECT_NE(std::string(nyxus_errmsg).find(message), std::string::npos) << nyxus_errmsg;
    }
    EXPECT_TRUE(camera.wire().empty());
    NyDevice closed = {};
    NyStream* stream = nullptr;
    const NyStreamRequest request = yuyv(320, 240);
    EXPECT_EQ(nyxus_stream_start(&closed, &request, nullptr, nullptr, &stream),
              UVC_ERROR_NO_DEVICE);
    EXPECT_EQ(nyxus_list_formats(&closed, nullptr, 0), UVC_ERROR_NO_DEVICE);
}

/// libuvc divides by the rate, or by the range's step, and neither may be 0.
TEST(Stream, ARangeOfIntervalsIsARange)
{
    Camera camera{"rowan-spi", Time::kReal};
    NyDevice* device = camera.device();
    uvc_frame_desc_t& frame = *uvc_get_format_descs(device->uvc_handle)->frame_descs;
    uint32_t* intervals = std::exchange(frame.intervals, nullptr);
    frame.dwMinFrameInterval = 333333;
    frame.dwMaxFrameInterval = 1000000;
    frame.dwFrameIntervalStep = 0;
    NyStreamFormat format = {};
    ASSERT_EQ(nyxus_list_formats(device, &format, 1), 3);
    EXPECT_EQ(format.interval_count, 0u);
    EXPECT_EQ(format.interval_min, 333333u);
    EXPECT_EQ(format.interval_max, 1000000u);
    EXPECT_EQ(format.interval_step, 1u);
    for (const uint32_t fps : {0, 25}) {
        VideoStreamParam param = {0, 320, 240, fps, nullptr};
        EXPECT_EQ(startVideoStream_snapshot(device, nullptr, &param), UVC_ERROR_INVALID_MODE);
    }
    for (const uint32_t interval : {0, 666666}) { // such that the camera has, too
        NyStream* stream = start(device, {NYXUS_FOURCC_YUYV, 320, 240, interval});
        EXPECT_TRUE(take_frames(stream, 1)) << interval;
        nyxus_stream_free(stream);
    }
    NyStream* stream = nullptr;
    const NyStreamRequest slower = {NYXUS_FOURCC_YUYV, 320, 240, 1100000};
    EXPECT_EQ(nyxus_stream_start(device, &slower, nullptr, nullptr, &stream),
              UVC_ERROR_INVALID_MODE);
    frame.intervals = intervals;
}

/// What a camera may answer to a probe, so that libuvc, or this machine, could not bear it.
TEST(Stream, AnImpossibleOfferIsRefused)
{
    constexpr uint8_t kProbe = 1; // selector
    constexpr size_t kFrameIndex = 3, kFrameBytes = 18, kPayloadBytes = 22;
    struct {
        const char* what;
        size_t place;
        std::vector<uint8_t> bytes;
        int32_t rv;
        const char* message;
    } const cases[] = {
        {"no payload", kPayloadBytes, {0, 0, 0, 0}, UVC_ERROR_INVALID_MODE, "impossible"},
        {"8 MiB", kPayloadBytes, {0, 0, 0x80, 0}, UVC_ERROR_NO_MEM, "usbfs_memory_mb"},
        {"4 GiB", kPayloadBytes, {0xFF, 0xFF, 0xFF, 0xFF}, UVC_ERROR_NO_MEM, "usbfs_memory_mb"},
        {"huge frames", kFrameBytes, {0, 0, 0, 0xFF}, UVC_ERROR_INVALID_MODE, "impossible"},
        {"another size", kFrameIndex, {2}, UVC_ERROR_INVALID_MODE, "uvc_probe_stream_ctrl"},
    };
    for (const auto& c : cases) {
        TightCamera camera{"rowan-spi", 16};
        NyDevice* device = camera.device();
        std::vector<uint8_t> offer(26);
        offer[2] = offer[kFrameIndex] = 1;
        offer[kFrameBytes + 2] = 0x10;
        offer[kPayloadBytes + 1] = 0x20;
        std::copy(c.bytes.begin(), c.bytes.end(), offer.begin() + static_cast<int>(c.place));
        camera.answer(UVC_GET_CUR, kProbe, offer);
        NyStream* stream = nullptr;
        const NyStreamRequest request = yuyv(320, 240);
        EXPECT_EQ(nyxus_stream_start(device, &request, nullptr, nullptr, &stream), c.rv) << c.what;
        EXPECT_NE(std::string(nyxus_errmsg).find(c.message), std::string::npos) << nyxus_errmsg;
        VideoStreamParam param = {0, 320, 240, 0, nullptr};
        if (c.place == kPayloadBytes) { // published functions ask for a size of their own
            EXPECT_GE(startVideoStream(
                          device, [](uvc_frame_t*, VideoStreamParam*) {}, &param),
                      0);
            stopVideoStream(device);
        }
        camera.heal();
        stream = start(device, request);
        EXPECT_TRUE(take_frames(stream, 1)) << c.what;
        nyxus_stream_free(stream);
    }
}

/// Another program, or the kernel's driver, may have the video interface then.
TEST(Stream, AFailedStartGivesTheVideoInterfaceBack)
{
    constexpr uint8_t kProbe = 1, kCommit = 2; // selectors
    const NyStreamRequest request = yuyv(320, 240);
    VideoStreamParam param = {0, 320, 240, 0, nullptr};
    NyStream* stream = nullptr;
    const std::function<int32_t(NyDevice*)> published = [&](NyDevice* device) {
        return startVideoStream(
            device, [](uvc_frame_t*, VideoStreamParam*) {}, &param);
    };
    const std::function<int32_t(NyDevice*)> snapshot = [&](NyDevice* device) {
        return startVideoStream_snapshot(device, nullptr, &param);
    };
    const std::function<int32_t(NyDevice*)> any_format = [&](NyDevice* device) {
        return nyxus_stream_start(device, &request, nullptr, nullptr, &stream);
    };
    const struct {
        const char* what;
        const std::function<int32_t(NyDevice*)>& start;
        uint8_t request, selector; ///< that the camera refuses
    } cases[] = {
        {"published", published, UVC_SET_CUR, kCommit},
        {"snapshot", snapshot, UVC_SET_CUR, kCommit},
        {"any format", any_format, UVC_SET_CUR, kCommit},
        {"any format, no offer", any_format, UVC_GET_CUR, kProbe},
    };
    for (const char* model : {"rowan-spi", "rowan-iso"}) {
        for (const auto& c : cases) {
            Camera camera{model, Time::kReal};
            NyDevice* device = camera.device();
            libusb_device_handle* other = nullptr;
            ASSERT_EQ(libusb_open(camera.usb_device(), &other), 0);
            camera.fail(c.request, c.selector, sim::Fault::stall());
            EXPECT_LT(c.start(device), 0) << model << ' ' << c.what;
            EXPECT_EQ(libusb_claim_interface(other, 1), 0) << model << ' ' << c.what;
            libusb_close(other);

            camera.heal();
            EXPECT_EQ(snapshot(device), 0) << model << ' ' << c.what;
            stopVideoStream(device);
        }
    }
}

TEST(Stream, AWaitEndsInTimeAndWhenTheStreamIsStopped)
{
    Camera camera{"rowan-spi", Time::kReal};
    camera.sim().set_frame_fault([](uint64_t) { return sim::FrameFault::error_bit(); });
    NyStream* stream = start(camera.device(), yuyv(320, 240));
    NyStreamFrame frame;
    EXPECT_EQ(nyxus_stream_next(stream, 0, &frame), UVC_ERROR_TIMEOUT);
    EXPECT_EQ(nyxus_stream_next(stream, 30, &frame), UVC_ERROR_TIMEOUT);
    int32_t ended = 0;
    std::thread waiter([&] { ended = nyxus_stream_next(stream, kPatience_ms, &frame); });
    uint8_t flip = 0;
    EXPECT_EQ(XuGetFlip(camera.device(), &flip), 0) << "beside the wait";
    nyxus_stream_stop(stream);
    waiter.join();
    EXPECT_EQ(ended, UVC_ERROR_INTERRUPTED);
    EXPECT_EQ(nyxus_stream_next(stream, kPatience_ms, &frame), UVC_ERROR_INTERRUPTED);
    nyxus_stream_free(stream);
}

TEST(Stream, IncompleteFramesAreDroppedAndCounted)
{
    Camera camera{"rowan-spi", Time::kReal};
    camera.sim().set_frame_fault([](uint64_t ordinal) {
        return ordinal % 2 == 0 ? sim::FrameFault::truncated(1000) : sim::FrameFault::none();
    });
    NyStream* stream = start(camera.device(), yuyv(320, 240));
    NyStreamStatus status = {};
    for (int frame = 0; frame < 100 && status.incomplete < 3; ++frame) {
        ASSERT_TRUE(take_frames(stream, 1)); // a busy host loses some of either kind
        nyxus_stream_status(stream, &status);
    }
    EXPECT_GE(status.incomplete, 3u);
    nyxus_stream_free(stream);
}

TEST(Stream, TheOldestFramesGoWhenNobodyTakesThem)
{
    Camera camera{"rowan-spi", Time::kReal};
    camera.sim().set_pacing(sim::Pacing::kFlatOut);
    NyStream* stream = start(camera.device(), yuyv(320, 240));
    NyStreamFrame first = {};
    ASSERT_EQ(nyxus_stream_next(stream, kPatience_ms, &first), 0);
    const std::vector<uint8_t> kept(first.data, first.data + first.size);
    NyStreamStatus before = {};
    nyxus_stream_status(stream, &before);
    NyStreamStatus status = {};
    while (status.frames < before.frames + 20)
        nyxus_stream_status(stream, &status);
    EXPECT_GE(status.late, 16u);
    EXPECT_TRUE(std::equal(kept.begin(), kept.end(), first.data)) << "until the next one is taken";
    NyStreamFrame next = {};
    ASSERT_EQ(nyxus_stream_next(stream, 0, &next), 0);
    EXPECT_GT(next.sequence, first.sequence + 10);
    nyxus_stream_free(stream);
}

TEST(Stream, ACameraHasOneStreamWhoeverStartedIt)
{
    Camera camera{"rowan-spi", Time::kReal};
    NyDevice* device = camera.device();
    const NyStreamRequest request = yuyv(320, 240);
    VideoStreamParam param = {0, 320, 240, 0, nullptr};
    const auto ignore = [](uvc_frame_t*, VideoStreamParam*) {};

    NyStream* stream = start(device, request);
    NyStream* second = nullptr;
    EXPECT_EQ(nyxus_stream_start(device, &request, nullptr, nullptr, &second), UVC_ERROR_BUSY);
    EXPECT_EQ(startVideoStream(device, ignore, &param), UVC_ERROR_BUSY);
    EXPECT_TRUE(take_frames(stream, 2)) << "it goes on";
    stopVideoStream(device);
    NyStreamFrame frame;
    EXPECT_EQ(nyxus_stream_next(stream, 0, &frame), UVC_ERROR_INTERRUPTED);
    nyxus_stream_stop(stream);

    ASSERT_EQ(startVideoStream(device, ignore, &param), 0);
    EXPECT_EQ(nyxus_stream_start(device, &request, nullptr, nullptr, &second), UVC_ERROR_BUSY);
    nyxus_stream_free(stream); // long ended: the other one goes on
    EXPECT_TRUE(camera.sim().stream().streaming);
    stopVideoStream(device);

    VideoStreamParam unknown = {0, 1, 1, 0, nullptr};
    EXPECT_LT(startVideoStream(device, ignore, &unknown), 0); // and it is not stopped
    stream = start(device, request);
    EXPECT_TRUE(take_frames(stream, 1));
    camera.remove(); // its stream ends with it
    EXPECT_EQ(nyxus_stream_next(stream, 0, &frame), UVC_ERROR_INTERRUPTED);
    nyxus_stream_free(stream);
    nyxus_stream_free(nullptr);
}

/// Sizes whose transfers fit into the kernel's memory, and such that do not.
TEST(Stream, TheKernelsMemoryIsEnoughForEverySize)
{
    const struct {
        const char* model;
        unsigned limit_MiB;
        NyStreamRequest request;
        uint32_t payload_bytes; // 0: the camera's packets
    } cases[] = {
        {"rowan-spi", 0, yuyv(640, 480), 614412},
        {"rowan-spi", 16, yuyv(320, 240), 19456}, // an eighth of 16 MiB
        {"rowan-spi", 16, yuyv(1280, 720), 19456},
        {"rowan-spi", 1, yuyv(640, 480), 4096},
        {kMjpegCamera, 16, {NYXUS_FOURCC_MJPEG, 1920, 1080, 0}, 16384}, // its own offer
        {"rowan-iso", 16, yuyv(640, 480), 0},
        {"rowan-iso", 1, yuyv(640, 480), 0}, // ten of a hundred transfers
    };
    for (const auto& c : cases) {
        TightCamera camera{c.model, c.limit_MiB};
        NyStream* stream = start(camera.device(), c.request);
        ASSERT_NE(stream, nullptr) << c.model;
        EXPECT_TRUE(take_frames(stream, 2)) << c.model << " " << c.limit_MiB;
        NyStreamStatus status = {};
        nyxus_stream_status(stream, &status);
        if (c.payload_bytes != 0) {
            EXPECT_EQ(status.payload_bytes, c.payload_bytes) << c.model << " " << c.limit_MiB;
        }
        nyxus_stream_free(stream);
    }
}

class StreamDeathTest : public testing::Test {
protected:
    StreamDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

/// The published functions ask for whole frames where these fit, and libuvc's own way would hang
/// where they do not: each in a process of its own.
TEST_F(StreamDeathTest, PublishedStreamsEndUnderTheKernelsLimit)
{
    constexpr uint32_t kMostPayload = (16 << 20) / 100;
    const struct {
        const char* model;
        uint32_t width, height;
        bool is_as_published;
    } cases[] = {
        {"rowan-spi", 320, 240, true},
        {"rowan-spi", 640, 480, false},
        {"rowan-spi", 1280, 720, false},
        {"rowan-iso", 640, 480, false},
    };
    for (const auto& c : cases) {
        const auto body = [&c] {
            TightCamera camera{c.model, 16};
            NyDevice* device = camera.device();
            for (int run = 0; run < 3; ++run) {
                VideoStreamParam param = {0, c.width, c.height, 0, nullptr};
                if (startVideoStream_snapshot(device, nullptr, &param) != 0)
                    return 1;
                const uint32_t payload = device->stream_ctrl.dwMaxPayloadTransferSize;
                if (payload > kMostPayload ||
                    (payload == c.width * c.height * 2 + 12) != c.is_as_published)
                    return 2;
                stopVideoStream(device);
                if (device->device_gone != 0)
                    return 3; // given up
            }
            return 0;
        };
        EXPECT_EXIT(run_bounded(body), testing::ExitedWithCode(0), "") << c.model << c.width;
    }
}

/// The first camera has all of the kernel's memory but a little.
TEST_F(StreamDeathTest, ASecondCameraStreamsBesideAGreedyOne)
{
    const struct {
        const char* model;
        NyStreamRequest request;
    } cases[] = {
        {"rowan-spi", yuyv(640, 480)},
        {"rowan-iso", yuyv(640, 480)},
        {kMjpegCamera, {NYXUS_FOURCC_MJPEG, 1280, 720, 0}},
    };
    for (const auto& c : cases) {
        const auto body = [&c] {
            TightCamera camera{"rowan-spi", 16};
            VideoStreamParam param = {0, 320, 240, 0, nullptr};
            NyDevice* greedy = camera.device();
            if (startVideoStream_snapshot(greedy, nullptr, &param) != 0)
                return 1;
            sim::PluggedCamera& other = camera.bed().plug(TightCamera::early(c.model));
            NyDevice* device = Camera::create(camera.usb_device_of(other));
            for (int run = 0; run < 3; ++run) {
                NyStream* stream = start(device, c.request);
                if (stream == nullptr || !take_frames(stream, 2))
                    return 2;
                nyxus_stream_free(stream);
                if (device->device_gone != 0)
                    return 3;
            }
            stopVideoStream(greedy);
            DEV_DeleteObject(device);
            return greedy->device_gone != 0 ? 4 : 0;
        };
        EXPECT_EXIT(run_bounded(body), testing::ExitedWithCode(0), "") << c.model;
    }
}

TEST_F(StreamDeathTest, ACameraThatGoesEndsItsStreamInEveryState)
{
    enum State { kFreed, kDeletedFirst, kNeverFreed, kRestarted, kSilent };
    for (const sim::Announce announce : {sim::Announce::kYes, sim::Announce::kNo}) {
        for (const State state : {kFreed, kDeletedFirst, kNeverFreed, kRestarted, kSilent}) {
            const auto body = [=] {
                Camera camera{"rowan-spi", Time::kReal};
                NyDevice* device = camera.device();
                NyStream* stream = start(device, yuyv(320, 240));
                if (state != kSilent && !take_frames(stream, 2))
                    return 1;
                camera.bed().unplug(camera.sim(), announce);
                NyStreamFrame frame;
                int32_t rv = 0;
                while (rv == 0) // those that had come are there
                    rv = nyxus_stream_next(stream, kPatience_ms, &frame);
                if (rv != UVC_ERROR_NO_DEVICE)
                    return 2;
                if (state == kFreed || state == kRestarted)
                    nyxus_stream_free(stream);
                NyStream* second = nullptr;
                const NyStreamRequest request = yuyv(320, 240);
                if (state == kRestarted &&
                    nyxus_stream_start(device, &request, nullptr, nullptr, &second) == 0)
                    return 3;
                camera.remove();
                if (state == kDeletedFirst || state == kSilent)
                    nyxus_stream_free(stream);
                return 0;
            };
            EXPECT_EXIT(run_bounded(body), testing::ExitedWithCode(0), "") << state;
        }
    }
}
