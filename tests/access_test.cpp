// SPDX-License-Identifier: Apache-2.0
// Single settings, SPI status and its waits, GPIO.
#include <gtest/gtest.h>

#include <functional>

#include "support/bytes.h"
#include "support/camera.h"
#include "support/script.h"

TEST(Access, SettingsSendOneRequestEach)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    uint8_t byte = 0;
    const struct {
        const char* name;
        std::function<int32_t()> call;
        Lines wire;
    } cases[] = {
        {"flip on", [&] { return XuSetFlip(device, 1); }, {"SET 04: 02"}},
        {"flip, low byte 0", [&] { return XuSetFlip(device, 0x100); }, {"SET 04:"}},
        {"mirror on", [&] { return XuSetMirror(device, 7); }, {"SET 05: 01"}},
        {"mirror off", [&] { return XuSetMirror(device, 0); }, {"SET 05:"}},
        {"ROM type", [&] { return XuSetExtRomType(device, 0x40); }, {"SET 0B: 40"}},
        {"protect", [&] { return XuSetWriteProtect(device, 0x101); }, {"SET 0E: 01"}},
        {"protected?", [&] { return XuGetWriteProtect(device, &byte); }, {"GET 0E: 01"}},
        {"block", [&] { return XuSetFlashBlockIndex(device, 0x0102); }, {"SET 02: 02 01"}},
        {"erase", [&] { return XuExtRomErase(device); }, {"SET 03: 40"}},
        {"status", [&] { return XuSetSpiStatus(device, 0x8C); }, {"SET 12: 80 00 00 8C"}},
    };
    for (const auto& c : cases) {
        camera.listen();
        EXPECT_EQ(c.call(), 0) << c.name;
        EXPECT_EQ(camera.wire(), c.wire) << c.name;
    }
}

TEST(Access, FlipAndMirrorReadBackTheirOwnBit)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    uint8_t value = 0;
    XuSetFlip(device, 1);
    EXPECT_EQ(XuGetFlip(device, &value), 0);
    EXPECT_EQ(value, 2);
    camera.answer(UVC_GET_CUR, 0x05, {0xFE});
    EXPECT_EQ(XuGetMirror(device, &value), 0);
    EXPECT_EQ(value, 0);
    camera.fail(UVC_GET_CUR, 0x05, sim::Fault::stall());
    value = 0x33;
    ny_trace_param = NY_TRACE_ERROR;
    EXPECT_EQ(XuGetMirror(device, &value), -16393);
    ny_trace_param = 0;
    EXPECT_EQ(value, 0x33);
    EXPECT_NE(camera.printed().find("                 XuGetMirror(): UvcXuCtrlQueryNYXU(pDevObj, "
                                    "ZRV_XU_MIRROR, UVC_GET_CUR, pMirror) FAILED, rv = -16393 \n"),
              std::string::npos)
        << camera.printed();
}

TEST(Access, AWrapperReadIgnoresARefusedRequest)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    camera.fail(UVC_SET_CUR, 0x12, sim::Fault::stall());
    camera.listen();
    uint8_t status = 0xEE;
    EXPECT_EQ(XuGetSpiStatus(device, &status), 0);
    EXPECT_EQ(camera.wire().at(0), "SET 12: stall");
    EXPECT_NE(status, 0xEE);
    camera.fail(UVC_GET_CUR, 0x12, sim::Fault::stall());
    status = 0xEE;
    EXPECT_EQ(XuGetSpiStatus(device, &status), -16393);
    EXPECT_EQ(status, 0xEE);
}

TEST(Access, PrimitivesMoveTheCallersRecord)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    NyWrapper wrapper = {0x82, 0x00, 0x40, {0x11, 0x22}};
    camera.listen();
    EXPECT_EQ(XuSetWrapper(device, 0x100 | ZRV_XU_MCU, &wrapper), 0) << "the low byte counts";
    wrapper = {0x02, 0x00, 0x40, {}};
    EXPECT_EQ(XuGetWrapper(device, ZRV_XU_MCU, &wrapper), 0);
    EXPECT_EQ(wrapper.data[1], 0x22);
    EXPECT_EQ(camera.wire(),
              (Lines{"SET 08: 82 00 40 11 22", "SET 08: 02 00 40", "GET 08: 02 00 40 11 22"}));
    NyXuVersion version = {};
    char text[12] = "xxxxxxxxxxx";
    EXPECT_EQ(XuGetVersion(device, &version), 0);
    EXPECT_EQ(version.wVersion, 0x0002);
    EXPECT_EQ(XuGetIntFwVer(device, text), 0);
    EXPECT_EQ(std::string(text, 3), "RO2");
    EXPECT_EQ(XuGetVersion(device, nullptr), -1036);
    EXPECT_EQ(XuGetIntFwVer(nullptr, text), -1026);

    camera.listen();
    const uint8_t write_enable[] = {0x06};
    EXPECT_EQ(XU_SpiCmdSet(device, write_enable, 1), 0);
    EXPECT_EQ(Script{}.spi_command({0x06}).match(camera.sim().transfers()), "");
    EXPECT_EQ(camera.sim().controller()->flash_status() & 0x02, 0x02) << "the flash has heard it";
}

