// SPDX-License-Identifier: Apache-2.0
// Sequenced transfers: chunks, addresses, pacing, 64 KiB blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "cameras/shipped.h"
#include "support/bytes.h"
#include "support/camera.h"
#include "support/script.h"

namespace {

size_t count_selector(const std::vector<sim::Transfer>& transfers, uint8_t selector)
{
    return static_cast<size_t>(std::count_if(
        transfers.begin(), transfers.end(),
        [&](const auto& t) { return sim::Setup::from_wire(t.setup).selector() == selector; }));
}

} // namespace

TEST(Transfer, CutsIntoChunksOfEightWithARunningAddress)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    uint8_t data[16] = {};
    camera.listen();
    EXPECT_EQ(XuRegRead(device, 0x30100, 0x10009, data), 0) << "16 bits of address and length";
    EXPECT_EQ(Script{}.reg_read(0x0100, 8).reg_read(0x0108, 1).match(camera.sim().transfers()), "");

    camera.listen();
    const auto bytes = counting(9);
    EXPECT_EQ(XuRegWrite(device, 0xFFFC, 9, bytes.data()), 0);
    EXPECT_EQ(Script{}
                  .reg_write(0xFFFC, {1, 2, 3, 4, 5, 6, 7, 8})
                  .reg_write(0x0004, {9, 2, 3, 4, 5, 6, 7, 8})
                  .match(camera.sim().transfers())
                  .substr(0, 10),
              "transfer 1")
        << "length byte differs";
    EXPECT_EQ(camera.wire().at(1), "SET 06: 81 00 04 09 02 03 04 05 06 07 08")
        << "a wrapper is cleared once per call, the address wraps";

    camera.listen();
    EXPECT_EQ(XuMcuDataRead(device, 0x1FF, 0x102, data), 0);
    EXPECT_EQ(Script{}.read(0x08, 2, 0x00FF).match(camera.sim().transfers()), "");
    camera.listen();
    EXPECT_EQ(XuSensorRead(device, 0x1234, 1, data), 0);
    EXPECT_EQ(XuSensorWrite(device, 0x1234, 2, bytes.data()), 0);
    EXPECT_EQ(XuMcuDataWrite(device, 0x120, 1, bytes.data()), 0);
    EXPECT_EQ(Script{}
                  .read(0x07, 1, 0x1234)
                  .set(0x07, {0x82, 0x12, 0x34, 1, 2})
                  .set(0x08, {0x81, 0x00, 0x20, 1})
                  .match(camera.sim().transfers()),
              "");
    camera.listen();
    EXPECT_EQ(XuRegRead(device, 0, 0, nullptr), 0);
    EXPECT_EQ(XuRegRead(device, 0, 0x10000, nullptr), 0);
    EXPECT_TRUE(camera.wire().empty());
    EXPECT_EQ(XuRegRead(device, 0, 1, nullptr), -1036);
}

TEST(Transfer, ReadsBackWhatItWrote)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const auto bytes = counting(100);
    std::vector<uint8_t> back(100);
    EXPECT_EQ(XuRegWrite(device, 0x2000, 100, bytes.data()), 0);
    EXPECT_EQ(XuRegRead(device, 0x2000, 100, back.data()), 0);
    EXPECT_EQ(back, bytes);
}

TEST(Transfer, PacesRomWritesByRomAndGeneration)
{
    const struct {
        std::string_view model;
        bool wide;
        Script::Pace pace;
        uint64_t sleep_per_chunk_us;
    } cases[] = {
        {models::kRowan, true, Script::Pace::kBusReady, 0},
        {models::kLarch, false, Script::Pace::kReleaseAndBusReady, 0},
        {models::kWillow, true, Script::Pace::kNone, 5000},
        {models::kHawthorn, false, Script::Pace::kNone, 5000},
    };
    nyxus_write_cycle_time = 5;
    for (const auto& c : cases) {
        Camera camera{c.model};
        NyDevice* device = camera.device();
        const auto bytes = counting(70);
        camera.listen();
        const uint64_t before = camera.time().now_us();
        EXPECT_EQ(XuExtRomWrite(device, 0x7F00, 70, bytes.data()), 0) << c.model;
        Script script;
        script.rom_write(0x7F00, bytes, c.wide, c.pace);
        EXPECT_EQ(script.match(camera.sim().transfers()), "") << c.model;
        const uint64_t chunks = (70 + (c.wide ? 31 : 7)) / (c.wide ? 32 : 8);
        const uint64_t wire = camera.sim().transfers().size() * 125;
        EXPECT_EQ(camera.time().now_us() - before,
                  wire + chunks * c.sleep_per_chunk_us + script.extra_polls() / 2 * 2000)
            << c.model;
    }
}

TEST(Transfer, AWriteCycleOfZeroNeverSleepsAndLosesEepromWrites)
{
    Camera camera{models::kHawthorn};
    NyDevice* device = camera.device();
    nyxus_write_cycle_time = 0;
    ASSERT_EQ(XuSetWriteProtect(device, false), 0);
    const auto bytes = counting(32);
    camera.listen();
    const uint64_t before = camera.time().now_us();
    EXPECT_EQ(XuExtRomWrite(device, 0x4000, 32, bytes.data()), 0);
    EXPECT_EQ(camera.time().now_us() - before, 4u * 125);
    EXPECT_NE(camera.rom(0x4000, 32), bytes);

    nyxus_write_cycle_time = 5;
    camera.time().set_us(static_cast<int64_t>(camera.time().now_us() + 10000));
    EXPECT_EQ(XuExtRomWrite(device, 0x4000, 32, bytes.data()), 0);
    EXPECT_EQ(camera.rom(0x4000, 32), bytes);
}

