// SPDX-License-Identifier: Apache-2.0
// H.264, OSD, I2C, LEDs, MJPEG gain, motion detection.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "support/bytes.h"
#include "support/camera.h"
#include "support/script.h"

namespace {

/// Setup packets of the H.264 unit since listen(): request, selector, length.
std::vector<std::array<int, 4>> h264_setups(Camera& camera)
{
    std::vector<std::array<int, 4>> found;
    for (const sim::Transfer& transfer : camera.sim().transfers()) {
        const sim::Setup setup = sim::Setup::from_wire(transfer.setup);
        if (setup.unit() == 12)
            found.push_back({setup.request_type, setup.request, setup.selector(), setup.length});
    }
    return found;
}

void answer_h264(Camera& camera, Bytes bytes)
{
    camera.sim().set_fault([=](const sim::Setup& setup, uint64_t) {
        return setup.unit() == 12 ? sim::Fault::answer(bytes) : sim::Fault::none();
    });
}

} // namespace

TEST(H264, PublishedQueriesSwapLengthAndRequest)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    answer_h264(camera, Bytes(129, 0xA5));
    uint8_t buf[16];
    H264BitrateLayers bitrate = {};
    const struct {
        std::function<int32_t()> call;
        int request, selector, length;
        int written;
    } cases[] = {
        {[&] { return H264GetRateCtrlMode(device, buf); }, 3, 0x03, 0x81, 3},
        {[&] { return H264SetRateCtrlMode(device, buf); }, 3, 0x03, 0x01, 0},
        {[&] { return H264SetNextFrameType(device, buf); }, 4, 0x09, 0x01, 0},
        {[&] { return H264GetVersion(device, buf); }, 2, 0x0A, 0x81, 2},
        {[&] { return H264Reset(device, buf); }, 2, 0x0B, 0x01, 0},
        {[&] { return H264GetQpSteps(device, buf); }, 5, 0x0F, 0x81, 5},
        {[&] { return H264SetQpSteps(device, buf); }, 5, 0x0F, 0x01, 0},
        {[&] { return H264GetBitrate(device, &bitrate); }, 10, 0x0E, 0x81, 0},
        {[&] { return H264SetBitrate(device, &bitrate); }, 10, 0x0E, 0x01, 0},
    };
    for (const auto& c : cases) {
        std::memset(buf, 0x11, sizeof buf);
        camera.listen();
        EXPECT_EQ(c.call(), 0) << c.selector;
        const auto setups = h264_setups(camera);
        ASSERT_EQ(setups.size(), 1u);
        EXPECT_EQ(setups[0], (std::array<int, 4>{0xA1, c.request, c.selector, c.length}));
        for (int i = 0; i < 16; ++i)
            EXPECT_EQ(buf[i], i < c.written ? 0xA5 : 0x11) << c.selector << " byte " << i;
    }
    EXPECT_EQ(bitrate.wLayerID, 0xA5A5);
}

TEST(H264, TheStandardOrderIsASwitch)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    answer_h264(camera, {0x34, 0x12, 1, 2, 3, 4, 5, 6, 7, 8});
    nyxus_h264_standard_order = 1;
    H264BitrateLayers bitrate = {};
    camera.listen();
    EXPECT_EQ(H264GetBitrate(device, &bitrate), 0);
    EXPECT_EQ(bitrate.wLayerID, 0x1234);
    EXPECT_EQ(bitrate.dwPeakBitrate, 0x04030201u);
    EXPECT_EQ(bitrate.dwAverageBitrate, 0x08070605u);
    EXPECT_EQ(H264SetBitrate(device, &bitrate), 0);
    nyxus_h264_standard_order = 0;
    const auto setups = h264_setups(camera);
    ASSERT_EQ(setups.size(), 2u);
    EXPECT_EQ(setups[0], (std::array<int, 4>{0xA1, 0x81, 0x0E, 10}));
    EXPECT_EQ(setups[1], (std::array<int, 4>{0x21, 0x01, 0x0E, 10}));
}

