// SPDX-License-Identifier: Apache-2.0
// Identification of chip, firmware and external ROM.
#include <gtest/gtest.h>

#include <cstring>

#include "support/camera.h"
#include "support/script.h"

namespace {

std::vector<uint8_t> text11(const char* text)
{
    std::vector<uint8_t> bytes(11);
    std::memcpy(bytes.data(), text, strnlen(text, 11));
    return bytes;
}

} // namespace

TEST(Probe, FindsWhatEachModelIs)
{
    const struct {
        std::string_view model;
        const char* chip;
        uint32_t family;
        bool feature_xu;
        bool spi;
        uint8_t rom_type;
        uint32_t rom_size;
        const char* flash;
    } cases[] = {
        {models::kRowan, "NY6410", IC_FAMILY_ROWAN, true, true, 0xFF, 0x10000, "MXIC MX25L1006E"},
        {models::kCedar, "NY7780", IC_FAMILY_CEDAR, true, true, 0xFF, 0x10000, "GigaDev MK25Q40B"},
        {models::kLarch, "NY6300", IC_FAMILY_LARCH, false, true, 0xFF, 0x10000, "WINBOND W25X05CL"},
        {models::kFi2, "ZR5200U", IC_FAMILY_FI2, true, true, 0xFF, 0x10000, "SST SST25WF512"},
        {models::kHawthorn, "ZR5400", IC_FAMILY_HAWTHORN, false, false, 0x80, 0x8000, ""},
        {models::kWillow, "ZR5300 -series", IC_FAMILY_WILLOW, true, false, 0x80, 0x8000, ""},
    };
    for (const auto& c : cases) {
        Camera camera{c.model};
        const NyDevice* device = camera.device();
        EXPECT_STREQ(device->oBackend.name, c.chip);
        EXPECT_EQ(device->oBackend.family, c.family) << c.model;
        EXPECT_EQ(device->xFeatureXU, c.feature_xu) << c.model;
        EXPECT_EQ(device->xSpiMode, c.spi) << c.model;
        EXPECT_EQ(device->bExtRomType, c.rom_type) << c.model;
        EXPECT_EQ(device->dwExtRomSize, c.rom_size) << c.model;
        EXPECT_STREQ(device->oFlashInfo.szName, c.flash);
        EXPECT_EQ(device->wExtFwVer, 0x0100) << c.model;
        EXPECT_EQ(device->xModuleMode, 1) << c.model;
        EXPECT_EQ(device->state, 1);
        EXPECT_EQ(device->index, -1);
    }
}

TEST(Probe, TheFirstSignatureInTheTextWins)
{
    Camera camera{models::kCedar};
    NyDevice* device = camera.device();
    const struct {
        const char* text;
        int32_t result;
        const char* name;
    } cases[] = {
        {"RO2-1.0", 0, "NY6410"},    {"xxFIxLE", 0, "ZR5100 -series"},
        {"ZZ-LongText", 3, nullptr}, {"", 3, nullptr},
        {"abcdefghiRO", 3, nullptr}, {"abcdefghRO1", 0, "NY6400"},
        {"CB", 0, "NY7780"},         {"CD", 3, "NY6500"},
    };
    for (const auto& c : cases) {
        device->oBackend = {};
        camera.answer(UVC_GET_CUR, 0x0D, text11(c.text));
        EXPECT_EQ(MP_QueryChipInfo(device), c.result) << c.text;
        if (c.name != nullptr) {
            EXPECT_STREQ(device->oBackend.name, c.name) << c.text;
        }
    }
    // Each bond variant of the signature asks the camera anew.
    camera.answer(UVC_GET_CUR, 0x0D, text11("CB"));
    camera.listen();
    EXPECT_EQ(MP_QueryChipInfo(device), 0);
    EXPECT_EQ(camera.wire().size(), 4u);
    camera.answer(UVC_GET_CUR, 0x19, std::vector<uint8_t>(11, 9));
    EXPECT_EQ(MP_QueryChipInfo(device), 3) << "no such bond";
    EXPECT_STREQ(device->oBackend.name, "NY7080") << "the last row that was tried stays";
}

