// SPDX-License-Identifier: Apache-2.0
// Video through the real libuvc: callback streams, snapshots, cameras that go away.
#include <gtest/gtest.h>

#include <unistd.h>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>

#include "chip/picture.h"
#include "support/camera.h"
#include "support/run_bounded.h"
#include "support/script.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kPatience{60};

/// What the frame callback saw.
class Received {
public:
    static void on_frame(uvc_frame_t* frame, VideoStreamParam* param)
    {
        instance->add(*frame, param);
    }

    Received() { instance = this; }
    ~Received() { instance = nullptr; }
    Received(const Received&) = delete;
    Received& operator=(const Received&) = delete;

    bool wait_for(size_t count)
    {
        std::unique_lock lock(mutex_);
        return change_.wait_for(lock, kPatience, [&] { return numbers_.size() >= count; });
    }
    std::vector<uint32_t> numbers()
    {
        const std::lock_guard lock(mutex_);
        return numbers_;
    }
    bool all_complete()
    {
        const std::lock_guard lock(mutex_);
        return all_complete_;
    }
    std::vector<uint8_t> last()
    {
        const std::lock_guard lock(mutex_);
        return last_;
    }
    VideoStreamParam* param() const { return param_; }

private:
    void add(const uvc_frame_t& frame, VideoStreamParam* param)
    {
        const std::lock_guard lock(mutex_);
        const auto* data = static_cast<const uint8_t*>(frame.data);
        last_.assign(data, data + frame.data_bytes);
        all_complete_ = all_complete_ && frame.data_bytes == param->width * param->height * 2;
        const auto number =
            sim::read_frame_number(frame.width, frame.height, last_, flipped_, mirrored_);
        numbers_.push_back(number.value_or(UINT32_MAX));
        param_ = param;
        change_.notify_all();
    }

    static inline Received* instance = nullptr;
    std::mutex mutex_;
    std::condition_variable change_;
    std::vector<uint32_t> numbers_;
    std::vector<uint8_t> last_;
    std::atomic<VideoStreamParam*> param_ = nullptr;
    bool all_complete_ = true;
    bool flipped_ = false;
    bool mirrored_ = false;
};

VideoStreamParam size_of(uint32_t width, uint32_t height)
{
    return {0, width, height, 30, nullptr};
}

} // namespace

TEST(Video, CompleteFramesArriveByCallback)
{
    const struct {
        std::string_view model;
        uint32_t width, height;
    } cases[] = {
        {models::kRowan, 320, 240},
        {models::kRowan, 640, 480},
        {"rowan-iso", 320, 240},
    };
    for (const auto& c : cases) {
        Camera camera{c.model, Time::kReal};
        NyDevice* device = camera.device();
        Received received;
        VideoStreamParam param = size_of(c.width, c.height);
        ASSERT_GE(startVideoStream(device, &Received::on_frame, &param), 0) << c.model;
        EXPECT_TRUE(received.wait_for(4)) << c.model << " " << c.width;
        stopVideoStream(device);
        stopVideoStream(device); // harmless
        EXPECT_TRUE(received.all_complete());
        EXPECT_EQ(received.param(), &param);
        const auto numbers = received.numbers();
        for (size_t i = 1; i < numbers.size(); ++i)
            EXPECT_GT(numbers[i], numbers[i - 1]) << c.model;
        EXPECT_LT(numbers.back(), 10000u) << "every frame carried its number";
        if (c.model == models::kRowan) {
            EXPECT_EQ(device->stream_ctrl.dwMaxPayloadTransferSize, c.width * c.height * 2 + 12);
        }
    }
}

TEST(Video, ASizeThatTheCameraLacksIsRefused)
{
    Camera camera{models::kRowan, Time::kReal};
    Received received;
    VideoStreamParam param = size_of(123, 45);
    EXPECT_LT(startVideoStream(camera.device(), &Received::on_frame, &param), 0);
    stopVideoStream(camera.device());
    EXPECT_LT(startVideoStream_snapshot(camera.device(), nullptr, &param), 0);
    EXPECT_NE(camera.printed().find("get stream ctrl"), std::string::npos);

    NyDevice closed = {};
    EXPECT_EQ(startVideoStream(&closed, &Received::on_frame, &param), UVC_ERROR_NO_DEVICE);
    stopVideoStream(&closed);
    EXPECT_EQ(startVideoStream(camera.device(), nullptr, &param), -1036);
}

TEST(Video, ASecondStartIsRefusedAndTheStreamGoesOn)
{
    Camera camera{models::kRowan, Time::kReal};
    Received received;
    VideoStreamParam first = size_of(320, 240);
    VideoStreamParam second = size_of(320, 240);
    ASSERT_EQ(startVideoStream(camera.device(), Received::on_frame, &first), 0);
    EXPECT_EQ(startVideoStream(camera.device(), Received::on_frame, &second), UVC_ERROR_BUSY);
    EXPECT_TRUE(received.wait_for(received.numbers().size() + 2));
    EXPECT_EQ(received.param(), &first);
    stopVideoStream(camera.device());
    const size_t stopped = received.numbers().size();
    ASSERT_EQ(startVideoStream(camera.device(), Received::on_frame, &second), 0);
    EXPECT_TRUE(received.wait_for(stopped + 1));
    EXPECT_EQ(received.param(), &second);
    stopVideoStream(camera.device());
}