TEST(H264, SelectorsOutsideTheTableAreRefused)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    uint8_t buf[10] = {};
    for (const int selector : {0x01, 0x02, 0x0C, 0x10C}) {
        camera.listen();
        EXPECT_EQ(UvcXuCtrlQueryH264(device, selector, UVC_GET_CUR, buf), -1030);
        EXPECT_TRUE(h264_setups(camera).empty());
    }
    EXPECT_STREQ(nyxus_errmsg, "NYXuIoctl.cpp(244): <ERROR_NYXUS> Invalid H.264 selector: 0x0C");
    EXPECT_EQ(UvcXuCtrlQueryH264(device, 0x01, UVC_GET_CUR, nullptr), -1030);
    answer_h264(camera, Bytes(129, 0));
    EXPECT_EQ(UvcXuCtrlQueryH264(device, 0x10E, UVC_GET_CUR, buf), 0) << "the low byte counts";
    camera.sim().set_fault([](const sim::Setup& setup, uint64_t) {
        return setup.unit() == 12 ? sim::Fault::stall() : sim::Fault::none();
    });
    H264BitrateLayers bitrate = {1, 2, 3};
    EXPECT_EQ(H264GetBitrate(device, &bitrate), -16393);
    EXPECT_EQ(bitrate.dwPeakBitrate, 2u) << "kept on failure";
}

TEST(H264, PeriodAndFormatLiveInRegisters)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const struct {
        uint16_t period;
        Bytes bytes;
        uint16_t read;
    } cases[] = {
        {0, {0, 1, 0, 1}, 1},
        {1, {0, 1, 0, 1}, 1},
        {2, {0, 2, 0, 1}, 2},
        {0x1234, {0x12, 0x34, 0x12, 0x33}, 0x1234},
    };
    for (const auto& c : cases) {
        camera.listen();
        EXPECT_EQ(H264SetIFramePeriod(device, &c.period), 0);
        EXPECT_EQ(Script{}.reg_write(0x0D00, c.bytes).match(camera.sim().transfers()), "");
        uint16_t period = 0;
        EXPECT_EQ(H264GetIFramePeriod(device, &period), 0);
        EXPECT_EQ(period, c.read);
    }
    const struct {
        uint8_t before[2];
        uint8_t format_read;
        uint8_t set;
        uint8_t after[2];
    } formats[] = {
        {{0xFF, 0xFF}, 0, 1, {0xF7, 0xF7}},
        {{0x08, 0x08}, 0, 7, {0x00, 0x00}},
        {{0x08, 0x00}, 1, 0, {0x08, 0x08}},
        {{0x41, 0x08}, 1, 0, {0x49, 0x08}},
    };
    for (const auto& f : formats) {
        camera.sim().controller()->set_reg(0x0D0A, f.before[0]);
        camera.sim().controller()->set_reg(0x0D0B, f.before[1]);
        uint8_t format = 9;
        EXPECT_EQ(H264GetFormat(device, &format), 0);
        EXPECT_EQ(format, f.format_read);
        EXPECT_EQ(H264SetFormat(device, f.set), 0);
        EXPECT_EQ(camera.sim().controller()->reg(0x0D0A), f.after[0]);
        EXPECT_EQ(camera.sim().controller()->reg(0x0D0B), f.after[1]);
    }
}

