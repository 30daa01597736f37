// SPDX-License-Identifier: Apache-2.0
// Video of the simulated camera, through unmodified libuvc in the same process.
#include "bus/bed.h"
#include "camera_events.h"
#include "cameras/shipped.h"
#include "chip/picture.h"
#include "usb/descriptors.h"

#include <gtest/gtest.h>
#include <libusb.h>
#include <libuvc/libuvc.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <jpeglib.h>

namespace {

using namespace std::chrono_literals;
using sim::FrameFault;

constexpr std::chrono::seconds kPatience(60);

/// The brightness of a JPEG file's pixels as YUYV; empty unless it has this size.
std::vector<uint8_t> decode(const uvc_frame_t& frame)
{
    jpeg_decompress_struct decoder{};
    jpeg_error_mgr errors{};
    decoder.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&decoder);
    jpeg_mem_src(&decoder, static_cast<const unsigned char*>(frame.data), frame.data_bytes);
    jpeg_read_header(&decoder, TRUE);
    decoder.out_color_space = JCS_GRAYSCALE;
    jpeg_start_decompress(&decoder);
    std::vector<uint8_t> yuyv;
    std::vector<uint8_t> row(decoder.output_width);
    JSAMPROW rows[] = {row.data()};
    while (decoder.output_scanline < decoder.output_height) {
        jpeg_read_scanlines(&decoder, rows, 1);
        for (const uint8_t luma : row)
            yuyv.insert(yuyv.end(), {luma, 128});
    }
    jpeg_finish_decompress(&decoder);
    const bool is_whole = errors.num_warnings == 0 && decoder.output_width == frame.width &&
                          decoder.output_height == frame.height;
    jpeg_destroy_decompress(&decoder);
    return is_whole ? yuyv : std::vector<uint8_t>();
}

/// What the callback was given.
class Frames {
public:
    static void on_frame(uvc_frame_t* frame, void* self)
    {
        static_cast<Frames*>(self)->add(*frame);
    }

    bool wait_for(size_t count)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return sizes_.size() >= count; });
    }
    bool wait_for_number(uint32_t number)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience,
                                 [&] { return !numbers_.empty() && numbers_.back() == number; });
    }
    std::vector<size_t> sizes()
    {
        const std::lock_guard lock(mutex_);
        return sizes_;
    }
    std::vector<uint32_t> numbers()
    {
        const std::lock_guard lock(mutex_);
        return numbers_;
    }

private:
    void add(const uvc_frame_t& frame)
    {
        const std::lock_guard lock(mutex_);
        const auto* bytes = static_cast<const uint8_t*>(frame.data);
        const std::vector<uint8_t> yuyv = frame.frame_format == UVC_FRAME_FORMAT_MJPEG
                                              ? decode(frame)
                                              : std::vector(bytes, bytes + frame.data_bytes);
        sizes_.push_back(yuyv.size());
        if (const auto number =
                sim::read_frame_number(frame.width, frame.height, yuyv, false, false))
            numbers_.push_back(*number);
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<size_t> sizes_;
    std::vector<uint32_t> numbers_;
};

/// A camera opened with libuvc.
class Viewer {
public:
    explicit Viewer(sim::PluggedCamera& camera)
        : has_payloads_(camera.model().streams_isochronously ||
                        camera.model().bulk_payload_bytes != 0)
    {
        EXPECT_EQ(uvc_init(&context_, nullptr), 0);
        EXPECT_EQ(uvc_find_device(context_, &device_, sim::kVendorId, 0, nullptr), 0);
        EXPECT_EQ(uvc_open(device_, &handle_), 0);
    }
    ~Viewer()
    {
        if (!abandoned_) {
            uvc_close(handle_);
            uvc_unref_device(device_);
            uvc_exit(context_);
        }
    }
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    /// Payloads: 0 means a whole frame each, where the camera has no wish.
    int start(int width, int height, int fps, uvc_frame_callback_t* callback, void* user,
              uint32_t payload_bytes = 0, uvc_frame_format format = UVC_FRAME_FORMAT_YUYV)
    {
        uvc_stream_ctrl_t control{};
        const int status =
            uvc_get_stream_ctrl_format_size(handle_, &control, format, width, height, fps);
        if (status < 0)
            return status;
        if (!has_payloads_) {
            const uint32_t whole = control.dwMaxVideoFrameSize + sim::kPayloadHeaderBytes;
            control.dwMaxPayloadTransferSize = payload_bytes != 0 ? payload_bytes : whole;
        }
        return uvc_start_streaming(handle_, &control, callback, user, 0);
    }
    int start(Frames& frames) { return start(320, 240, 30, Frames::on_frame, &frames); }
    void stop() { uvc_stop_streaming(handle_); }