TEST(Transfer, BlocksAreSelectedBehindTheFirst)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const struct {
        uint32_t address, length;
        Script expected;
    } cases[] = {
        {0xFFF0, 0x10, Script{}.read(0x03, 0x10, 0xFFF0)},
        {0xFFF0, 0x20,
         Script{}.read(0x03, 0x10, 0xFFF0).set(0x02, {1, 0}).read(0x03, 0x10, 0x0000)},
        {0x1FFE0, 0x20, Script{}.read(0x03, 0x20, 0xFFE0)},
    };
    std::vector<uint8_t> data(0x40);
    for (const auto& c : cases) {
        camera.listen();
        EXPECT_EQ(XuExtRomRead(device, c.address, c.length, data.data()), 0);
        EXPECT_EQ(c.expected.match(camera.sim().transfers()), "") << c.address << "+" << c.length;
    }
}

TEST(Transfer, FirmwareWithTheOtherPrefixHasEachBlockSelected)
{
    sim::CameraModel model = *sim::find_model("larch-large");
    model.has_xu_version = true;
    model.xu_version = 0x0002;
    model.has_memory_extension = true;
    model.selects_every_block = true;
    Camera camera{model, Time::kSimulated};
    NyDevice* device = camera.device();
    EXPECT_EQ(device->oXuCtrlVer.wPrefix, 0x4646);
    EXPECT_EQ(device->xu_table, uvc_xu_table_ver_none) << "8 bytes at a time";
    std::vector<uint8_t> data(4);
    camera.listen();
    EXPECT_EQ(XuExtRomRead(device, 0x10000, 4, data.data()), 0);
    EXPECT_EQ(Script{}.set(0x02, {1, 0}).read(0x03, 4, 0).match(camera.sim().transfers()), "");
    EXPECT_EQ(data, camera.rom(0x10000, 4));
    EXPECT_EQ(XuExtRomRead(device, 0x40, 4, data.data()), 0);
    EXPECT_EQ(data, camera.rom(0x40, 4)) << "block 0 again";
}

TEST(Transfer, AWriteReportsEachSelectedBlockOnStandardOutput)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    ASSERT_EQ(MP_ExtRomWriteEnable(device, 0xFF, true), 0);
    const auto bytes = counting(8);
    Captured out{1};
    camera.listen();
    EXPECT_EQ(XuExtRomWrite(device, 0xFFFC, 8, bytes.data()), 0);
    EXPECT_EQ(out.text(), "### current block = 1\n");
    EXPECT_EQ(Script{}
                  .rom_write(0xFFFC, {1, 2, 3, 4}, true, Script::Pace::kBusReady)
                  .set(0x02, {1, 0})
                  .get(0x02)
                  .rom_write(0x0000, {5, 6, 7, 8}, true, Script::Pace::kBusReady)
                  .match(camera.sim().transfers()),
              "");
}

TEST(Transfer, AFullBlockEnds)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    std::vector<uint8_t> data(0x20000);
    camera.listen();
    EXPECT_EQ(XuExtRomRead(device, 0, 0x20000, data.data()), 0);
    EXPECT_EQ(count_selector(camera.sim().transfers(), 0x03), 2u * 0x20000 / 32);
    EXPECT_EQ(count_selector(camera.sim().transfers(), 0x02), 2u) << "block 1 and, empty, block 2";
    EXPECT_EQ(data, camera.rom(0, 0x20000));
}

TEST(Transfer, ASingleCallOf64KiBEnds)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    std::vector<uint8_t> data(0x10000);
    camera.listen();
    EXPECT_EQ(XuCtrlSeqContext(device, ZRV_XU_EXT_ROM, XU_FLAG_READ, 0, 0x10000, data.data()), 0);
    EXPECT_EQ(camera.wire().size(), 2u * 0x10000 / 32);
    EXPECT_EQ(data, camera.rom(0, 0x10000));
}

TEST(Transfer, MarksStandWhereTheyBelong)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    std::vector<uint8_t> data(0x410);
    const auto printed_by_read = [&] {
        const size_t before = camera.printed().size();
        (void)XuExtRomRead(device, 0, 0x410, data.data());
        return camera.printed().substr(before);
    };
    const std::string row(15, '#');
    EXPECT_EQ(printed_by_read(), row + " (49%)\n" + row + " (98%)\n# (100%)\n");

    camera.fail(UVC_GET_CUR, 0x03, sim::Fault::io_error(), 2);
    EXPECT_EQ(printed_by_read(), "##") << "none is lost";
    camera.fail(UVC_GET_CUR, 0x03, sim::Fault::io_error(), 2);
    ny_trace_param = NY_TRACE_ERROR;
    EXPECT_EQ(printed_by_read().substr(0, 3), "##[") << "the failure's line comes after them";
    ny_trace_param = 0;
}

TEST(Transfer, AFailureStopsItAndNamesTheCall)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    std::vector<uint8_t> data(0x40);
    camera.fail(UVC_GET_CUR, 0x03, sim::Fault::io_error(), 1);
    ny_trace_param = NY_TRACE_ERROR;
    EXPECT_EQ(XuExtRomRead(device, 0xFFE0, 0x40, data.data()), -16385);
    ny_trace_param = 0;
    const std::string printed = camera.printed();
    EXPECT_NE(printed.find("XuCtrlSeqContext(): XuGetWrapper(pDevObj, bSelector, &oWrapper) "
                           "FAILED, rv = -16385 \n"),
              std::string::npos)
        << printed;
    EXPECT_NE(printed.find("XuExtRomRead(): XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, "
                           "XU_FLAG_READ, 0, remainingSize, pBuf+(0xFFFF-(dwAddr & "
                           "0xFFFF))+1+((i-(blockStart+1))*0x10000)) FAILED, rv = -16385 \n"),
              std::string::npos)
        << printed;
}
