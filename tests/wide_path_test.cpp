// SPDX-License-Identifier: Apache-2.0
// The 512-byte path, 32-bit addressed reads, and the fingerprint boards that use them.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <numeric>

#include "support/bytes.h"
#include "support/camera.h"
#include "support/script.h"

namespace {

} // namespace

TEST(Path512, CutsIntoChunksOf512)
{
    Camera camera{models::kFi2};
    NyDevice* device = camera.device();
    std::vector<uint8_t> data(1000);
    const size_t printed = camera.printed().size();
    camera.listen();
    EXPECT_EQ(XuExtRomRead512(device, 0x10100, 0x103E8, data.data()), 0);
    EXPECT_EQ(Script{}
                  .set(0x18, {0x02, 0x00, 0x01, 0x00})
                  .get(0x18)
                  .set(0x18, {0x01, 0xE8, 0x03, 0x00})
                  .get(0x18)
                  .match(camera.sim().transfers()),
              "");
    EXPECT_EQ(data, camera.rom(0x100, 1000));
    EXPECT_EQ(camera.printed().size(), printed) << "progress only when asked for";
    nyxus_print_progress = 1;
    EXPECT_EQ(XuExtRomRead512(device, 0, 1000, data.data()), 0);
    EXPECT_EQ(camera.printed().substr(printed), " (51%)\n# (100%)\n");
    camera.listen();
    EXPECT_EQ(XuCtrlSeqContext512(device, 0, 0, 0, nullptr), 0);
    EXPECT_TRUE(camera.wire().empty());
    camera.fail(UVC_GET_CUR, 0x18, sim::Fault::stall());
    EXPECT_EQ(XuExtRomRead512(device, 0, 4, data.data()), -16393);
}

TEST(Path512, PrimitivesMoveTheCallersRecord)
{
    Camera camera{models::kFi2};
    NyDevice* device = camera.device();
    NyWrapper512 wrapper = {0x00, 0x04, 0x00, 0x40, {}};
    camera.listen();
    EXPECT_EQ(XuGetWrapper512(device, &wrapper), 0);
    EXPECT_EQ(std::vector<uint8_t>(wrapper.data, wrapper.data + 4), camera.rom(0x40, 4));
    EXPECT_EQ(XuSetWrapper512(device, &wrapper), 0);
    EXPECT_EQ(camera.wire().size(), 3u);
    EXPECT_EQ(camera.sim().transfers().at(2).data.size(), 516u);
}

TEST(Path512, AWriteWaitsItsCycleAfterEveryChunk)
{
    Camera camera{models::kFi2};
    NyDevice* device = camera.device();
    auto data = counting(600);
    XU_SetWriteCycleTime(7);
    const uint64_t before = camera.time().now_us();
    camera.listen();
    EXPECT_EQ(XuCtrlSeqContext512(device, 0x80, 0x2000, 600, data.data()), 0);
    EXPECT_EQ(camera.wire().size(), 2u);
    EXPECT_EQ(camera.time().now_us() - before, 2u * (7000 + 125));
}

TEST(Path512, WalksBlocksAndEndsOnBlockZero)
{
    Camera camera{models::kFi2};
    NyDevice* device = camera.device();
    std::vector<uint8_t> data(0x40000);
    uvc_xu_ctrl block = {"block", 0x02, 0, 2}; // the table of this firmware lacks it
    std::vector<uvc_xu_ctrl> table(device->xu_table, device->xu_table + device->xu_table_count);
    table.push_back(block);
    device->xu_table = table.data();
    device->xu_table_count = static_cast<int32_t>(table.size());
    camera.sim().set_fault([](const sim::Setup& setup, uint64_t) {
        const bool selects = setup.selector() == 0x02;
        return selects ? sim::Fault::answer({0, 0}) : sim::Fault::none();
    });
    const auto selections = [&] {
        std::vector<int> blocks;
        for (const sim::Transfer& transfer : camera.sim().transfers()) {
            if (sim::Setup::from_wire(transfer.setup).selector() == 0x02)
                blocks.push_back(transfer.setup[6]);
        }
        return blocks.size();
    };
    const struct {
        uint32_t address, length;
        size_t selected;
        size_t exchanges;
    } cases[] = {
        {0x1FF00, 0x200, 3, 2},     // block 1, block 2, back to 0
        {0x20010, 0x100, 2, 1},     // inside one block
        {0x10000, 0x10000, 2, 128}, // a full block, nothing of the next
        {0xFF00, 0x10200, 4, 1 + 128 + 1},
        {0x1234, 0, 2, 0},
    };
    for (const auto& c : cases) {
        camera.listen();
        EXPECT_EQ(XuExtRomRead512DW(device, c.address, c.length, data.data()), 0);
        EXPECT_EQ(selections(), c.selected) << c.address << "+" << c.length;
        const auto wire = camera.wire();
        size_t exchanges = 0;
        for (const std::string& line : wire)
            exchanges += line.starts_with("GET 18");
        EXPECT_EQ(exchanges, c.exchanges) << c.address << "+" << c.length;
    }
    EXPECT_EQ(XuExtRomReadDW(device, 0, 0x10000, data.data()), 0);
    EXPECT_EQ(VELKA_DwAddrRead(device, 0, 0x77, 0, 16, data.data()), 0);
    camera.remove(); // before its table goes
}

