// SPDX-License-Identifier: Apache-2.0
// Erase, block protection, write enable, reserved area.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "support/bytes.h"
#include "support/camera.h"
#include "support/script.h"

namespace {

Script unlock_newer()
{
    return Script{}
        .get(0x0E)
        .set(0x0E, {0})
        .get(0x0E)
        .set(0x12, {0x80, 0, 0, 0x00})
        .poll_status(0x0C, 0x00);
}

Script lock_newer()
{
    return Script{}.set(0x12, {0x80, 0, 0, 0x8C}).set(0x0E, {1}).poll_status(0x0C, 0x0C);
}

Script unlock_older()
{
    return Script{}
        .gpio0(true)
        .spi_command({0x06})
        .spi_command({0x50})
        .set(0x12, {0x80, 0, 0, 0x00})
        .poll_status(0x04, 0x00);
}

} // namespace

TEST(WriteEnable, EachRomAndGenerationHasItsOwnSequence)
{
    const struct {
        std::string_view model;
        uint8_t type;
        Script unlock, lock;
    } cases[] = {
        {models::kRowan, 0xFF, unlock_newer(), lock_newer()},
        {models::kCedar, 0xFF, unlock_newer(), lock_newer()},
        {models::kWillow, 0x80, Script{}.set(0x0E, {0}), Script{}.set(0x0E, {1})},
        {models::kRowan, 0x80, Script{}.set(0x0E, {0}), Script{}.set(0x0E, {1})},
    };
    for (const auto& c : cases) {
        Camera camera{c.model};
        NyDevice* device = camera.device();
        camera.listen();
        EXPECT_EQ(MP_ExtRomWriteEnable(device, c.type, true), 0) << c.model;
        EXPECT_EQ(c.unlock.match(camera.sim().transfers()), "") << c.model;
        camera.listen();
        EXPECT_EQ(MP_ExtRomWriteEnable(device, c.type, false), 0) << c.model;
        EXPECT_EQ(c.lock.match(camera.sim().transfers()), "") << c.model;
    }
}

TEST(WriteEnable, OlderChipsUnlockByGpioAndBlockProtection)
{
    Camera camera{models::kLarch};
    NyDevice* device = camera.device();
    camera.listen();
    const uint64_t before = camera.time().now_us();
    EXPECT_EQ(MP_ExtRomWriteEnable(device, 0xFF, true), 0);
    const Script unlock = unlock_older();
    EXPECT_EQ(unlock.match(camera.sim().transfers()), "");
    EXPECT_GE(camera.time().now_us() - before, 200'000u + 15'000u);
    EXPECT_TRUE(camera.sim().controller()->gpio(0));
    EXPECT_EQ(camera.sim().controller()->flash_status() & 0x9C, 0);

    camera.listen();
    EXPECT_EQ(MP_ExtRomWriteEnable(device, 0xFF, false), 0);
    EXPECT_EQ(Script{}
                  .spi_command({0x06})
                  .spi_command({0x50})
                  .set(0x12, {0x80, 0, 0, 0x9C})
                  .poll_status(0x04, 0x04)
                  .gpio0(false, 0x80, 0x01, 0x01)
                  .match(camera.sim().transfers()),
              "");
    EXPECT_FALSE(camera.sim().controller()->gpio(0));
    EXPECT_EQ(camera.sim().controller()->flash_status() & 0x9C, 0x9C);
}

