// SPDX-License-Identifier: Apache-2.0
// The hardware tables are consistent in themselves.
#include <nyxus/nyxus.h>

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <string_view>

namespace {

/// A text of fixed room that is terminated and padded with NUL.
template <size_t N>
bool is_padded(const char (&text)[N])
{
    const size_t length = strnlen(text, N);
    for (size_t i = length; i < N; ++i) {
        if (text[i] != '\0')
            return false;
    }
    return length < N;
}

} // namespace

TEST(ControlTables, SelectorsAreUniqueAndNamed)
{
    const int32_t counts[] = {15, 16, 15, 19, 17};
    const uint16_t versions[] = {0xFFFF, 0x0100, 0x0101, 0x0002, 0x0003};
    ASSERT_EQ(xu_table_list_count, 5);
    for (int32_t t = 0; t < xu_table_list_count; ++t) {
        const NyXuTable& entry = xu_table_list[t];
        EXPECT_EQ(entry.version, versions[t]);
        EXPECT_EQ(entry.count, counts[t]);
        std::set<uint8_t> selectors;
        for (int32_t i = 0; i < entry.count; ++i) {
            const uvc_xu_ctrl& row = entry.table[i];
            EXPECT_TRUE(selectors.insert(row.selector).second) << row.name;
            EXPECT_TRUE(is_padded(row.name));
            EXPECT_TRUE(std::string_view{row.name}.starts_with("ZRV_XU_")) << row.name;
            EXPECT_EQ(row.reserved, 0);
        }
    }
    EXPECT_EQ(xu_table_list[0].table, uvc_xu_table_ver_none);
    EXPECT_EQ(uvc_xu_table_ver_none_count, 15);
    EXPECT_EQ(uvc_xu_table_ver_0002_count, 19);
    EXPECT_EQ(uvc_xu_table_ver_0003_count, 17);
    EXPECT_EQ(uvc_xu_table_ver_0100_count, 16);
    EXPECT_EQ(uvc_xu_table_ver_0101_count, 15);
    EXPECT_EQ(uvc_xu_ctrl_ver_info[0].selector, 0x0D);
    EXPECT_EQ(uvc_xu_ctrl_ver_info[1].selector, 0x16);
}

TEST(ControlTables, ANameMeansOneSelectorEverywhere)
{
    std::set<std::pair<std::string, int>> pairs;
    std::set<std::string> names;
    for (int32_t t = 0; t < xu_table_list_count; ++t) {
        for (int32_t i = 0; i < xu_table_list[t].count; ++i) {
            const uvc_xu_ctrl& row = xu_table_list[t].table[i];
            pairs.emplace(row.name, row.selector);
            names.insert(row.name);
        }
    }
    EXPECT_EQ(pairs.size(), names.size());
}

TEST(ChipCatalogue, RowsBelongToTheirFamily)
{
    const char* families[] = {"N/A", "LARCH", "FI", "FI2", "WILLOW", "HAWTHORN", "ROWAN", "CEDAR"};
    for (size_t i = 0; i < std::size(families); ++i)
        EXPECT_STREQ(IC_FAMILY_STR[i], families[i]);
    ASSERT_EQ(backend_list_count, 16);
    for (int32_t i = 0; i < backend_list_count; ++i) {
        const NyBackend& row = backend_list[i];
        EXPECT_LT(row.family, 8u);
        EXPECT_TRUE(is_padded(row.signature));
        EXPECT_TRUE(is_padded(row.name));
        if (i > 0) {
            EXPECT_GE(row.chip_id, backend_list[i - 1].chip_id);
        }
    }
    EXPECT_STREQ(backend_list[14].name, "NY7780");
    EXPECT_EQ(backend_list[14].bBondIdex, 2u);
    EXPECT_EQ(backend_list[11].family, uint32_t{IC_FAMILY_CEDAR});
}

TEST(FlashCatalogue, RowsAreCompleteAndOnlyOneIsShadowed)
{
    ASSERT_EQ(spi_flash_table_count, 42);
    std::set<uint32_t> ids;
    std::set<int> shadowed;
    for (int32_t i = 0; i < spi_flash_table_count; ++i) {
        const NyFlashInfo& row = spi_flash_table[i];
        EXPECT_TRUE(is_padded(row.szName));
        EXPECT_TRUE(row.bCmdBE == 0x52 || row.bCmdBE == 0xD8) << row.szName;
        EXPECT_TRUE(row.bCmdCE == 0xC7 || row.bCmdCE == 0x62 || row.bCmdCE == 0xFF) << row.szName;
        EXPECT_LE(row.bSize, 8) << row.szName;
        EXPECT_EQ(row.abExtParam[2], 0x64) << row.szName;
        const uint32_t id = static_cast<uint32_t>(row.ID[0] << 16 | row.ID[1] << 8 | row.ID[2]);
        if (!ids.insert(id).second)
            shadowed.insert(i);
    }
    EXPECT_EQ(shadowed, std::set<int>{38});
    EXPECT_STREQ(spi_flash_table[41].szName, "Not Approved Flash");
}

TEST(FlashCatalogue, TheFirstRowWithTheIdWins)
{
    const struct {
        uint8_t id[3];
        int32_t row;
        const char* name;
    } cases[] = {
        {{0x1F, 0x65, 0x00}, 3, "Adesto AT25F512B"},
        {{0xC2, 0x20, 0x14}, 26, "Zetta ZD25D80"},
        {{0x9D, 0x7B, 0x7F}, 39, "ISSI Pm25LV512A"},
        {{0x00, 0x00, 0x00}, 41, "Not Approved Flash"},
        {{0x12, 0x34, 0x56}, -1, "Not Approved Flash"},
    };
    for (const auto& c : cases) {
        NyDevice device = {};
        EXPECT_EQ(MP_MatchFlash(&device, 0x55, c.id), c.row) << c.name;
        const int32_t row = c.row < 0 ? 41 : c.row;
        EXPECT_EQ(std::memcmp(&device.oFlashInfo, &spi_flash_table[row], 45), 0) << c.name;
        EXPECT_STREQ(device.oFlashInfo.szName, c.name);
    }
    NyDevice device = {};
    EXPECT_EQ(MP_IdentifyEeprom(&device), -38);
}

TEST(FlashCatalogue, IsSearchedAsLongAsItsCountSays)
{
    const uint8_t adesto[] = {0x1F, 0x65, 0x00};
    NyDevice device = {};
    spi_flash_table_count = 3;
    EXPECT_EQ(MP_MatchFlash(&device, 0, adesto), -1);
    EXPECT_STREQ(device.oFlashInfo.szName, "EON EN25F10A");
    spi_flash_table_count = 42;
}