TEST(Path512, AFailedWalkReportsTheBlockSelectionOnly)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    uint8_t data[64];
    camera.fail(UVC_GET_CUR, 0x03, sim::Fault::stall());
    camera.listen();
    nyxus_rv = 0;
    EXPECT_EQ(XuExtRomReadDW(device, 0x10, 64, data), 0);
    EXPECT_EQ(nyxus_rv, -16393) << "where a host finds what went wrong";
    EXPECT_EQ(camera.wire().back(), "SET 02:");
    camera.fail(UVC_SET_CUR, 0x02, sim::Fault::stall());
    camera.listen();
    EXPECT_EQ(XuExtRomReadDW(device, 0x10, 64, data), 0) << "the reset to block 0 succeeded";
    EXPECT_EQ(camera.wire().size(), 2u);
}

TEST(Fingerprint, ControlsWriteTheirRegister)
{
    Camera camera{models::kFi2};
    NyDevice* device = camera.device();
    const struct {
        const char* name;
        std::function<int32_t()> call;
        int32_t result;
        Script wire;
    } cases[] = {
        {"power on", [&] { return SG_SetAutoPower(device, 1); }, 0,
         Script{}.reg_write(0x0B8C, {1})},
        {"power 2", [&] { return SG_SetAutoPower(device, 2); }, -1, {}},
        {"power, low byte", [&] { return SG_SetAutoPower(device, 0x100); }, 0,
         Script{}.reg_write(0x0B8C, {0})},
        {"reset", [&] { return SG_SetSensorResetInit(device); }, 0,
         Script{}.reg_write(0x0B78, {4})},
        {"reset pin", [&] { return SG_SetSensorResetPin(device); }, 0,
         Script{}.reg_write(0x0B8D, {1})},
        {"LED", [&] { return SG_LedControl(device, 1); }, 0, Script{}.reg_write(0x0B8E, {1})},
        {"LED 7", [&] { return SG_LedControl(device, 7); }, -1, {}},
        {"stream", [&] { return SG_StreamModeEnable(device); }, 0,
         Script{}.reg_write(0x0B88, {1}).reg_write(0x0B88, {0})},
        {"snapshot", [&] { return SG_SnapshotModeEnable(device); }, 0,
         Script{}.reg_write(0x0B88, {1})},
        {"trigger", [&] { return SG_SnapshotModeTrigger(device); }, 0,
         Script{}.reg_write(0x0B78, {3})},
    };
    for (const auto& c : cases) {
        camera.listen();
        EXPECT_EQ(c.call(), c.result) << c.name;
        EXPECT_EQ(c.wire.match(camera.sim().transfers()), "") << c.name;
    }
    camera.fail(UVC_SET_CUR, 0x06, sim::Fault::stall());
    EXPECT_EQ(SG_SnapshotModeTrigger(device), 0) << "the register's result is not looked at";
    camera.fail(UVC_SET_CUR, 0x06, sim::Fault::stall());
    EXPECT_EQ(SG_SetSensorResetPin(device), -16393);
}

TEST(Fingerprint, TouchAndUsbSpeedAreRead)
{
    Camera camera{models::kFi2};
    NyDevice* device = camera.device();
    uint8_t value = 9;
    camera.sim().controller()->set_reg(0x0B8F, 0x5A);
    EXPECT_EQ(SG_TouchStatus(device, &value), 0);
    EXPECT_EQ(value, 0x5A);
    camera.answer(UVC_GET_CUR, 0x08, {1, 0, 0x20, 0xFF});
    camera.listen();
    EXPECT_EQ(SG_UsbSpeed(device, &value), 0);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(camera.wire().at(0), "SET 08: 01 00 20");
}