    /// A camera that is gone must not be closed: libusb and libuvc would abort or hang.
    void abandon() { abandoned_ = true; }

private:
    bool has_payloads_;
    bool abandoned_ = false;
    uvc_context_t* context_ = nullptr;
    uvc_device_t* device_ = nullptr;
    uvc_device_handle_t* handle_ = nullptr;
};

class Streaming : public testing::TestWithParam<const char*> {
protected:
    sim::PluggedCamera& plug(const char* model = "rowan-spi")
    {
        return bed_.plug(*sim::find_model(model));
    }

    sim::RealClock clock_;
    sim::TestBed bed_{clock_};
};

void expect_increasing(const std::vector<uint32_t>& numbers)
{
    for (size_t i = 1; i < numbers.size(); ++i)
        EXPECT_GT(numbers[i], numbers[i - 1]);
}

struct Mode {
    const char* model;
    int width;
    int height;
    int fps;
    uint32_t payload_bytes;
    uvc_frame_format format = UVC_FRAME_FORMAT_YUYV;
};

void PrintTo(const Mode& mode, std::ostream* out)
{
    *out << mode.model << ' ' << mode.width << 'x' << mode.height << ' ' << mode.payload_bytes;
}

class StreamingModes : public testing::TestWithParam<Mode> {};

TEST_P(StreamingModes, FramesArriveWholeAndInOrder)
{
    constexpr size_t kFrameCount = 3;
    const Mode& mode = GetParam();
    sim::RealClock clock;
    sim::TestBed bed(clock);
    sim::PluggedCamera& camera = bed.plug(*sim::find_model(mode.model));
    camera.set_pacing(sim::Pacing::kFlatOut);
    Frames frames;
    {
        Viewer viewer(camera);
        ASSERT_EQ(viewer.start(mode.width, mode.height, mode.fps, Frames::on_frame, &frames,
                               mode.payload_bytes, mode.format),
                  0);
        EXPECT_TRUE(frames.wait_for(kFrameCount));
        EXPECT_TRUE(camera.stream().streaming);
        viewer.stop();
        EXPECT_FALSE(camera.stream().streaming);
    }
    const size_t frame_bytes = static_cast<size_t>(mode.width * mode.height) * 2;
    for (const size_t size : frames.sizes())
        EXPECT_EQ(size, frame_bytes);
    EXPECT_EQ(frames.numbers().size(), frames.sizes().size());
    expect_increasing(frames.numbers());
    EXPECT_GE(camera.stream().frames_sent, kFrameCount);
}

// Payloads of 1024 bytes and a picture of 153,600: the last one is short. With 1543 bytes, the last
// one of 512 needs an empty packet behind it.
INSTANTIATE_TEST_SUITE_P(
    All, StreamingModes,
    testing::Values(Mode{"rowan-spi", 320, 240, 30, 0}, Mode{"rowan-spi", 320, 240, 30, 1024},
                    Mode{"rowan-spi", 320, 240, 30, 1543}, Mode{"rowan-spi", 640, 480, 15, 0},
                    Mode{"rowan-spi", 1280, 720, 10, 0}, Mode{"rowan-iso", 320, 240, 30, 0},
                    Mode{"rowan-iso", 640, 480, 30, 0}, Mode{"rowan-iso", 1280, 720, 10, 0},
                    Mode{"maple-mjpeg", 640, 480, 15, 0},
                    Mode{"maple-mjpeg", 320, 240, 60, 0, UVC_FRAME_FORMAT_MJPEG},
                    Mode{"maple-mjpeg", 1920, 1080, 15, 0, UVC_FRAME_FORMAT_MJPEG},
                    Mode{"birch-webcam", 640, 360, 30, 0, UVC_FRAME_FORMAT_MJPEG},
                    Mode{"birch-webcam", 640, 360, 5, 0}, Mode{"birch-webcam", 640, 480, 30, 0},
                    Mode{"alder-studio", 1920, 1080, 10, 0},
                    Mode{"maple-iso", 640, 480, 30, 0, UVC_FRAME_FORMAT_MJPEG},
                    Mode{"maple-iso", 1920, 1080, 30, 0, UVC_FRAME_FORMAT_MJPEG}));