TEST(Video, FlipAndTextChangeThePicture)
{
    Camera camera{models::kRowan, Time::kReal};
    NyDevice* device = camera.device();
    VideoStreamParam param = size_of(320, 240);
    const auto take = [&] {
        EXPECT_EQ(startVideoStream_snapshot(device, nullptr, &param), 0);
        const auto* data = static_cast<const uint8_t*>(param.frame->data);
        std::vector<uint8_t> picture(data, data + param.frame->data_bytes);
        stopVideoStream(device);
        return picture;
    };
    const auto number = [](const std::vector<uint8_t>& picture, bool flip, bool mirror) {
        return sim::read_frame_number(320, 240, picture, flip, mirror).has_value();
    };
    const auto plain = take();
    EXPECT_TRUE(number(plain, false, false));
    ASSERT_EQ(XuSetFlip(device, 1), 0);
    EXPECT_TRUE(number(take(), true, false));
    ASSERT_EQ(XuSetMirror(device, 1), 0);
    EXPECT_TRUE(number(take(), true, true));
    ASSERT_EQ(XuSetFlip(device, 0), 0);
    ASSERT_EQ(XuSetMirror(device, 0), 0);

    const uint8_t text[16] = {'N', 'Y', 'X', 'U', 'S'};
    ASSERT_EQ(XU_OsdSetString(device, 0, text), 0);
    ASSERT_EQ(XU_OsdSetEnable(device, 1), 0);
    const auto with_text = take();
    const size_t rows = 240 * 3 / 4; // the counter's cells lie above, the text does not cover all
    size_t changed = 0;
    for (size_t i = 320 * 2 * 8; i < rows * 320 * 2; ++i)
        changed += with_text[i] != plain[i];
    EXPECT_GT(changed, 100u) << "text";
    EXPECT_LT(changed, with_text.size() / 2) << "but not everywhere";
}

TEST(Video, ATruncatedFrameNeverReachesTheCallback)
{
    Camera camera{models::kRowan, Time::kReal};
    NyDevice* device = camera.device();
    camera.sim().set_frame_fault([](uint64_t ordinal) {
        return ordinal % 2 == 1 ? sim::FrameFault::truncated(1000) : sim::FrameFault::none();
    });
    Received received;
    VideoStreamParam param = size_of(320, 240);
    ASSERT_GE(startVideoStream(device, &Received::on_frame, &param), 0);
    EXPECT_TRUE(received.wait_for(4));
    stopVideoStream(device);
    EXPECT_TRUE(received.all_complete());
    EXPECT_GE(camera.sim().stream().frames_sent, 7u) << "faulty ones were sent, too";
}

TEST(Video, ASnapshotTriesAgainAfterABadFrame)
{
    struct {
        const char* what;
        sim::FrameFault fault;
        uint64_t bad_frames;
    } const cases[] = {
        {"an incomplete frame", sim::FrameFault::truncated(1000), 1},
        {"no frame at all for a second", sim::FrameFault::error_bit(), 30},
    };
    for (const auto& [what, fault, bad_frames] : cases) {
        Camera camera{models::kRowan, Time::kReal};
        NyDevice* device = camera.device();
        camera.sim().set_frame_fault([fault = fault, bad = bad_frames](uint64_t ordinal) {
            return ordinal < bad ? fault : sim::FrameFault::none();
        });
        VideoStreamParam param = size_of(320, 240);
        camera.listen();
        ASSERT_EQ(startVideoStream_snapshot(device, nullptr, &param), 0) << what;
        ASSERT_NE(param.frame, nullptr) << what;
        EXPECT_EQ(param.frame->data_bytes, 320u * 240 * 2) << what;
        const std::vector<std::string> wire = camera.wire();
        ASSERT_FALSE(wire.empty()) << what;
        for (const std::string& retrigger : wire)
            EXPECT_EQ(retrigger, "SET 06: 81 0B 78 03") << what;
        stopVideoStream(device);
    }
}

class VideoDeathTest : public testing::Test {
protected:
    VideoDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(VideoDeathTest, ACameraThatGoesWhileStreamingNeitherHangsNorAborts)
{
    for (const sim::Announce announce : {sim::Announce::kYes, sim::Announce::kNo}) {
        const auto body = [&] {
            Camera camera{models::kRowan, Time::kReal};
            NyDevice* device = camera.device();
            Received received;
            VideoStreamParam param = size_of(320, 240);
            if (startVideoStream(device, &Received::on_frame, &param) < 0)
                return 1;
            if (!received.wait_for(2))
                return 2;
            camera.bed().unplug(camera.sim(), announce);
            uint8_t flip = 0;
            if (XuGetFlip(device, &flip) != -16388)
                return 3;
            stopVideoStream(device);
            camera.remove();
            return 0;
        };
        EXPECT_EXIT(run_bounded(body), testing::ExitedWithCode(0), "");
    }
}

TEST_F(VideoDeathTest, ASnapshotOfACameraThatGoesEnds)
{
    const auto body = [] {
        Camera camera{models::kRowan, Time::kReal};
        NyDevice* device = camera.device();
        camera.sim().set_frame_fault([](uint64_t) { return sim::FrameFault::unplug_silent(); });
        VideoStreamParam param = size_of(320, 240);
        if (startVideoStream_snapshot(device, nullptr, &param) != UVC_ERROR_NO_DEVICE)
            return 1;
        camera.remove();
        return 0;
    };
    EXPECT_EXIT(run_bounded(body), testing::ExitedWithCode(0), "");
}