TEST(Fingerprint, TheWindowBoundsReadsAndWrites)
{
    Camera camera{models::kFi2};
    NyDevice* device = camera.device();
    uint8_t data[32] = {};
    const struct {
        uint16_t address, length;
        int32_t result;
    } cases[] = {
        {0x23FF, 1, 134}, {0x8000, 0, 134},      {0x7FF0, 0x10, 0}, {0x7FF0, 0x11, 133},
        {0x2400, 0, 0},   {0x2400, 0xFFFF, 133}, {0x7FFF, 1, 0},
    };
    nyxus_errno = 0;
    for (const auto& c : cases) {
        camera.listen();
        EXPECT_EQ(SG_EepromRead(device, c.address, c.length, data), c.result) << c.address;
        EXPECT_EQ(camera.wire().empty(), c.result != 0 || c.length == 0) << c.address;
        if (c.result != 0) {
            EXPECT_EQ(SG_EepromWrite(device, c.address, c.length, data), c.result);
            EXPECT_TRUE(camera.wire().empty());
        }
    }
    EXPECT_EQ(nyxus_errno, 0) << "bare codes";
}

TEST(Fingerprint, WritesArePagedAndBracketedByTheProtection)
{
    Camera camera{models::kWillow};
    NyDevice* device = camera.device();
    const auto data = counting(100);
    const auto page = [&](uint16_t address, size_t offset, size_t count) {
        return Script{}.rom_write(address,
                                  {data.begin() + static_cast<ptrdiff_t>(offset),
                                   data.begin() + static_cast<ptrdiff_t>(offset + count)},
                                  true, Script::Pace::kNone);
    };
    const struct {
        uint16_t address, length;
        std::vector<std::array<size_t, 3>> pages;
    } cases[] = {
        {0x2410, 100, {{0x2410, 0, 16}, {0x2420, 16, 32}, {0x2440, 48, 32}, {0x2460, 80, 20}}},
        {0x2405, 10, {{0x2405, 0, 10}}},
        {0x2400, 32, {{0x2400, 0, 32}}},
        {0x2400, 0, {}},
    };
    nyxus_write_cycle_time = 5;
    ASSERT_EQ(XuSetWriteProtect(device, false), 0);
    for (const auto& c : cases) {
        camera.listen();
        EXPECT_EQ(SG_XuExtRomWrite(device, c.address, c.length, data.data()), 0);
        const auto transfers = camera.sim().transfers();
        ASSERT_EQ(transfers.size(), c.pages.size());
        for (size_t i = 0; i < c.pages.size(); ++i) {
            const auto& [address, offset, count] = c.pages[i];
            EXPECT_EQ(page(static_cast<uint16_t>(address), offset, count).match({transfers[i]}),
                      "");
        }
        EXPECT_EQ(camera.rom(c.address, c.length),
                  std::vector<uint8_t>(data.begin(), data.begin() + c.length));
    }

    bEepromWriteCycleTime = 0;
    camera.listen();
    EXPECT_EQ(SG_EepromWrite(device, 0x3000, 32, data.data()), 0);
    EXPECT_EQ(bEepromWriteCycleTime, 5);
    EXPECT_EQ(Script{}
                  .gpio0(false)
                  .set(0x0E, {0})
                  .rom_write(0x3000, {data.begin(), data.begin() + 32}, true, Script::Pace::kNone)
                  .set(0x0E, {1})
                  .gpio0(true, 0x80, 0x01)
                  .match(camera.sim().transfers()),
              "");
    EXPECT_EQ(camera.rom(0x3000, 32), std::vector<uint8_t>(data.begin(), data.begin() + 32));

    camera.fail(UVC_SET_CUR, 0x03, sim::Fault::stall());
    camera.listen();
    EXPECT_EQ(SG_EepromWrite(device, 0x3000, 32, data.data()), -16393);
    EXPECT_EQ(camera.wire().back(), "SET 03: stall") << "the window stays unlocked";
    camera.fail(UVC_SET_CUR, 0x03, sim::Fault::stall());
    EXPECT_EQ(SG_XuExtRomWrite(device, 0x2410, 100, data.data()), 0) << "only the last page counts";
}