TEST(WriteEnable, TheFirstFailureEndsIt)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const struct {
        bool enable;
        uint8_t request, selector;
        unsigned nth;
        const char* call;
    } cases[] = {
        {true, UVC_GET_CUR, 0x0E, 0, "XuGetWriteProtect(pDevObj, &tmp)"},
        {true, UVC_SET_CUR, 0x0E, 0, "XuSetWriteProtect(pDevObj, false)"},
        {true, UVC_GET_CUR, 0x0E, 1, "XuGetWriteProtect(pDevObj, &tmp)"},
        {true, UVC_SET_CUR, 0x12, 0, "XuSetSpiStatus(pDevObj, 0x00)"},
        {true, UVC_GET_CUR, 0x12, 0, "XU_SpiWaitStatus(pDevObj, 0x0C, 0x00, 0x28)"},
        {false, UVC_SET_CUR, 0x12, 0, "XuSetSpiStatus(pDevObj, 0x8C)"},
        {false, UVC_SET_CUR, 0x0E, 0, "XuSetWriteProtect(pDevObj, true)"},
        {false, UVC_GET_CUR, 0x12, 0, "XU_SpiWaitStatus(pDevObj, 0x0C, 0x0C, 100)"},
    };
    ny_trace_param = NY_TRACE_ERROR;
    for (const auto& c : cases) {
        camera.fail(c.request, c.selector, sim::Fault::stall(), c.nth);
        const size_t before = camera.printed().size();
        EXPECT_EQ(MP_ExtRomWriteEnable(device, 0xFF, c.enable), -16393) << c.call;
        const std::string printed = camera.printed().substr(before);
        const std::string line =
            "        MP_ExtRomWriteEnable(): " + std::string(c.call) + " FAILED, rv = -16393 \n";
        EXPECT_NE(printed.find(line), std::string::npos) << c.call << printed;
    }
    ny_trace_param = 0;
    camera.answer(UVC_GET_CUR, 0x12, {0, 0, 0, 0x0C});
    camera.listen();
    EXPECT_EQ(MP_ExtRomWriteEnable(device, 0xFF, true), -16);
    EXPECT_EQ(camera.wire().size(), 4u + 2 * 14);
}

TEST(BlockProtect, GivesUpAfterSixAttempts)
{
    Camera camera{models::kLarch};
    NyDevice* device = camera.device();
    camera.answer(UVC_GET_CUR, 0x12, {0, 0, 0, 0x00});
    const auto count = [&](const std::string& line) {
        const auto wire = camera.wire();
        return std::count(wire.begin(), wire.end(), line);
    };
    camera.listen();
    EXPECT_EQ(XU_SpiBlockProtect(device, true), -1033);
    EXPECT_STREQ(nyxus_errmsg,
                 "NYXuApi.cpp(1550): <ERROR_NYXUS> Issue SPI block protect timed out");
    EXPECT_EQ(count("SET 06: 81 01 00 06"), 6);
    EXPECT_EQ(count("SET 06: 81 01 00 50"), 6);
    EXPECT_EQ(count("SET 12: 80 00 00 9C"), 6);

    camera.listen();
    EXPECT_EQ(XU_SpiBlockProtect_for_customer_IB(device, true), -1033);
    EXPECT_STREQ(nyxus_errmsg,
                 "NYXuApi.cpp(1586): <ERROR_NYXUS> Issue SPI block protect timed out");
    EXPECT_EQ(count("SET 06: 81 01 00 06"), 1);
    EXPECT_EQ(count("SET 06: 81 01 00 50"), 6);
    EXPECT_EQ(count("SET 12: 80 00 00 8C"), 6);

    camera.listen();
    EXPECT_EQ(XU_SpiBlockProtect_for_customer_IB(device, false), 0);
    EXPECT_EQ(count("SET 06: 81 01 00 06"), 0);
    EXPECT_EQ(count("SET 06: 81 01 00 50"), 1);
    ASSERT_EQ(XU_GpioSet(device, 0, GPIO_HIGH), 0);
    camera.fail(UVC_GET_CUR, 0x12, sim::Fault::stall());
    EXPECT_EQ(XU_SpiBlockProtect(device, false), 0) << "an unreadable status is one attempt lost";
}