TEST(Osd, CommandsAndRepliesHaveTheirLayout)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const OsdDatetime datetime = {{1, 2, 3, 4, 5, 6, 7, 8}};
    const OsdWindow window = {{1, 2, 3, 4, 5, 6, 7, 8, 9}};
    const OsdColor color = {{9, 8, 7, 6, 5, 4, 3, 2, 1}};
    const uint8_t text[16] = {'a', 0, 'b', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'z'};
    const struct {
        std::function<int32_t()> call;
        Bytes sent;
    } commands[] = {
        {[&] { return XU_OsdSetEnable(device, 1); }, {0x01, 1}},
        {[&] { return XU_OsdSetEnable(device, 0x100); }, {0x01, 0}},
        {[&] { return XU_OsdReset(device); }, {0x02}},
        {[&] { return XU_OsdSetDatetime(device, &datetime); }, {0x04, 1, 2, 3, 4, 5, 6, 7, 8}},
        {[&] { return XU_OsdSetString(device, 3, text); },
         {0x08, 3, 'a', 0, 'b', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'z'}},
        {[&] { return XU_OsdSetWindow(device, &window); }, {0x10, 1, 2, 3, 4, 5, 6, 7, 8, 9}},
        {[&] { return XU_OsdSetColor(device, &color); }, {0x20, 9, 8, 7, 6, 5, 4, 3, 2, 1}},
        {[&] { return XU_OsdSetHeader(device); }, {0x40}},
    };
    for (const auto& c : commands) {
        camera.sim().set_fault({});
        camera.listen();
        EXPECT_EQ(c.call(), 0) << int{c.sent[0]};
        Bytes whole = c.sent;
        whole.resize(18);
        EXPECT_EQ(camera.sim().transfers().at(0).data, whole);
    }

    Bytes reply(18);
    for (size_t i = 0; i < reply.size(); ++i)
        reply[i] = static_cast<uint8_t>(0x20 + i);
    camera.answer(UVC_GET_CUR, 0x13, reply);
    uint8_t out[17];
    const struct {
        std::function<int32_t()> call;
        Bytes sent;
        size_t answer_bytes;
    } reads[] = {
        {[&] { return XU_OsdGetEnable(device, out); }, {0x81}, 1},
        {[&] { return XU_OsdGetDatetime(device, reinterpret_cast<OsdDatetime*>(out)); }, {0x84}, 8},
        {[&] { return XU_OsdGetString(device, 3, out); }, {0x88, 3}, 16},
        {[&] { return XU_OsdGetWindow(device, reinterpret_cast<OsdWindow*>(out)); }, {0x90}, 9},
        {[&] { return XU_OsdGetColor(device, reinterpret_cast<OsdColor*>(out)); }, {0xA0}, 9},
    };
    for (const auto& c : reads) {
        std::memset(out, 0xEE, sizeof out);
        camera.listen();
        EXPECT_EQ(c.call(), 0) << int{c.sent[0]};
        EXPECT_EQ(Script{}.set(0x13, c.sent).get(0x13).match(camera.sim().transfers()), "");
        for (size_t i = 0; i < sizeof out; ++i)
            EXPECT_EQ(out[i], i < c.answer_bytes ? reply[i] : 0xEE) << int{c.sent[0]} << " " << i;
    }
    camera.fail(UVC_SET_CUR, 0x13, sim::Fault::stall());
    out[0] = 0xEE;
    camera.listen();
    EXPECT_EQ(XU_OsdGetEnable(device, out), -16393);
    EXPECT_EQ(out[0], 0xEE);
    EXPECT_EQ(camera.wire().size(), 1u) << "no read after a refused request";
    camera.fail(UVC_GET_CUR, 0x13, sim::Fault::io_error());
    EXPECT_EQ(XU_OsdGetEnable(device, out), -16385);
    EXPECT_EQ(out[0], 0xEE);
}

TEST(Osd, RegisterBitsChangeAlone)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    camera.sim().controller()->set_reg(0x0544, 0x51);
    camera.listen();
    EXPECT_EQ(XU_OsdEnableDatetime(device, 1), 0);
    EXPECT_EQ(XU_OsdEnableTransparent(device, 0x100), 0);
    EXPECT_EQ(Script{}
                  .reg_read(0x0544)
                  .reg_write(0x0544, {0x53})
                  .reg_read(0x0544)
                  .reg_write(0x0544, {0x43})
                  .match(camera.sim().transfers()),
              "");
    camera.fail(UVC_GET_CUR, 0x06, sim::Fault::stall());
    EXPECT_EQ(XU_OsdEnableDatetime(device, 0), -16393);
}