std::shared_ptr<const sim::Film> film_of(sim::Film::Kind kind,
                                         std::vector<std::vector<uint8_t>> frames)
{
    sim::Film film{.kind = kind, .width = 64, .height = 48, .bytes = {}, .starts = {}};
    for (const auto& frame : frames) {
        film.starts.push_back(film.bytes.size());
        film.bytes.insert(film.bytes.end(), frame.begin(), frame.end());
    }
    return std::make_shared<sim::Film>(std::move(film));
}

/// The next frame as the camera sends it: one payload.
std::vector<uint8_t> next_frame(sim::VideoStream& stream)
{
    (void)stream.take_frame();
    std::vector<uint8_t> payload(1 << 20);
    payload.resize(stream.read_transfer(payload));
    payload.erase(payload.begin(), payload.begin() + sim::kPayloadHeaderBytes);
    return payload;
}

TEST_F(Streaming, FilmsLoop)
{
    sim::CameraModel model = *sim::find_model("rowan-spi");
    const std::vector<uint8_t> grey(64 * 48 * 2, 128);
    const std::vector<uint8_t> dark(64 * 48 * 2, 60);
    const std::vector<uint8_t> jpeg = sim::encode_jpeg(64, 48, grey, sim::Levels::kFull);
    const std::vector<uint8_t> broken(jpeg.begin(), jpeg.begin() + 300);
    std::vector<uint8_t> wordy = jpeg;
    const std::vector<uint8_t> comment = {0xFF, 0xFE, 0x20, 0x00};
    wordy.insert(wordy.begin() + 2, 0x2000 + 2, 'a');
    std::ranges::copy(comment, wordy.begin() + 2);
    model.scene = film_of(sim::Film::Kind::kJpeg, {jpeg, broken, wordy});
    model.numbers_frames = false;
    const auto encoder = film_of(sim::Film::Kind::kH264, {{1, 2, 3}, {4, 5}});
    const sim::FrameSize size{64, 48, {333333}};
    sim::UsbCamera camera(model, clock_, "S1");
    sim::VideoStream& stream = camera.stream();
    const auto start = [&](sim::PixelFormat pixels,
                           std::shared_ptr<const sim::Film> film = nullptr) {
        stream.commit({pixels, size, 333333, 1 << 20, std::move(film)});
        stream.start();
    };
    start(sim::PixelFormat::kMjpeg);
    EXPECT_EQ(next_frame(stream), jpeg) << "as it is";
    EXPECT_EQ(next_frame(stream), broken) << "likewise";
    const std::vector<uint8_t> shortened = next_frame(stream);
    EXPECT_LE(shortened.size(), size.bytes()) << "hosts have no room for more";
    EXPECT_NEAR(sim::decode_jpeg(shortened).value().yuyv[0], 128, 2);
    EXPECT_EQ(next_frame(stream), jpeg);
    stream.set_picture({.brightness = -0.5});
    EXPECT_NE(next_frame(stream), broken) << "which is decoded";
    EXPECT_NEAR(sim::decode_jpeg(next_frame(stream)).value().yuyv[0], 78, 2);
    stream.set_picture({});

    start(sim::PixelFormat::kYuyv);
    for (int number = 0; number < 2; ++number) {
        EXPECT_NEAR(next_frame(stream)[0], 128, 2)
            << "of the whole picture, then of the one before";
    }

    for (int round = 0; round < 2; ++round) {
        start(sim::PixelFormat::kH264, encoder);
        EXPECT_EQ(next_frame(stream), (std::vector<uint8_t>{1, 2, 3}))
            << "each stream begins with it";
        EXPECT_EQ(next_frame(stream), (std::vector<uint8_t>{4, 5}));
        stream.drop_frame();
        EXPECT_EQ(next_frame(stream), (std::vector<uint8_t>{1, 2, 3}))
            << "an encoder leaves none out";
    }

    model.scene = film_of(sim::Film::Kind::kYuyv, {grey, dark});
    sim::UsbCamera raw(model, clock_, "S2");
    raw.stream().commit({sim::PixelFormat::kYuyv, size, 333333, 1 << 20});
    raw.stream().start();
    for (const auto& frame : {grey, dark, grey})
        EXPECT_EQ(next_frame(raw.stream()), frame);
}

