// SPDX-License-Identifier: Apache-2.0
// Upgrade, erase, dump and compare.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "chip/firmware_image.h"
#include "support/bytes.h"
#include "support/camera.h"
#include "support/script.h"
#include "support/temporary_file.h"

namespace {

/// Runs the test in an empty folder of its own.
class Folder {
public:
    Folder()
    {
        char name[] = "/tmp/nyxus-test-XXXXXX";
        path_ = mkdtemp(name);
        std::filesystem::current_path(path_);
    }
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
        std::filesystem::current_path(before_, ignored);
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    static std::vector<uint8_t> read(const std::string& name)
    {
        std::ifstream file(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path before_ = std::filesystem::current_path();
    std::filesystem::path path_;
};

} // namespace

class Production : public testing::Test {
protected:
    Folder folder_;
};

TEST_F(Production, AnUpgradeBootsOnEveryModel)
{
    nyxus_write_cycle_time = 5;
    for (const std::string_view model : models::kAll) {
        Camera camera{model};
        const auto image = load_image(model, 0x5321, 0x0309);
        EXPECT_EQ(camera.device()->wExtFwVer, 0x0100) << model;
        ASSERT_EQ(MP_FwUpgrade(camera.device(), nullptr), 0) << model << nyxus_errmsg;
        EXPECT_EQ(camera.rom(0, image.size()), image) << model;
        EXPECT_EQ(MP_FwCompare(camera.device()), 0) << model;
        EXPECT_TRUE(camera.sim().controller()->write_protect) << model;
        EXPECT_EQ(XU_ChipReset(camera.device()), 0) << model;
        camera.bed().settle();
        camera.remove();
        ASSERT_NE(camera.create(), nullptr) << model;
        uint16_t version = 0;
        char setfile[13] = "xxxxxxxxxxxx";
        EXPECT_EQ(MP_FwRevision(camera.device(), &version, setfile), 0);
        EXPECT_EQ(version, 0x0309) << model;
        EXPECT_EQ(setfile[11], '\0');
        EXPECT_EQ(setfile[12], '\0');
    }
}

TEST_F(Production, TheHeaderIsWrittenLast)
{
    Camera camera{models::kRowan};
    load_image(models::kRowan, 4096);
    const auto mfi = sim::make_mfi_image(3, "SERIAL");
    nyxus_mfi_bin_size = static_cast<uint16_t>(mfi.size());
    camera.device();
    camera.listen();
    ASSERT_EQ(MP_FwUpgrade(camera.device(), mfi.data()), 0);
    std::vector<uint32_t> addresses;
    for (const sim::Transfer& transfer : camera.sim().transfers()) {
        const sim::Setup setup = sim::Setup::from_wire(transfer.setup);
        if (setup.selector() == 0x03 && setup.request == UVC_SET_CUR && transfer.data[0] > 0x80)
            addresses.push_back(static_cast<uint32_t>(transfer.data[1] << 8 | transfer.data[2]));
    }
    EXPECT_EQ(addresses.front(), 0x6000u) << "the MFi image first";
    ASSERT_GT(addresses.size(), 2u);
    EXPECT_EQ(addresses[addresses.size() - 2], 0x0000u);
    EXPECT_EQ(addresses.back(), 0x0020u);
    EXPECT_TRUE(
        std::all_of(addresses.begin(), addresses.end() - 2, [](uint32_t a) { return a >= 0x40; }));
}

TEST_F(Production, TheMfiImageWithItsSerialNumberReachesTheFlash)
{
    nyxus_write_cycle_time = 5;
    for (const std::string_view model : {models::kRowan, models::kLarch, models::kHawthorn}) {
        Camera camera{model};
        const auto image = load_image(model, 0x5000);
        const auto blank = sim::make_mfi_image(9, "00000000");
        std::memcpy(nyxus_mfi_bin, blank.data(), blank.size());
        nyxus_mfi_bin_size = static_cast<uint16_t>(blank.size());
        ASSERT_EQ(MP_BinSetSerialNum(nyxus_mfi_bin, "NYX-0042"), 0);
        ASSERT_EQ(MP_FwUpgrade(camera.device(), nyxus_mfi_bin), 0) << model;
        const auto rom = camera.rom(0x6000, blank.size());
        EXPECT_TRUE(std::equal(rom.begin(), rom.end(), nyxus_mfi_bin)) << model;
        const std::string text(rom.begin(), rom.end());
        EXPECT_NE(text.find("NYX-0042"), std::string::npos) << model;
        const char wide[] = "N\0Y\0X\0-\0000\0000\0004\0002";
        EXPECT_NE(text.find(std::string(wide, 15)), std::string::npos) << model;
        EXPECT_EQ(camera.rom(0, image.size()), image) << model;
    }
}

TEST_F(Production, AnImageThatDoesNotFitWritesNothing)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const auto before = camera.rom(0, 0x20000);
    load_image(models::kLarch, 4096);
    camera.listen();
    ny_trace_param = NY_TRACE_ERROR;
    EXPECT_EQ(MP_FwUpgrade(device, nullptr), -1028);
    ny_trace_param = 0;
    EXPECT_STREQ(nyxus_errtmp, "Firmware signature not match");
    EXPECT_NE(camera.printed().find(
                  "MP_FwUpgrade(): <ERROR_NYXUS> Firmware signature not match (-1028) \n"),
              std::string::npos)
        << camera.printed();
    load_image(models::kRowan, 4096);
    for (const uint16_t size : {uint16_t{0}, uint16_t{0x41}, uint16_t{32769}, uint16_t{0xFCF2}}) {
        nyxus_fw_bin_size = size;
        EXPECT_EQ(MP_FwUpgrade(device, nullptr), -1036) << size;
        EXPECT_STREQ(nyxus_errtmp, "Firmware image size out of range");
    }
    nyxus_fw_bin_size = 4096;
    nyxus_mfi_bin_size = 4097;
    EXPECT_EQ(MP_FwUpgrade(device, nyxus_mfi_bin), -1036);
    EXPECT_TRUE(camera.wire().empty());
    EXPECT_EQ(camera.rom(0, 0x20000), before);
    EXPECT_EQ(MP_FwUpgrade(nullptr, nullptr), -1026);
}

TEST_F(Production, EachStepOfAnUpgradeFailsWithItsLine)
{
    const struct {
        const char* name;
        uint8_t request, selector;
        unsigned nth;
        const char* line;
        bool header_absent;
    } cases[] = {
        {"unlock", UVC_SET_CUR, 0x0E, 0, "ERROR: External ROM write enable failed !!! \n", false},
        {"erase", UVC_SET_CUR, 0x03, 0, "XU_SpiEraseChip(pDevObj) FAILED, rv = -16393 \n", false},
        {"MFi", UVC_SET_CUR, 0x03, 1, "ERROR: MFi BIN programming FAILED !!! \n", true},
        {"body", UVC_SET_CUR, 0x03, 1 + 2, "ERROR: Firmware body programming FAILED !!! \n", true},
        {"header", UVC_SET_CUR, 0x03, 1 + 2 + 126,
         "ERROR: Firmware header programming FAILED !!! \n", true},
    };
    for (const auto& c : cases) {
        Camera camera{models::kRowan};
        NyDevice* device = camera.device();
        load_image(models::kRowan, 4096);
        nyxus_mfi_bin_size = 64;
        std::memset(nyxus_mfi_bin, 0x11, 64);
        camera.fail(c.request, c.selector, sim::Fault::stall(), c.nth);
        ny_trace_param = NY_TRACE_ERROR;
        EXPECT_EQ(MP_FwUpgrade(device, nyxus_mfi_bin), -16393) << c.name;
        ny_trace_param = 0;
        EXPECT_NE(camera.printed().find(c.line), std::string::npos) << c.name;
        EXPECT_EQ(all_erased(camera.rom(0, 0x20)), c.header_absent) << c.name;
        camera.heal();
        EXPECT_EQ(MP_FwUpgrade(device, nullptr), 0) << "again, after " << c.name;
    }
}

TEST_F(Production, ARomThatStaysUnlockedFailsAnEraseButNotAnUpgrade)
{
    for (const std::string_view model : {models::kRowan, models::kHawthorn}) {
        Camera camera{model};
        NyDevice* device = camera.device();
        const auto image = load_image(model, 1024);
        nyxus_write_cycle_time = 5;
        ny_trace_param = NY_TRACE_ERROR | NY_TRACE_STEP;
        // The SPI upgrade sets the write protection three times, the EEPROM's once before.
        const bool spi = device->xSpiMode;
        camera.fail(UVC_SET_CUR, 0x0E, sim::Fault::stall(), spi ? 3 : 1);
        EXPECT_EQ(MP_FwUpgrade(device, nullptr), 0) << model;
        EXPECT_EQ(camera.rom(0, 1024), image) << model;
        camera.fail(UVC_SET_CUR, 0x0E, sim::Fault::stall(), spi ? 3 : 1);
        EXPECT_EQ(MP_FwErase(device), -16393) << model;
        ny_trace_param = 0;
        const std::string printed = camera.printed();
        EXPECT_NE(printed.find("ERROR: External ROM write disable failed !!! \n"),
                  std::string::npos);
        EXPECT_NE(printed.find("WARNING: External ROM write disable failed !!! \n"),
                  std::string::npos);
        EXPECT_NE(printed.find("<INFO> Upgrade firmware OK \n"), std::string::npos);
        EXPECT_NE(printed.find("<INFO> Firmware erase succeed \n"), std::string::npos);
    }
}

TEST_F(Production, AnEraseClearsSpiFlashAndLeavesEepromsAlone)
{
    for (const std::string_view model : {models::kRowan, models::kCedar, models::kLarch}) {
        Camera camera{model};
        EXPECT_EQ(MP_FwErase(camera.device()), 0) << model;
        EXPECT_TRUE(all_erased(camera.rom(0, 0x10000))) << model;
    }
    Camera camera{models::kWillow};
    const auto before = camera.rom(0, 0x8000);
    EXPECT_EQ(MP_FwErase(camera.device()), 0);
    EXPECT_EQ(camera.rom(0, 0x8000), before);
}

TEST_F(Production, ADumpHoldsTheFirstBytesOfTheRom)
{
    Camera camera{models::kLarch};
    NyDevice* device = camera.device();
    for (const uint32_t size : {32768u, 1000u, 0u}) {
        EXPECT_EQ(MP_FwDump(device, "rom.bin", size), 0) << size;
        EXPECT_EQ(Folder::read("rom.bin"), camera.rom(0, size)) << size;
    }
    camera.listen();
    EXPECT_EQ(MP_FwDump(device, "rom.bin", 32769), -1036);
    EXPECT_STREQ(nyxus_errtmp, "Dump size out of range");
    EXPECT_TRUE(camera.wire().empty());
    nyxus_errno = 0;
    EXPECT_EQ(MP_FwDump(device, "no/such/folder", 16), -ENOENT);
    EXPECT_EQ(MP_FwDump(device, "/dev/full", 16), -ENOSPC);
    EXPECT_EQ(nyxus_errno, 0) << "a bare code";
    camera.fail(UVC_GET_CUR, 0x03, sim::Fault::stall());
    EXPECT_EQ(MP_FwDump(device, "other.bin", 16), -16393);
    EXPECT_FALSE(std::filesystem::exists("other.bin"));
}

TEST_F(Production, ACompareReportsEachByteAndLeavesItsDump)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const auto image = camera.rom(0, 1024);
    std::copy(image.begin(), image.end(), nyxus_fw_bin);
    nyxus_fw_bin_size = 1024;
    EXPECT_EQ(MP_FwCompare(device), 0);
    EXPECT_EQ(Folder::read("dump.bin"), image);