TEST(Probe, TheStatusComesFromTheControlOrFromMcuData)
{
    Camera cedar{models::kCedar};
    NyFirmwareStatus status = {9, 9, 9, 9};
    cedar.device();
    cedar.answer(UVC_GET_CUR, 0x19, {0, 0, 7, 2, 0, 0, 0, 2});
    EXPECT_EQ(XU_FwGetStatus(cedar.device(), &status), 0);
    EXPECT_EQ(status.xSpiEnable, 0) << "exactly 1 means enabled";
    EXPECT_EQ(status.xExtFwExist, 1);
    EXPECT_EQ(status.xSetfileExist, 0);
    EXPECT_EQ(status.reserved, 9);
    cedar.fail(UVC_GET_CUR, 0x19, sim::Fault::stall());
    EXPECT_EQ(XU_FwGetStatus(cedar.device(), &status), -16393);
    EXPECT_EQ(status.xExtFwExist, 1) << "kept on failure";
}

TEST(Probe, OtherVersionsNeverAskForTheStatusControl)
{
    Camera rowan{models::kRowan};
    NyDevice* device = rowan.device();
    NyFirmwareStatus status = {};
    rowan.listen();
    EXPECT_EQ(XU_FwGetStatus(device, &status), 0);
    EXPECT_EQ(Script{}.read(0x08, 1, 0x0021).match(rowan.sim().transfers()), "");
    rowan.answer(UVC_GET_CUR, 0x08, {1, 0, 0x21, 0x14});
    EXPECT_EQ(XU_FwGetStatus(device, &status), 0);
    EXPECT_EQ(status.xSpiEnable, 1);
    EXPECT_EQ(status.xExtFwExist, 0);
    EXPECT_EQ(status.xSetfileExist, 1);

    rowan.heal();
    rowan.listen();
    uint16_t version = 0;
    uint16_t sensor_ap = 0;
    rowan.answer(UVC_GET_CUR, 0x07, {4, 0xFF, 0xFF, 0x34, 0x12, 0x78, 0x56});
    EXPECT_EQ(XU_ExtFwGetVer(device, &version, &sensor_ap), 0);
    EXPECT_EQ(rowan.wire(),
              (std::vector<std::string>{"SET 07: 04 FF FF", "GET 07: 04 FF FF 34 12 78 56"}));
    EXPECT_EQ(sensor_ap, 0x1234);
    EXPECT_EQ(version, 0x5678);
}

TEST(Probe, OnlyTheSetFileVersionCanFailTheModuleQuery)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    camera.fail(UVC_GET_CUR, 0x08, sim::Fault::stall());
    EXPECT_EQ(MP_QueryModuleInfo(device), 0);
    camera.fail(UVC_GET_CUR, 0x07, sim::Fault::stall());
    EXPECT_EQ(MP_QueryModuleInfo(device), 0);
    camera.fail(UVC_GET_CUR, 0x0C, sim::Fault::stall());
    EXPECT_EQ(MP_QueryModuleInfo(device), -16393);
}

TEST(RomQuery, TheHeaderTellsEepromSizes)
{
    Camera camera{models::kHawthorn};
    NyDevice* device = camera.device();
    const struct {
        uint8_t size_byte;
        bool spi_enabled;
        uint8_t type;
        uint32_t size;
    } cases[] = {
        {0x08, false, 0x20, 0x1000}, {0x10, false, 0x40, 0x2000}, {0x20, false, 0x80, 0x4000},
        {0x40, false, 0x80, 0x8000}, {0x80, false, 0x80, 0x8000}, {0xFF, true, 0x80, 0x8000},
    };
    for (const auto& c : cases) {
        (*camera.sim().controller()).rom[0x46] = c.size_byte;
        device->oFwStatus.xSpiEnable = c.spi_enabled;
        camera.listen();
        EXPECT_EQ(MP_QueryExtRom(device), 0);
        EXPECT_EQ(device->bExtRomType, c.type) << int{c.size_byte};
        EXPECT_EQ(device->dwExtRomSize, c.size) << int{c.size_byte};
        EXPECT_EQ(device->xSpiMode, 0);
        Script script;
        script.read(0x03, 8, 0x40).read(0x03, 8, 0x48).read(0x03, 8, 0x50).set(0x0B, {c.type});
        EXPECT_EQ(script.match(camera.sim().transfers()), "");
    }
}