TEST(Erase, SendsTheAddressAndWaits)
{
    Camera camera{models::kCedar};
    NyDevice* device = camera.device();
    ASSERT_EQ(MP_ExtRomWriteEnable(device, 0xFF, true), 0);
    const struct {
        const char* name;
        std::function<int32_t()> call;
        std::vector<uint8_t> command;
    } cases[] = {
        {"16 bits", [&] { return XU_SpiCmdErase(device, 0x1234, 0x20); }, {0x20, 0, 0x12, 0x34}},
        {"24 bits",
         [&] { return XU_SpiCmdEraseDW(device, 0x99012345, 0xD8); },
         {0xD8, 0x01, 0x23, 0x45}},
        {"block 1", [&] { return XU_SpiEraseBlockById(device, 1); }, {0xD8, 0, 0x10, 0x00}},
        {"block 16", [&] { return XU_SpiEraseBlockById(device, 16); }, {0xD8, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        camera.listen();
        EXPECT_EQ(c.call(), 0) << c.name;
        EXPECT_EQ(Script{}
                      .spi_command({0x06})
                      .spi_command(c.command)
                      .poll_status(0x01, 0x00)
                      .spi_command({0x04})
                      .match(camera.sim().transfers()),
                  "")
            << c.name;
    }
    EXPECT_TRUE(all_erased(camera.rom(0, 0x10000)));
}

TEST(Erase, TheWholeFlashByTheControllerOrByItsFirstBlock)
{
    {
        Camera camera{models::kRowan};
        NyDevice* device = camera.device();
        ASSERT_EQ(MP_ExtRomWriteEnable(device, 0xFF, true), 0);
        camera.listen();
        EXPECT_EQ(XU_SpiEraseChip(device), 0);
        EXPECT_EQ(Script{}
                      .set(0x0E, {0})
                      .set(0x03, {0x40})
                      .set(0x0E, {1})
                      .poll_status(1, 0)
                      .match(camera.sim().transfers()),
                  "");
        EXPECT_TRUE(all_erased(camera.rom(0, 0x20000)));
    }
    Camera camera{models::kCedar};
    NyDevice* device = camera.device();
    ASSERT_EQ(MP_ExtRomWriteEnable(device, 0xFF, true), 0);
    camera.listen();
    EXPECT_EQ(XU_SpiEraseChip(device), 0);
    EXPECT_EQ(Script{}
                  .spi_command({0x06})
                  .spi_command({0xD8, 0, 0, 0})
                  .poll_status(1, 0)
                  .spi_command({0x04})
                  .poll_status(1, 0)
                  .match(camera.sim().transfers()),
              "");

    camera.answer(UVC_GET_CUR, 0x12, {0, 0, 0, 0x01});
    ny_trace_param = NY_TRACE_ERROR;
    camera.listen();
    EXPECT_EQ(XU_SpiEraseChip(device), -16);
    device->oFlashInfo.bCmdCE = 0xC7;
    camera.listen();
    nyxus_rv = 0;
    EXPECT_EQ(XU_SpiEraseChip(device), -16);
    EXPECT_EQ(nyxus_rv, -16);
    ny_trace_param = 0;
    EXPECT_EQ(camera.wire().size(), 3u + 2 * 2500) << "5 s of polling";
    for (const char* line :
         {"              XU_SpiCmdErase(): XU_SpiWaitBusReady(pDevObj, 3000) FAILED, rv = -16 \n",
          "             XU_SpiEraseChip(): XU_SpiEraseBlockById(pDevObj, 0) FAILED, rv = -16 \n",
          "FAILED. 'Device or resource busy (-16)' \n"})
        EXPECT_NE(camera.printed().find(line), std::string::npos) << line;
}

TEST(RangeErase, KeepsWhatLiesAroundARangeOfTheFirstBlock)
{
    const struct {
        uint32_t address, length;
        size_t head, tail_length;
    } cases[] = {
        {0, 0x10000, 0, 0},
        {0, 0x8000, 0, 0x8000},
        {0x100, 0xFF00, 0x100, 0},
        {0x40, 0x40, 0x40, 0},
    };
    for (const auto& c : cases) {
        Camera camera{models::kRowan};
        NyDevice* device = camera.device();
        const auto before = camera.rom(0, 0x20000);
        EXPECT_EQ(XU_ExtRomEraseDWORD(device, c.address, c.length), 0) << c.address;
        const auto after = camera.rom(0, 0x20000);
        const size_t end = c.address + c.length;
        EXPECT_TRUE(std::equal(before.begin(), before.begin() + static_cast<ptrdiff_t>(c.head),
                               after.begin()));
        EXPECT_TRUE(
            all_erased({after.begin() + c.address, after.begin() + static_cast<ptrdiff_t>(end)}));
        EXPECT_TRUE(std::equal(before.begin() + static_cast<ptrdiff_t>(end),
                               before.begin() + static_cast<ptrdiff_t>(end + c.tail_length),
                               after.begin() + static_cast<ptrdiff_t>(end)));
        EXPECT_TRUE(std::equal(before.begin() + 0x10000, before.end(), after.begin() + 0x10000))
            << "the block behind is not touched";
    }
}

TEST(RangeErase, ReadsAndErasesNoBlockThatHoldsNothingOfTheRange)
{
    const struct {
        const char* name;
        uint32_t address, length;
        size_t block_reads, erases, head_writes, tail_writes;
    } cases[] = {
        {"one block", 0, 0x10000, 1, 1, 0, 0},
        {"two blocks", 0, 0x20000, 2, 2, 0, 0},
        {"across", 0x8000, 0x10000, 2, 2, 0x8000 / 32, 0x10000 / 32},
        {"second block", 0x10000, 0x8000, 1, 1, 0, 0x8000 / 32},
        {"nothing", 0, 0, 0, 0, 0, 0},
        {"wrapping", 0xFFFF0000, 0x10010, 0, 0, 0, 0xFFF0 / 32 + 1},
    };
    for (const auto& c : cases) {
        Camera camera{models::kRowan};
        NyDevice* device = camera.device();
        camera.listen();
        EXPECT_EQ(XU_ExtRomEraseDWORD(device, c.address, c.length), 0) << c.name;
        size_t reads = 0, erases = 0, writes = 0;
        for (const std::string& line : camera.wire()) {
            reads += line.starts_with("GET 03:");
            erases += line.starts_with("SET 06: 84 01 00 D8");
            writes +=
                line.starts_with("SET 03: ") && std::stoi(line.substr(8, 2), nullptr, 16) >= 0x80;
        }
        EXPECT_EQ(reads, c.block_reads * 0x10000 / 32) << c.name;
        EXPECT_EQ(erases, c.erases) << c.name;
        EXPECT_EQ(writes, c.head_writes + c.tail_writes) << c.name;
    }
}

TEST(RangeErase, AFailureNamesItsStepAndReleasesTheBuffer)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    ny_trace_param = NY_TRACE_ERROR;
    camera.fail(UVC_GET_CUR, 0x03, sim::Fault::stall(), 2000);
    EXPECT_EQ(XU_ExtRomEraseDWORD(device, 0, 0x100), -16393);
    camera.fail(UVC_SET_CUR, 0x0E, sim::Fault::stall());
    EXPECT_EQ(XU_ExtRomEraseDWORD(device, 0, 0x100), -16393);
    ny_trace_param = 0;
    const std::string printed = camera.printed();
    for (const char* call : {"XuCtrlSeqContext(pDevObj, ZRV_XU_EXT_ROM, XU_FLAG_READ, 0, 0x10000, "
                             "pData+(i-blockStart)*0x10000) FAILED",
                             "MP_ExtRomWriteEnable(pDevObj, pDevObj->bExtRomType, true) FAILED"}) {
        EXPECT_NE(printed.find(std::string("XU_ExtRomEraseDWORD(): ") + call), std::string::npos)
            << call;
    }
}

TEST(ReservedArea, IsWrittenAndReadOnSpiFlashOnly)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    std::vector<uint8_t> text(256, 0x5A);
    std::vector<uint8_t> back(256);
    ASSERT_TRUE(all_erased(camera.rom(0x7F00, 256)));
    EXPECT_EQ(XU_SpiSetReservedArea(device, 256, text.data()), 0);
    EXPECT_EQ(camera.rom(0x7F00, 256), text);
    EXPECT_EQ(XU_SpiGetReservedArea(device, 256, back.data()), 0);
    EXPECT_EQ(back, text);

    const std::vector<uint8_t> more(4, 0x0F); // programming only clears bits
    EXPECT_EQ(XU_SpiSetReservedArea(device, 4, more.data()), 0);
    EXPECT_EQ(camera.rom(0x7F00, 4), std::vector<uint8_t>(4, 0x0A));

    camera.listen();
    nyxus_errno = 0;
    EXPECT_EQ(XU_SpiGetReservedArea(device, 257, back.data()), -1);
    EXPECT_EQ(XU_SpiSetReservedArea(device, 257, back.data()), -1);
    EXPECT_TRUE(camera.wire().empty());
    EXPECT_EQ(nyxus_errno, 0);
}

TEST(ReservedArea, AnEepromCameraHasNone)
{
    Camera camera{models::kWillow};
    NyDevice* device = camera.device();
    uint8_t data[4] = {};
    ny_trace_param = NY_TRACE_WARN;
    camera.listen();
    EXPECT_EQ(XU_SpiGetReservedArea(device, 4, data), -1);
    EXPECT_FALSE(camera.wire().empty()) << "the ROM is queried anew";
    EXPECT_EQ(XU_SpiSetReservedArea(device, 4, data), -1);
    ny_trace_param = 0;
    EXPECT_EQ(camera.printed(),
              "<WARNING> pDevObj->bExtRomType != EXTROM_TYPE_SPI \n"
              "<WARNING> pDevObj->bExtRomType != EXTROM_TYPE_SPI \n");
}