    nyxus_fw_bin[0x3FF] ^= 0xFF;
    ny_trace_param = NY_TRACE_ERROR;
    const size_t before = camera.printed().size();
    EXPECT_EQ(MP_FwCompare(device), -1);
    ny_trace_param = 0;
    const std::string printed = camera.printed().substr(before);
    char line[80];
    std::snprintf(line, sizeof line, "nyxus_fw_bin[0x03FF] = 0x%02X, fw_dmp[0x03FF] = 0x%02X \n",
                  nyxus_fw_bin[0x3FF], image[0x3FF]);
    EXPECT_NE(printed.find(line), std::string::npos) << line;
    EXPECT_EQ(printed.find("compare failed", printed.find("compare failed") + 1), std::string::npos)
        << "one pair of lines for one byte";
    EXPECT_NE(printed.find("000001F0h: "), std::string::npos);
    EXPECT_EQ(printed.find("00000200h: "), std::string::npos) << "512 bytes are dumped";
}

TEST_F(Production, ACompareOfNothingRunsAllItsSteps)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    nyxus_fw_bin_size = 0;
    const size_t before = camera.printed().size();
    EXPECT_EQ(MP_FwCompare(device), 0);
    EXPECT_NE(camera.printed().find("000001F0h: FF FF FF FF", before), std::string::npos);
    EXPECT_EQ(Folder::read("dump.bin").size(), 0u);
    EXPECT_TRUE(std::filesystem::exists("dump.bin"));

    std::filesystem::remove("dump.bin");
    std::filesystem::create_directory("dump.bin");
    EXPECT_EQ(MP_FwCompare(device), -(0x8000 + EISDIR));
    EXPECT_NE(std::strstr(nyxus_errmsg, "<ERROR_SYSTEM> Open bin file 'dump.bin' FAILED"), nullptr);
    std::filesystem::remove("dump.bin");
    std::filesystem::create_symlink("/dev/full", "dump.bin");
    EXPECT_EQ(MP_FwCompare(device), 0) << "the copy is not what is asked for";

    std::filesystem::remove("dump.bin");
    nyxus_fw_bin_size = 0xFCF2; // left by a failed load
    std::memset(nyxus_fw_bin, 0xA5, sizeof nyxus_fw_bin);
    EXPECT_EQ(MP_FwCompare(device), -1);
    std::filesystem::remove("dump.bin");
    std::filesystem::create_directory("dump.bin");
    EXPECT_EQ(MP_FwCompare(device), -32789) << "before the difference";
    std::filesystem::remove("dump.bin");
    nyxus_fw_bin_size = 16;
    std::memset(nyxus_fw_bin, 0xFF, 16);
    camera.fail(UVC_GET_CUR, 0x03, sim::Fault::stall());
    EXPECT_EQ(MP_FwCompare(device), -16393) << "nothing differed, but the read failed";
}