TEST(I2c, AddressesAreSplitAndDataPrecedesTheCommand)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const uint8_t config = 0xA1;
    const uint8_t data[3] = {7, 8, 9};
    uint8_t out[8] = {};
    camera.listen();
    EXPECT_EQ(XU_I2cConfigSet(device, &config), 0);
    EXPECT_EQ(XU_I2cGet(device, 0x1A5, 3, out), 0);
    EXPECT_EQ(XU_I2cSet(device, 0x2A5, 3, data), 0);
    EXPECT_EQ(Script{}
                  .reg_write(0x0E48, {0x01, 0xA0})
                  .reg_write(0x0E4A, {0x80, 0xA5, 3, 0xC0})
                  .reg_read(0x0E40, 3)
                  .reg_write(0x0E40, {7, 8, 9})
                  .reg_write(0x0E4A, {0x00, 0xA5, 3, 0x80})
                  .match(camera.sim().transfers()),
              "");
    EXPECT_EQ(XU_I2cConfigGet(device, out), 0);
    EXPECT_EQ(out[0], 0xA1);
    camera.listen();
    EXPECT_EQ(XU_I2cGet(device, 0, 1, nullptr), -1);
    EXPECT_EQ(XU_I2cSet(device, 0, 1, nullptr), -1);
    EXPECT_TRUE(camera.wire().empty());
}

TEST(Led, AnUpdateThatIsPendingIsReported)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    uint8_t status = 0;
    camera.listen();
    EXPECT_EQ(XU_LedStatusSet(device, 2, 0x18), 0);
    EXPECT_EQ(Script{}.reg_read(0x0B6B).reg_write(0x0B6B, {0x98}).match(camera.sim().transfers()),
              "");
    camera.answer(UVC_GET_CUR, 0x06, {1, 0x0B, 0x6B, 0xFF});
    EXPECT_EQ(XU_LedStatusGet(device, 2, &status), -16);
    EXPECT_EQ(status, 0xFF);
    camera.listen();
    EXPECT_EQ(XU_LedStatusSet(device, 2, 0x18), -16);
    EXPECT_EQ(camera.wire().size(), 2u) << "nothing is written";
    camera.answer(UVC_GET_CUR, 0x06, {1, 0x0B, 0x6B, 0x7F});
    EXPECT_EQ(XU_LedStatusGet(device, 2, &status), 0);
    EXPECT_EQ(status, 0x58);
}

TEST(MjpegGain, RefusesWhatTheEncoderDoesNotTake)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    for (const int gain : {1, 31, 33, 63, 0x101}) {
        EXPECT_EQ(XU_MjpgQGainSet(device, gain), 0) << gain;
        uint8_t read = 0;
        EXPECT_EQ(XU_MjpgQGainGet(device, &read), 0);
        EXPECT_EQ(read, gain & 0xFF);
    }
    camera.listen();
    for (const int gain : {0, 32, 64, 255, 0x100})
        EXPECT_EQ(XU_MjpgQGainSet(device, gain), -1) << gain;
    EXPECT_TRUE(camera.wire().empty());
}

TEST(Motion, AnAlarmIsReadOnceAndAcknowledged)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const uint8_t setting[4] = {1, 2, 3, 4};
    uint8_t back[4] = {};
    EXPECT_EQ(XU_MotionDetectSet(device, setting), 0);
    EXPECT_EQ(XU_MotionDetectGet(device, back), 0);
    EXPECT_EQ(std::memcmp(setting, back, 4), 0);
    uint8_t alarm = 9;
    camera.sim().controller()->set_reg(0x0B87, 0x05);
    camera.listen();
    EXPECT_EQ(XU_MotionDetectPoll(device, &alarm), 0);
    EXPECT_EQ(alarm, 1);
    EXPECT_EQ(XU_MotionDetectPoll(device, &alarm), 0);
    EXPECT_EQ(alarm, 0);
    EXPECT_EQ(Script{}
                  .reg_read(0x0B87)
                  .reg_write(0x0B87, {0x04})
                  .reg_read(0x0B87)
                  .match(camera.sim().transfers()),
              "");
}