TEST(RomQuery, OneMatchingSignatureCharacterIsEnough)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const struct {
        const char* signature;
        int32_t result;
    } cases[] = {{"RO", 0}, {"R?", 0}, {"?O", 0}, {"OR", -1030}, {"\xFF\xFF", -1030}};
    for (const auto& c : cases) {
        std::memcpy(&(*camera.sim().controller()).rom[0x40], c.signature, 2);
        device->oFlashInfo = {};
        EXPECT_EQ(MP_QueryExtRom(device), c.result) << c.signature;
    }
    EXPECT_STREQ(nyxus_errmsg, "NYXuApi.cpp(810): <ERROR_NYXUS> Command Read ID is invalid");
    EXPECT_NE(camera.printed().find("<ERROR> Identify SPI flash FAILED \n"), std::string::npos);
}

TEST(RomQuery, FollowsWhatTheControllerHoldsAboutItsFlash)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const auto set_id = [&](std::initializer_list<uint8_t> id) {
        uint16_t reg = 0x0A27 + 5;
        for (const uint8_t byte : id)
            camera.sim().controller()->set_reg(reg++, byte);
    };
    set_id({0xEF, 0x30, 0x11});
    EXPECT_EQ(MP_QueryExtRom(device), 0);
    EXPECT_STREQ(device->oFlashInfo.szName, "WINBOND W25X10CL");

    set_id({0, 0, 0}); // unknown to the controller: the flash itself is asked
    EXPECT_EQ(MP_QueryExtRom(device), 0);
    EXPECT_STREQ(device->oFlashInfo.szName, "MXIC MX25L1006E");

    set_id({0x12, 0x34, 0x56});
    EXPECT_EQ(MP_QueryExtRom(device), 0);
    EXPECT_STREQ(device->oFlashInfo.szName, "MXIC MX25L1006E");

    // A controller that does not give its flash information ends the query as a success.
    camera.fail(UVC_GET_CUR, 0x06, sim::Fault::stall());
    device->bExtRomType = 0;
    camera.listen();
    EXPECT_EQ(MP_QueryExtRom(device), 0);
    EXPECT_EQ(device->bExtRomType, 0xFF);
    EXPECT_EQ(camera.wire().back(), "GET 06: stall") << "the ROM type is not set";
}

TEST(FlashIdentify, AsksByTheCommandOfTheRecord)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    device->oFlashInfo.bCmdRDID = 0x42;
    EXPECT_EQ(MP_IdentifyFlash(device), -1029);
    EXPECT_STREQ(nyxus_errmsg, "NYXuApi.cpp(806): <ERROR_NYXUS> Command Read ID is not support");

    device->oFlashInfo = {};
    device->oFlashInfo.bCmdRDID = 0x9F;
    camera.listen();
    EXPECT_EQ(MP_IdentifyFlash(device), 0);
    EXPECT_STREQ(device->oFlashInfo.szName, "MXIC MX25L1006E");
    const auto wire = camera.wire();
    EXPECT_EQ(wire.at(0), "SET 06: 84 01 00 9F");
    EXPECT_EQ(wire.at(1), "SET 06: 83 00 49 14 04 01");
    EXPECT_EQ(wire.at(2), "SET 06: 81 00 46 03");
    EXPECT_EQ(wire.at(3), "SET 06: 81 00 49 37");
    EXPECT_EQ(wire.at(wire.size() - 1), "SET 06: 83 0A 2F 01 02 64 20 9F C2 20 11")
        << "the part's 11 bytes, 8 and 3";

    // A 2-byte method on a JEDEC part: nothing of the catalogue, but its own ID is kept.
    device->oFlashInfo = {};
    device->oFlashInfo.bCmdRDID = 0xAB;
    EXPECT_EQ(MP_IdentifyFlash(device), 0);
    EXPECT_STREQ(device->oFlashInfo.szName, "Not Approved Flash");
    EXPECT_EQ(device->oFlashInfo.ID[0], 0xFF);
    EXPECT_EQ(device->oFlashInfo.ID[2], 0x00);
}