TEST_F(Streaming, KeepsTimeAfterSettling)
{
    Viewer viewer(plug());
    Frames frames;
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(viewer.start(frames), 0);
    ASSERT_TRUE(frames.wait_for(1));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    ASSERT_TRUE(frames.wait_for(7));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms + 6 * 33ms);
    viewer.stop();
}

TEST_F(Streaming, TheFirstFrameComesWhenTheDescriptionSays)
{
    for (const auto& [described, delay] :
         {std::pair{std::optional<uint32_t>(), 300ms}, {0U, 0ms}, {5000U, 5000ms}}) {
        sim::CameraModel model = *sim::find_model("rowan-spi");
        model.first_frame_ms = described;
        sim::UsbCamera camera(model, clock_, "S1");
        const auto before = std::chrono::steady_clock::now();
        camera.stream().commit({sim::PixelFormat::kYuyv, model.formats[0].sizes[0], 333333, 512});
        camera.stream().start();
        const auto due = camera.stream().due().value();
        EXPECT_GE(due, before + delay);
        EXPECT_LE(due, std::chrono::steady_clock::now() + delay);
        // As when the memory for transfers is used up.
        EXPECT_EQ(camera.stream().hurry_first_frame(), !described);
        EXPECT_EQ(camera.stream().due() == due, described.has_value());
        EXPECT_FALSE(camera.stream().hurry_first_frame()) << "once is enough";
    }
}

TEST_F(Streaming, UnknownSizesAndRatesAreNotOffered)
{
    Viewer viewer(plug());
    EXPECT_EQ(viewer.start(800, 600, 30, nullptr, nullptr), UVC_ERROR_INVALID_MODE);
    EXPECT_EQ(viewer.start(1280, 720, 30, nullptr, nullptr), UVC_ERROR_INVALID_MODE);
}

INSTANTIATE_TEST_SUITE_P(Models, Streaming, testing::Values("rowan-spi", "rowan-iso"));

TEST_P(Streaming, StartsAgainAfterAStop)
{
    sim::PluggedCamera& camera = plug(GetParam());
    camera.set_pacing(sim::Pacing::kFlatOut);
    Viewer viewer(camera);
    Frames frames;
    for (size_t round = 1; round <= 3; ++round) {
        const size_t before = frames.sizes().size();
        ASSERT_EQ(viewer.start(frames), 0);
        EXPECT_TRUE(frames.wait_for(before + 3));
        viewer.stop();
    }
    expect_increasing(frames.numbers());
}

TEST_P(Streaming, FaultyFramesAreSeenAsSuch)
{
    constexpr uint32_t kFrameBytes = 320 * 240 * 2;
    sim::PluggedCamera& camera = plug(GetParam());
    camera.set_pacing(sim::Pacing::kFlatOut);
    camera.set_frame_fault([](uint64_t ordinal) {
        switch (ordinal) {
            case 0:
                return FrameFault::truncated(1000);
            case 1:
                return FrameFault::error_bit();
            case 2:
                return FrameFault::truncated(kFrameBytes - 2);
            default:
                return ordinal > 4 ? FrameFault::stall() : FrameFault::none();
        }
    });
    Viewer viewer(camera);
    Frames frames;
    ASSERT_EQ(viewer.start(frames), 0);
    EXPECT_TRUE(frames.wait_for_number(4));
    viewer.stop();
    EXPECT_EQ(camera.stream().frames_sent, 5);

    // libuvc keeps only the latest frame for a callback that is late, so some may be missing.
    const std::vector<size_t> sizes = frames.sizes();
    ASSERT_FALSE(sizes.empty());
    EXPECT_LE(sizes.size(), 4);
    EXPECT_EQ(sizes.back(), kFrameBytes);
    for (const size_t size : sizes)
        EXPECT_TRUE(size == 1000 || size == kFrameBytes - 2 || size == kFrameBytes) << size;
}

