// SPDX-License-Identifier: Apache-2.0
// Firmware and MFi images in memory; no camera.
#include <nyxus/nyxus.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "chip/firmware_image.h"
#include "support/captured.h"
#include "support/temporary_file.h"

namespace {

/// An MFi image whose header says what the test wants.
struct MfiImage {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(4096, 0xEE);

    void put16(size_t offset, uint16_t value)
    {
        bytes[offset] = static_cast<uint8_t>(value >> 8);
        bytes[offset + 1] = static_cast<uint8_t>(value);
    }
    void header(uint16_t list_end, uint16_t list, uint16_t sn_length, uint16_t sn)
    {
        put16(0x02, list_end);
        put16(0x04, list);
        put16(0x0E, sn_length);
        put16(0x10, sn);
    }
    void record(size_t offset, uint16_t length, uint16_t type)
    {
        put16(offset, length);
        put16(offset + 2, type);
    }
};

} // namespace

TEST(Image, TheRealSizeLeavesErasedBytesOut)
{
    const std::vector<uint8_t> image = {1, 2, 0x12, 0xFF, 0xFF};
    const std::vector<uint8_t> erased(16, 0xFF);
    EXPECT_EQ(MP_BinGetRealSize(image.data(), 5), 3);
    EXPECT_EQ(MP_BinGetRealSize(image.data(), 2), 2);
    EXPECT_EQ(MP_BinGetRealSize(erased.data(), 16), 1);
    EXPECT_EQ(MP_BinGetRealSize(erased.data(), 0), 1);
    EXPECT_EQ(MP_BinGetRealSize(nullptr, 5), -770);
}

TEST(Image, LoadsFilesThatFitAndTellsOthersBySize)
{
    std::vector<uint8_t> content(32769, 0xA5);
    content[32767] = 0x01;
    const TemporaryFile exact{{content.begin(), content.end() - 1}};
    const TemporaryFile large{content};
    const TemporaryFile empty{{}};

    EXPECT_EQ(MP_FwLoad(exact.path().c_str()), 0);
    EXPECT_EQ(nyxus_fw_bin_size, 32768);
    EXPECT_TRUE(std::equal(content.begin(), content.end() - 1, nyxus_fw_bin));

    nyxus_errno = 0;
    EXPECT_EQ(MP_FwLoad(large.path().c_str()), 0);
    EXPECT_EQ(nyxus_fw_bin_size, 0xFCF2);
    EXPECT_EQ(nyxus_errno, -782);
    EXPECT_STREQ(nyxus_errtmp, "BIN file_size > bin_size, buffer too small");

    EXPECT_EQ(MP_FwLoad(empty.path().c_str()), 0);
    EXPECT_EQ(nyxus_fw_bin_size, 1);

    EXPECT_EQ(MP_FwLoad("/no/such/file"), 0);
    EXPECT_EQ(nyxus_errno, -(0x8000 + 2));
    EXPECT_EQ(nyxus_fw_bin_size, static_cast<uint16_t>(-0x8002));
    EXPECT_NE(std::strstr(nyxus_errmsg, "<ERROR_SYSTEM> Open bin file '/no/such/file' FAILED"),
              nullptr);
    EXPECT_EQ(MP_FwLoad(nullptr), 0);
    EXPECT_EQ(nyxus_errno, -770);
    EXPECT_LT(MP_BinLoadFromFile(nyxus_fw_bin, 32768, "/"), 0);
}

TEST(MfiImage, TheSerialNumberGoesToDescriptorAndRecord)
{
    MfiImage image;
    image.header(0x100, 0x6040, 34, 0x6200);
    image.record(0x40, 16, 1);
    image.record(0x50, 24, 3);
    image.record(0x68, 24, 3);
    std::vector<uint8_t> expected = image.bytes;
    const std::string text = "12345678";
    for (size_t i = 0; i < text.size(); ++i) {
        expected[0x202 + 2 * i] = static_cast<uint8_t>(text[i]);
        expected[0x203 + 2 * i] = 0;
        expected[0x54 + i] = static_cast<uint8_t>(text[i]);
    }
    Captured err;
    EXPECT_EQ(MP_BinSetSerialNum(image.bytes.data(), text.c_str()), 0);
    EXPECT_EQ(image.bytes, expected);
    const std::string printed = err.text(); // dumped before and after, whatever the trace mask
    EXPECT_NE(printed.find("00006200h: EE EE EE"), std::string::npos) << printed;
    EXPECT_NE(printed.find("00006200h: EE EE 31 00 32 00"), std::string::npos) << printed;
}