TEST(FlashIdentify, NewerControllersAskForTheOpcodeAlone)
{
    Camera camera{models::kCedar};
    NyDevice* device = camera.device();
    camera.listen();
    const uint8_t command[] = {0x9F, 1, 2, 3};
    uint8_t id[3] = {0xEE, 0xEE, 0xEE};
    EXPECT_EQ(XU_SpiCmdGet(device, command, 4, id, 2), 0);
    EXPECT_EQ(camera.wire().at(0), "SET 1C: 9F 04 03");
    EXPECT_EQ(camera.wire().size(), 2u);
    EXPECT_EQ(id[0], 0xC8);
    EXPECT_EQ(id[2], 0xEE);
    for (const uint8_t request : {UVC_SET_CUR, UVC_GET_CUR}) {
        camera.fail(request, 0x1C, sim::Fault::stall());
        EXPECT_EQ(XU_SpiCmdGet(device, command, 4, id, 2), -16393);
        EXPECT_EQ(id[0], 0xC8);
    }
    camera.heal();

    device->oFlashInfo.abExtParam[0] = 0x01;
    camera.listen();
    EXPECT_EQ(XU_SpiSetFlashInfo(device, &device->oFlashInfo), 0);
    EXPECT_EQ(device->oFlashInfo.abExtParam[0], 0x81);
    EXPECT_TRUE(camera.wire().empty());
    EXPECT_EQ(XU_SpiGetFlashInfo(device, &device->oFlashInfo), 0);
    EXPECT_EQ(camera.wire().size(), 1u);
    EXPECT_EQ(camera.wire().at(0).substr(0, 7), "GET 1B:");
}

TEST(FlashIdentify, AnUnknownFlashKeepsItsIdWithTheFallbacksCommands)
{
    Camera camera{models::kCedar};
    NyDevice* device = camera.device();
    camera.answer(UVC_GET_CUR, 0x1C, {0x12, 0x34, 0x56});
    device->oFlashInfo.bCmdRDID = 0x9F;
    EXPECT_EQ(MP_IdentifyFlash(device), 0);
    EXPECT_STREQ(device->oFlashInfo.szName, "Not Approved Flash");
    EXPECT_EQ(device->oFlashInfo.ID[1], 0x34);
    EXPECT_EQ(device->oFlashInfo.bCmdCE, 0xC7);
    EXPECT_EQ(device->oFlashInfo.bTwsr, 100);
}

TEST(FlashIdentify, TheCheckConfirmsByTheMethodThatTheRecordMarks)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    EXPECT_EQ(MP_CheckFlashIsSupported(device), 1);
    device->oFlashInfo.bParam = 0x34;
    EXPECT_EQ(MP_CheckFlashIsSupported(device), 0) << "no method bears this mark";
    device->oFlashInfo.bParam = 0x31;
    device->oFlashInfo.ID[2] ^= 1;
    EXPECT_EQ(MP_CheckFlashIsSupported(device), 0);
    camera.fail(UVC_SET_CUR, 0x06, sim::Fault::stall(), 2);
    EXPECT_EQ(MP_CheckFlashIsSupported(device), -16393);
}

TEST(SpiCommand, ACommandThatNeverEndsFailsAfterHalfASecond)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const auto written = camera.printed().size();
    camera.answer(UVC_GET_CUR, 0x06, {1, 0, 0x49, 0x01});
    camera.listen();
    const uint64_t before = camera.time().now_us();
    const uint8_t command[] = {0x9F};
    uint8_t id[3];
    nyxus_errno = 0;
    ny_trace_param = NY_TRACE_ERROR;
    EXPECT_EQ(XU_SpiCmdGet(device, command, 1, id, 3), -9);
    ny_trace_param = 0;
    EXPECT_EQ(nyxus_errno, 0) << "bare";
    EXPECT_EQ(camera.printed().substr(camera.printed().size() - 21), "SPICmdGet Timeout out");
    EXPECT_GT(camera.printed().size(), written);
    const uint64_t elapsed = camera.time().now_us() - before;
    EXPECT_GE(elapsed, 500'000u);
    EXPECT_LT(elapsed, 503'000u);
    EXPECT_EQ(camera.wire().back(), "GET 06: 01 00 49 01") << "the release is skipped";

    camera.heal();
    EXPECT_EQ(XU_SpiCmdGet(device, command, 1, nullptr, 0), 0) << "no answer wanted";
}