TEST_F(Streaming, FramesWithoutRoomAreDroppedAndCounted)
{
    sim::PluggedCamera& camera = plug();
    libusb_context* context = nullptr;
    ASSERT_EQ(libusb_init(&context), 0);
    libusb_device_handle* handle =
        libusb_open_device_with_vid_pid(context, sim::kVendorId, camera.model().usb_product_id);
    ASSERT_NE(handle, nullptr);
    ASSERT_EQ(libusb_claim_interface(handle, sim::kVideoInterface), 0);
    std::vector<uint8_t> record(26);
    record[3] = 1;
    ASSERT_EQ(libusb_control_transfer(handle, 0x21, 0x01, 0x0200, 1, record.data(), 26, 1000), 26);

    // One short read begins the stream; afterwards nobody fetches the rest of the frame.
    std::vector<uint8_t> part(512);
    int moved = 0;
    EXPECT_EQ(libusb_bulk_transfer(handle, sim::kVideoEndpoint, part.data(), 512, &moved, 3000), 0);
    EXPECT_EQ(moved, 512);
    EXPECT_EQ(part[0], sim::kPayloadHeaderBytes);
    EXPECT_TRUE(sim::CameraEvents(camera).wait_for(
        [](const auto& seen) { return seen.video.frames_dropped >= 2; }));
    EXPECT_EQ(camera.stream().frames_sent, 0);

    // The picture goes on where the host left it, and a room of half a packet is too small.
    EXPECT_EQ(libusb_bulk_transfer(handle, sim::kVideoEndpoint, part.data(), 100, &moved, 1000),
              LIBUSB_ERROR_OVERFLOW);
    EXPECT_EQ(libusb_clear_halt(handle, sim::kVideoEndpoint), 0);
    EXPECT_FALSE(camera.stream().streaming);
    libusb_close(handle);
    libusb_exit(context);
}

TEST_P(Streaming, PolledFramesArrive)
{
    sim::PluggedCamera& camera = plug(GetParam());
    uvc_context_t* uvc = nullptr;
    uvc_device_t* device = nullptr;
    uvc_device_handle_t* handle = nullptr;
    ASSERT_EQ(uvc_init(&uvc, nullptr), 0);
    ASSERT_EQ(uvc_find_device(uvc, &device, sim::kVendorId, 0, nullptr), 0);
    ASSERT_EQ(uvc_open(device, &handle), 0);
    uvc_stream_ctrl_t control{};
    ASSERT_EQ(
        uvc_get_stream_ctrl_format_size(handle, &control, UVC_FRAME_FORMAT_YUYV, 640, 480, 30), 0);
    uvc_stream_handle_t* stream = nullptr;
    ASSERT_EQ(uvc_stream_open_ctrl(handle, &stream, &control), 0);
    ASSERT_EQ(uvc_stream_start(stream, nullptr, nullptr, 0), 0);
    std::vector<uint32_t> numbers;
    for (int i = 0; i < 3; ++i) {
        uvc_frame_t* frame = nullptr;
        ASSERT_EQ(uvc_stream_get_frame(stream, &frame, 3'000'000), 0);
        ASSERT_NE(frame, nullptr);
        ASSERT_EQ(frame->data_bytes, 640 * 480 * 2);
        const auto* bytes = static_cast<const uint8_t*>(frame->data);
        numbers.push_back(
            sim::read_frame_number(640, 480, {bytes, frame->data_bytes}, false, false).value_or(0));
    }
    expect_increasing(numbers);
    uvc_stream_close(stream);
    EXPECT_FALSE(camera.stream().streaming);
    uvc_close(handle);
    uvc_unref_device(device);
    uvc_exit(uvc);
}

// In a child process: libusb and libuvc may abort it when a camera goes.
class StreamingDeathTest : public Streaming {
protected:
    StreamingDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    [[noreturn]] void stream_until_gone(FrameFault fault)
    {
        sim::PluggedCamera& camera = plug(GetParam());
        camera.set_pacing(sim::Pacing::kFlatOut);
        sim::CameraEvents events(camera);
        Frames frames;
        Viewer viewer(camera);
        viewer.abandon();
        if (viewer.start(frames) != 0 || !frames.wait_for(2))
            _exit(1);
        camera.set_frame_fault([fault](uint64_t) { return fault; });
        const bool ended = events.wait_for([](const auto& seen) {
            return seen.departures == 1 && !seen.video.streaming && seen.transfers_under_way == 0;
        });
        _exit(ended ? 0 : 2);
    }
};

INSTANTIATE_TEST_SUITE_P(Models, StreamingDeathTest, testing::Values("rowan-spi", "rowan-iso"));

TEST_P(StreamingDeathTest, AnUnplugEndsTheStream)
{
    EXPECT_EXIT(stream_until_gone(FrameFault::unplug_silent()), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(stream_until_gone(FrameFault::unplug_announced()), testing::ExitedWithCode(0), "");
}

} // namespace