TEST(MfiImage, AWildHeaderNeverLeavesTheImage)
{
    const struct {
        const char* name;
        uint16_t list_end, list, sn_length, sn;
        uint16_t first_record_length, second_record_length = 8;
    } cases[] = {
        {"addresses below the image", 0xFFFF, 0x0000, 0xFFFF, 0x0000, 8},
        {"addresses behind the image", 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 8},
        {"the last bytes", 0xFFFF, 0x6FFE, 0xFFFF, 0x6FFD, 8},
        {"a record of length 0", 0xFFFF, 0x6040, 4, 0x6200, 0},
        {"a list that wraps", 0xFFFF, 0x6040, 4, 0x6200, 0xFFFC},
        {"a list that leads back", 0xFFFF, 0x6040, 4, 0x6200, 8, 0xFFF8},
        {"a list of one-byte records", 0xFFFF, 0x6040, 4, 0x6200, 1},
    };
    const std::string serial(5000, 'S');
    for (const auto& c : cases) {
        MfiImage image;
        image.header(c.list_end, c.list, c.sn_length, c.sn);
        image.record(0x40, c.first_record_length, 1);
        image.record(0x48, c.second_record_length, 1);
        std::vector<uint8_t> guarded(3 * 4096, 0x77);
        std::copy(image.bytes.begin(), image.bytes.end(), guarded.begin() + 4096);
        Captured err;
        EXPECT_EQ(MP_BinSetSerialNum(guarded.data() + 4096, serial.c_str()), 0) << c.name;
        EXPECT_EQ(std::count(guarded.begin(), guarded.begin() + 4096, 0x77), 4096) << c.name;
        EXPECT_EQ(std::count(guarded.end() - 4096, guarded.end(), 0x77), 4096) << c.name;
    }
    EXPECT_EQ(MP_BinSetSerialNum(nullptr, "1"), -770);
    EXPECT_EQ(MP_BinSetSerialNum(nyxus_mfi_bin, nullptr), -770);
    EXPECT_STREQ(nyxus_errtmp, "'sn' cannot be NULL");
}

TEST(MfiImage, TheHeaderIsPrintedInHostOrderWhenFailuresAreTraced)
{
    MfiImage image;
    image.header(0, 0, 0x0102, 0x6080);
    image.bytes[0x1E] = 0x5A;
    Captured err;
    EXPECT_EQ(MP_BinPrintMFiInfo(image.bytes.data()), 0);
    EXPECT_EQ(err.text(), "");
    ny_trace_param = 0x1080;
    EXPECT_EQ(MP_BinPrintMFiInfo(image.bytes.data()), 0);
    ny_trace_param = 0;
    const std::string printed = err.text();
    for (const char* line :
         {"MP_BinPrintMFiInfo(): ", "      ->wSerialNumLen  = 0x0201 \n",
          "      ->wSerialNumAddr = 0x8060 \n", "      ->bModeSel       = 0x5A \n"})
        EXPECT_NE(printed.find(line), std::string::npos) << line;
    EXPECT_EQ(MP_BinPrintMFiInfo(nullptr), -770);
}

TEST(MfiImage, HeapImagesAreReleasedByTheLibrary)
{
    ny_trace_param = 0x40;
    Captured err;
    MP_FwFreeMFiBin(nullptr);
    MP_FwFreeMFiBin(std::malloc(16));
    ny_trace_param = 0;
    EXPECT_EQ(err.text(), "<INFO> Free MFi BIN buffer OK \n");
}