TEST(Access, ATableIsPrintedWhenFailuresAreTraced)
{
    Captured err;
    print_xu_table(uvc_xu_table_ver_none, 2);
    EXPECT_EQ(err.text(), "");
    ny_trace_param = NY_TRACE_ERROR;
    print_xu_table(uvc_xu_table_ver_none, 2);
    ny_trace_param = 0;
    EXPECT_NE(err.text().find("print_xu_table():         ZRV_XU_EXT_ROM   0x03  11 \n"),
              std::string::npos)
        << err.text();
}

TEST(Access, AStatusWriteWaitsAsLongAsTheFlashNeeds)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    for (const uint8_t duration_ms : {uint8_t{0}, uint8_t{40}, uint8_t{255}}) {
        device->oFlashInfo.bTwsr = duration_ms;
        const uint64_t before = camera.time().now_us();
        EXPECT_EQ(XuSetSpiStatus(device, 0), 0);
        const uint64_t slept = camera.time().now_us() - before - 125;
        EXPECT_EQ(slept, duration_ms * 1000u);
    }
    camera.fail(UVC_SET_CUR, 0x12, sim::Fault::stall());
    const uint64_t before = camera.time().now_us();
    EXPECT_EQ(XuSetSpiStatus(device, 0), -16393);
    EXPECT_EQ(camera.time().now_us() - before, 125u);
}

TEST(StatusWait, PollsAsOftenAsItsTimeoutAllows)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    camera.answer(UVC_GET_CUR, 0x12, {0, 0, 0, 0x01});
    const struct {
        bool busy;
        uint32_t timeout;
        unsigned reads;
    } cases[] = {
        {false, 40, 14},    {false, 100, 34}, {false, 2, 1}, {false, 0, 1},
        {true, 3000, 1500}, {true, 5, 3},     {true, 0, 1},
    };
    for (const auto& c : cases) {
        camera.listen();
        const uint64_t before = camera.time().now_us();
        EXPECT_EQ(c.busy ? XU_SpiWaitBusReady(device, c.timeout)
                         : XU_SpiWaitStatus(device, 0x0C, 0x0C, c.timeout),
                  -16)
            << c.timeout;
        EXPECT_EQ(camera.wire().size(), 2 * c.reads) << c.timeout;
        EXPECT_EQ(camera.time().now_us() - before, c.reads * (2000u + 2 * 125)) << c.timeout;
    }
    camera.listen();
    EXPECT_EQ(XU_SpiWaitStatus(device, 0x0C, 0x00, 40), 0);
    EXPECT_EQ(camera.wire().size(), 2u);
    camera.fail(UVC_GET_CUR, 0x12, sim::Fault::io_error());
    EXPECT_EQ(XU_SpiWaitBusReady(device, 3000), -16385);
}

TEST(Gpio, DrivesThePinThatWasAskedFor)
{
    Camera camera{models::kLarch};
    NyDevice* device = camera.device();
    const auto preset = [&](uint16_t reg, uint8_t value) {
        camera.sim().controller()->set_reg(reg, value);
    };
    preset(0x0023, 0x40);
    preset(0x0021, 0xFF);
    camera.listen();
    EXPECT_EQ(XU_GpioSet(device, 9, GPIO_LOW), 0);
    EXPECT_EQ(Script{}
                  .reg_read(0x0023)
                  .reg_write(0x0023, {0x42})
                  .reg_read(0x0021)
                  .reg_write(0x0021, {0xFD})
                  .match(camera.sim().transfers()),
              "");
    camera.listen();
    EXPECT_EQ(XU_GpioSet(device, 16, GPIO_HIGH), 0);
    EXPECT_EQ(Script{}
                  .reg_read(0x0023)
                  .reg_write(0x0023, {0x42})
                  .reg_read(0x0021)
                  .reg_write(0x0021, {0xFD})
                  .match(camera.sim().transfers()),
              "");
    preset(0x0029, 0x11);
    preset(0x0022, 0x20);
    preset(0x0020, 0x04);
    camera.listen();
    EXPECT_EQ(XU_GpioSet(device, 0x100, 0x1FF), 0);
    EXPECT_EQ(Script{}.gpio0(true, 0x11, 0x20, 0x04).match(camera.sim().transfers()), "");
    EXPECT_TRUE(camera.sim().controller()->gpio(0));

    camera.listen();
    EXPECT_EQ(XU_GpioSet(device, 17, GPIO_HIGH), -1036);
    EXPECT_STREQ(nyxus_errmsg, "NYXuApi.cpp(1898): <ERROR_NYXUS> GPIO index out of range");
    EXPECT_TRUE(camera.wire().empty());
    camera.fail(UVC_SET_CUR, 0x06, sim::Fault::stall());
    EXPECT_EQ(XU_GpioSet(device, 3, GPIO_HIGH), 0) << "register failures are not examined";
}
